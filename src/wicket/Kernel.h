// SPDX-License-Identifier: LGPL-2.1-or-later
// What the fast decoder computes with vectors, once for each kind of processor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wicket {

// Which coefficients of a group of blocks may be other than zero.
enum class Extent : std::uint8_t {
    dc,      // the first
    corner,  // those of the first four rows and columns
    all,
};

// Blocks are handled in groups of blocksAtOnce, interleaved: coefficient (row, col) of block b
// of a group is at (col * blocksAtOnce + b) * 8 + row. Dequantisation tables have the layout
// of one group. Coefficients times table entries fit into 16 bits, DC with room for 4 more.
//
// The functions turn count blocks, side by side, into pixels. They compute in 16 bits where
// that is exact, and return false, with whatever pixels, where it is not.
struct Kernel {
    const char* name;
    int blocksAtOnce;
    // extent: one for each group.
    bool (*grey)(const std::int16_t* coefficients, const std::int16_t* dequant,
                 const Extent* extent, int count, unsigned char* out, std::size_t stride);
    // Three planes of coefficients, planeStep apart; extents likewise, extentStep apart.
    bool (*colour)(const std::int16_t* coefficients, std::size_t planeStep,
                   const std::int16_t* luminance, const std::int16_t* chrominance,
                   const Extent* extent, std::size_t extentStep, int count, unsigned char* out,
                   std::size_t stride);
};

// Null where the processor or the build does not have it.
const Kernel* baselineKernel();
const Kernel* avx2Kernel();

}  // namespace wicket
