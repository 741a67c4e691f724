// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ImageData.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace {

// The page's size is a product in 32 bits; a page beyond that wraps around.
int wrappingProduct(int a, int b)
{
    return static_cast<int>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

}  // namespace

void ImageData::restart()
{
    Clear();
    iWholeImageSize = wrappingProduct(iScanHeight, iStride);
    SetInterleaveInfo(0, 0, 0, 0, 0);
    iInterleave = 0;
}

int ImageData::SetAttributes(int width, int height, int stride, TripletTypeEnum tripletType,
                             FlipEnum sideFlip, CompressionModeEnum mode, int level)
{
    iScanWidth = width;
    iScanHeight = height;
    iStride = stride;
    iTripletType = tripletType;
    iSideFlip = sideFlip;
    iCompressionMode = mode;
    iCompressionLevel = level;
    iNumOfChannels = tripletType == GRAY ? 1 : 3;
    restart();
    return 1;
}

int ImageData::SetAttributes(ConfigReader* cfg, int isAdf)
{
    TripletTypeEnum tripletType = GRAY;
    if (cfg->GetIntOption("COLORDEPTH") == 3) {
        tripletType = cfg->GetIntOption("BGRTORGB") != 0 ? BGR : RGB;
    }
    const char* flipKey = isAdf != 0 ? "ADFSIDEFLIP" : "FLATBEDSIDEFLIP";
    const bool isCompressed = cfg->GetIntOption("COMPRESSION") != 0;

    return SetAttributes(cfg->GetIntOption("PIXELS_PER_LINE"), cfg->GetIntOption("LINES"),
                         cfg->GetIntOption("BYTES_PER_LINE"), tripletType,
                         cfg->GetIntOption(flipKey) != 0 ? FLIP_ON : FLIP_OFF,
                         isCompressed ? COMPRESSION_ON : COMPRESSION_OFF_RAW,
                         cfg->GetIntOption("COMPRESSIONLEVEL"));
}

void ImageData::UpdateAttributes(int width, int height, int stride)
{
    iScanWidth = width;
    iScanHeight = height;
    iStride = stride;
    restart();
}

void ImageData::RecordAttributes(int actualWidth, int actualHeight)
{
    iActualScanWidth = actualWidth;
    iActualScanHeight = actualHeight;
}

void ImageData::SetInterleaveInfo(int width, int height, int offsetX, int offsetY, int trim)
{
    iInterleave = 1;
    iInterleaveWidth = width;
    iInterleaveHeight = height;
    iInterleaveOffsetX = offsetX;
    iInterleaveOffsetY = offsetY;
    iInterleaveTrim = trim;
}

int ImageData::GetCompressionLevel() const
{
    return iCompressionMode == COMPRESSION_ON ? iCompressionLevel : 0;
}

unsigned char* ImageData::ExtendRawData(int* len)
{
    *len = static_cast<int>(std::min<long>(*len, iWholeImageSize));
    unsigned char* room = DataBuffer::ExtendRawData(*len);
    if (room != nullptr) {
        iWholeImageSize -= *len;
    }
    return room;
}

int ImageData::SetRawData(const unsigned char* data, int len)
{
    len = static_cast<int>(std::min<long>(len, iWholeImageSize));
    if (DataBuffer::SetRawData(data, len) != 0) {
        iWholeImageSize -= len;
    }
    return 1;
}

int ImageData::ApplyAdjustments(unsigned char* buf, int len, int /*lines*/)
{
    const bool isExact = iActualScanWidth == iScanWidth && iActualScanHeight == iScanHeight;
    if (isExact || iActualScanWidth >= iScanWidth) {
        return len;
    }
    const CLogger logger;
    SL_TRACE_TO(logger, "TRIMMING WIDTH");

    if (buf == nullptr || len < 0 || iStride < 1) {
        return len;
    }
    const int line = static_cast<int>(
        std::clamp<std::int64_t>(static_cast<std::int64_t>(iNumOfChannels) * iActualScanWidth, 0,
                                 std::numeric_limits<int>::max()));
    const std::unique_ptr<unsigned char, decltype(&free)> temp(
        static_cast<unsigned char*>(malloc(static_cast<std::size_t>(len) + 1)), free);
    if (!temp) {
        return len;
    }
    memcpy(temp.get(), buf, static_cast<std::size_t>(len));
    memset(buf, 0, static_cast<std::size_t>(len));
    SL_TRACE_TO(logger, "data length: %d\n", len);
    SL_TRACE_TO(logger, "actual width: %d, channels: %d, bytes per line: %d\n", iActualScanWidth,
                iNumOfChannels, line);

    int destination = 0;
    for (std::int64_t source = 0; source < len; source += iStride) {
        const int from = static_cast<int>(source);
        // Lines wider than the stride overlap in the source and could outgrow buf.
        const int n = std::min({line, len - from, len - destination});
        SL_TRACE_TO(logger, "copy %d bytes at %d from temp to %d of storage", n, from, destination);
        memcpy(buf + destination, temp.get() + from, static_cast<std::size_t>(n));
        destination += n;
    }
    return destination;
}
