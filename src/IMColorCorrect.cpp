// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IMColorCorrect.h"

#include "ImageData.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

#include <dlfcn.h>

namespace {

constexpr const char* kDefaultLibrary = "/usr/qilinkjet/qil08/lib/libCS_ScanCorrect.so";
constexpr const char* kDefaultFunction = "ScanCorrect";
constexpr const char* kDefaultColorLut = "/usr/qilinkjet/qil08/etc/qldnSCc0.bin";
constexpr const char* kDefaultGrayLut = "/usr/qilinkjet/qil08/etc/qldnSCg0.bin";

long fileSize(FILE* file)
{
    if (fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const long size = ftell(file);
    return fseek(file, 0, SEEK_SET) == 0 ? size : -1;
}

}  // namespace

IMColorCorrect::IMColorCorrect()
{
    load(kDefaultLibrary, kDefaultFunction, kDefaultColorLut, kDefaultGrayLut);
}

IMColorCorrect::IMColorCorrect(const char* lib, const char* func, const char* colorLut,
                               const char* grayLut)
{
    load(lib, func, colorLut, grayLut);
}

IMColorCorrect::~IMColorCorrect()
{
    free(pLutColor);
    free(pLutGray);
    if (hScanCorrectHandle != nullptr) {
        dlclose(hScanCorrectHandle);
    }
}

void IMColorCorrect::load(const char* lib, const char* func, const char* colorLut,
                          const char* grayLut)
{
    if (lib == nullptr || func == nullptr || colorLut == nullptr || grayLut == nullptr) {
        return;
    }
    hScanCorrectHandle = dlopen(lib, RTLD_LAZY);
    if (hScanCorrectHandle == nullptr) {
        SL_TRACE("[WARN] no colour correction: %s", dlerror());
    } else {
        fpScanCorrect = reinterpret_cast<SCANCORRECT>(dlsym(hScanCorrectHandle, func));
    }
    SetupLutFiles(&pLutColor, colorLut, &pLutColorSize);
    SetupLutFiles(&pLutGray, grayLut, &pLutGraySize);
}

void IMColorCorrect::SetupLutFiles(unsigned char** lut, const char* path, int* size)
{
    if (*lut != nullptr) {
        return;
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "rbe"), fclose);
    if (!file) {
        SL_TRACE("[WARN] no colour correction: cannot read %s", path);
        return;
    }
    const long bytes = fileSize(file.get());
    if (bytes < 0 || bytes > std::numeric_limits<int>::max()) {
        return;
    }
    // A table of size 0 is a table as well.
    void* table = calloc(std::max<size_t>(1, static_cast<size_t>(bytes)), 1);
    if (table == nullptr ||
        fread(table, 1, static_cast<size_t>(bytes), file.get()) != static_cast<size_t>(bytes)) {
        free(table);
        return;
    }
    *lut = static_cast<unsigned char*>(table);
    *size = static_cast<int>(bytes);
}

int IMColorCorrect::Perform(ImageData* img, int len)
{
    const int stride = img->GetStride();
    const bool isLoaded = hScanCorrectHandle != nullptr && fpScanCorrect != nullptr &&
                          pLutColor != nullptr && pLutGray != nullptr;
    unsigned char* data = img->GetRawDataPtr();
    if (!isLoaded || stride < 1 || data == nullptr) {
        SL_TRACE("Scan Correct failed.");
        return 0;
    }
    const bool isColour = img->GetNumOfChannels() == 3;
    const int lines = std::min(len, img->GetRawDataSize()) / stride;
    const int error =
        fpScanCorrect(data, img->GetScanWidth(), lines, stride, isColour ? 1 : 0,
                      isColour ? pLutColor : pLutGray, isColour ? pLutColorSize : pLutGraySize);
    if (error != 0) {
        SL_TRACE("Scan Correct error = %d.", error);
    } else {
        SL_TRACE("Scan Correct successful.");
    }
    return 1;
}
