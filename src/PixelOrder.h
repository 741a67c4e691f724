// SPDX-License-Identifier: LGPL-2.1-or-later
// Reordering of the pixels of a line, once in plain code and once with vectors.
#pragma once

#include <cstddef>

// Sizes are in pixels, which have three bytes (colour) or one (grey).
struct PixelOrder {
    const char* name;
    // Exchanges the first and the third byte of each pixel.
    void (*swapColours)(unsigned char* pixels, std::size_t count);
    // Mirror a line in place.
    void (*mirrorColour)(unsigned char* line, std::size_t count);
    void (*mirrorGrey)(unsigned char* line, std::size_t count);
    // Take a pixel of each in turn, the first from a: pairs of them. out overlaps neither.
    void (*mergeColour)(const unsigned char* a, const unsigned char* b, unsigned char* out,
                        std::size_t pairs);
    void (*mergeGrey)(const unsigned char* a, const unsigned char* b, unsigned char* out,
                      std::size_t pairs);
};

const PixelOrder& scalarPixelOrder();
// Null where the processor or the build does not have it.
const PixelOrder* avx2PixelOrder();
// The fastest one.
const PixelOrder& pixelOrder();
