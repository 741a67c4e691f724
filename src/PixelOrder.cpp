// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PixelOrder.h"

#include "GreyLoops.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t kColour = 3;

void swapColours(unsigned char* pixels, std::size_t count)
{
    for (unsigned char* pixel = pixels; pixel != pixels + count * kColour; pixel += kColour) {
        std::swap(pixel[0], pixel[2]);
    }
}

void mirrorColour(unsigned char* line, std::size_t count)
{
    unsigned char* left = line;
    unsigned char* right = line + count * kColour;
    for (std::size_t i = 0; i < count / 2; ++i, left += kColour) {
        right -= kColour;
        std::swap_ranges(left, left + kColour, right);
    }
}

void mergeColour(const unsigned char* a, const unsigned char* b, unsigned char* out,
                 std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs; ++i, out += 2 * kColour) {
        memcpy(out, a + i * kColour, kColour);
        memcpy(out + kColour, b + i * kColour, kColour);
    }
}

}  // namespace

const PixelOrder& scalarPixelOrder()
{
    static const PixelOrder order = {"scalar",   swapColours, mirrorColour,
                                     mirrorGrey, mergeColour, mergeGrey};
    return order;
}

const PixelOrder& pixelOrder()
{
    const PixelOrder* vectors = avx2PixelOrder();
    return vectors != nullptr ? *vectors : scalarPixelOrder();
}
