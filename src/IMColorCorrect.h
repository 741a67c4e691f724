// SPDX-License-Identifier: LGPL-2.1-or-later
// Colour correction by a loadable library with look-up tables read from files.
#pragma once

#include "CLogger.h"
#include "IManipulation.h"

// The correction function: corrects lines of width pixels in place. isColour: 24-bit
// pixels, else 8-bit grey. 0 on success.
using SCANCORRECT = int (*)(unsigned char* data, int width, int lines, int stride, int isColour,
                            unsigned char* lut, int lutSize);

// Colour orders as the correction library counts them.
enum TRIPLET_TYPE {
    TRIPLET_TYPE_GRAY = 0,
    TRIPLET_TYPE_RGB = 1,
    TRIPLET_TYPE_BGR = 2,
    TRIPLET_TYPE_UNKNOWN = 65535,
};

// Without its library, its function or a table it does nothing.
class IMColorCorrect : public IManipulation, public CLogger {
public:
    // The library and tables of the maker's own installation.
    IMColorCorrect();
    // A null argument leaves the object inactive.
    IMColorCorrect(const char* lib, const char* func, const char* colorLut, const char* grayLut);
    IMColorCorrect(const IMColorCorrect&) = delete;
    IMColorCorrect& operator=(const IMColorCorrect&) = delete;
    ~IMColorCorrect() override;

    int Perform(ImageData* img, int len) override;

    // Reads a whole file into a new block (malloc), null if it cannot be read.
    void SetupLutFiles(unsigned char** lut, const char* path, int* size);

private:
    void load(const char* lib, const char* func, const char* colorLut, const char* grayLut);

    void* hScanCorrectHandle = nullptr;
    SCANCORRECT fpScanCorrect = nullptr;
    unsigned char* pLutColor = nullptr;
    int pLutColorSize = 0;
    unsigned char* pLutGray = nullptr;
    int pLutGraySize = 0;
};
