// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"

namespace scansim {

// How a device lays out the lines that it sends.
struct LineLayout {
    bool isMirrored = false;
    bool isBgr = false;
    bool isInterleaved = false;
    std::uint32_t offsetX = 0;  // interleaved only: pixels in front of the wanted ones
    std::uint32_t trim = 0;     // interleaved only: pixels at the start of each half-line to skip
};

// Turns lines as people see them into lines as the device sends them.
class LineEncoder {
public:
    LineEncoder(const LineLayout& layout, std::uint32_t pixels, std::uint32_t channels);

    // Pixels of a device line, as the page marker announces them.
    std::uint32_t deviceWidth() const { return deviceWidth_; }
    std::size_t deviceLineSize() const { return std::size_t{deviceWidth_} * channels_; }
    std::size_t pageLineSize() const { return std::size_t{pixels_} * channels_; }

    void encode(const std::uint8_t* pageLine, std::uint8_t* deviceLine);

private:
    void mirrorAndSwap(const std::uint8_t* pageLine, std::uint8_t* out) const;
    void splitIntoHalves(const std::uint8_t* line, std::uint8_t* deviceLine) const;

    LineLayout layout_;
    std::uint32_t pixels_;
    std::uint32_t channels_;
    std::uint32_t deviceWidth_;
    Bytes work_;
};

}  // namespace scansim
