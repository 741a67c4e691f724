// SPDX-License-Identifier: LGPL-2.1-or-later
// One resolution record of the device properties.
#pragma once

#include "CLogger.h"

#include <memory>

// 9 bytes, little-endian: horizontal and vertical resolution in dots per inch, then
// the colour depth in bits per pixel.
class CScanRes : public CLogger {
public:
    static constexpr int kSize = 9;

    // Copies the record; bytes missing at its end count as zero. 0, or 2 for no memory.
    int setData(const unsigned char* data, int size);

    // 0, or -1 without data (nothing is written then).
    int getHorRes(int* value) const;
    int getVerRes(int* value) const;
    // The depth, or -1 without data.
    int getColorDepth() const;
    // 1 when both resolutions are the same, else 0.
    int isEqual() const;

private:
    std::unique_ptr<unsigned char[]> pdata;
};
