// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RawDataHandler.h"

#include "IMBGRtoRGB.h"
#include "IMColorCorrect.h"
#include "IMSideFlip.h"

#include <cstdio>
#include <string>

namespace {

constexpr size_t kDigitFromEnd = 5;

const char* orNull(const char* text)
{
    return text != nullptr ? text : "(null)";
}

void replaceBarDigit(ConfigReader* cfg, const char* key, char digit)
{
    const char* text = cfg->GetStringOption(key);
    if (text == nullptr) {
        return;
    }
    std::string name = text;
    if (name.size() >= kDigitFromEnd) {
        name[name.size() - kDigitFromEnd] = digit;
    }
    cfg->SetStringOption(key, name.c_str());
}

}  // namespace

RawDataHandler::~RawDataHandler() = default;

void RawDataHandler::SetUp(ConfigReader* cfg)
{
    SL_START();
    SL_TRACE("RawDataHandler Constructor");
    if (cfg->GetIntOption("BGRTORGB") != 0) {
        IM.push_back(std::make_unique<IMBGRtoRGB>());
        SL_TRACE("BGR to RGB object created.");
    }
    if (cfg->GetIntOption("FLATBEDSIDEFLIP") != 0 || cfg->GetIntOption("ADFSIDEFLIP") != 0) {
        IM.push_back(std::make_unique<IMSideFlip>());
        SL_TRACE("SideFlip object created.");
    }
    if (cfg->GetIntOption("COLORCORRECT") != 0) {
        CheckForMultipleScanbars(cfg);
        const char* lib = cfg->GetStringOption("SCLIB");
        const char* func = cfg->GetStringOption("SCFUNC");
        const char* colorLut = cfg->GetStringOption("COLORLUT");
        const char* grayLut = cfg->GetStringOption("GRAYLUT");
        SL_TRACE("SCLib = %s\n", orNull(lib));
        SL_TRACE("SCFunc = %s\n", orNull(func));
        SL_TRACE("ColorLUT = %s\n", orNull(colorLut));
        SL_TRACE("GrayLUT = %s\n", orNull(grayLut));
        IM.push_back(std::make_unique<IMColorCorrect>(lib, func, colorLut, grayLut));
        SL_TRACE("Color Correct object created.");
    }
    SL_END();
}

int RawDataHandler::CheckForMultipleScanbars(ConfigReader* cfg)
{
    SL_START();
    const int id = cfg->GetIntOption("SCANBARID");
    if (id != 0) {
        SL_TRACE("CheckForMultipleScanbars");
        char number[16];
        snprintf(number, sizeof number, "%d", id);
        SL_TRACE("ScanBarNum = %c", number[0]);
        replaceBarDigit(cfg, "COLORLUT", number[0]);
        replaceBarDigit(cfg, "GRAYLUT", number[0]);
        SL_TRACE("Color = %s", orNull(cfg->GetStringOption("COLORLUT")));
        SL_TRACE("Gray = %s", orNull(cfg->GetStringOption("GRAYLUT")));
    }
    SL_RETURN(0);
}

void RawDataHandler::run(ImageData* img, int len)
{
    for (const auto& manipulation : IM) {
        manipulation->Perform(img, len);
    }
    img->SetProcessedDataSize(len);
}

int RawDataHandler::Perform(ImageData* img)
{
    return Perform(img, debugEnabled());
}

int RawDataHandler::Perform(ImageData* img, bool isTracing)
{
    SL_START_IF(isTracing);
    const int rawSize = img->GetRawDataSize();
    const int stride = img->GetStride();
    // Without lines nothing can be manipulated, and nothing is to be waited for.
    if (IM.empty() || stride < 1) {
        img->SetProcessedDataSize(rawSize);
        SL_RETURN_IF(isTracing, 1);
    }
    if (rawSize < stride) {
        SL_RETURN_IF(isTracing, 0);
    }
    run(img, rawSize - rawSize % stride);
    SL_RETURN_IF(isTracing, 1);
}

void RawDataHandler::Finish(ImageData* img)
{
    Perform(img);
    if (img->GetRawDataSize() > 0) {
        run(img, img->GetRawDataSize());
    }
}
