// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LineEncoder.h"

#include <algorithm>

namespace scansim {

namespace {

// Pixels that the host has to leave out; if one shows, it shows.
constexpr std::uint8_t kJunk = 0xA5;

std::uint32_t widthOnTheWire(const LineLayout& layout, std::uint32_t pixels)
{
    if (!layout.isInterleaved) {
        return pixels;
    }
    return 2 * (layout.trim + (layout.offsetX + pixels + 1) / 2);
}

}  // namespace

LineEncoder::LineEncoder(const LineLayout& layout, std::uint32_t pixels, std::uint32_t channels)
    : layout_(layout),
      pixels_(pixels),
      channels_(channels),
      deviceWidth_(widthOnTheWire(layout, pixels)),
      work_(pageLineSize())
{
}

void LineEncoder::encode(const std::uint8_t* pageLine, std::uint8_t* deviceLine)
{
    const bool isChanged = layout_.isMirrored || (layout_.isBgr && channels_ == 3);
    std::uint8_t* target = layout_.isInterleaved ? work_.data() : deviceLine;
    if (isChanged) {
        mirrorAndSwap(pageLine, target);
    } else {
        std::copy_n(pageLine, pageLineSize(), target);
    }
    if (layout_.isInterleaved) {
        splitIntoHalves(work_.data(), deviceLine);
    }
}

void LineEncoder::mirrorAndSwap(const std::uint8_t* pageLine, std::uint8_t* out) const
{
    const bool swaps = layout_.isBgr && channels_ == 3;
    for (std::uint32_t i = 0; i < pixels_; ++i) {
        const std::uint32_t from = layout_.isMirrored ? pixels_ - 1 - i : i;
        const std::uint8_t* pixel = pageLine + std::size_t{from} * channels_;
        for (std::uint32_t channel = 0; channel < channels_; ++channel) {
            *out++ = pixel[swaps ? 2 - channel : channel];
        }
    }
}

// Even pixels go into the first half-line, odd ones into the second.
void LineEncoder::splitIntoHalves(const std::uint8_t* line, std::uint8_t* deviceLine) const
{
    std::fill_n(deviceLine, deviceLineSize(), kJunk);
    const std::size_t half = deviceLineSize() / 2;
    for (std::uint32_t i = 0; i < pixels_; ++i) {
        const std::uint32_t place = layout_.offsetX + i;
        const std::size_t at = std::size_t{layout_.trim + place / 2} * channels_;
        std::copy_n(line + std::size_t{i} * channels_, channels_,
                    deviceLine + (place % 2) * half + at);
    }
}

}  // namespace scansim
