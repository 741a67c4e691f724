// SPDX-License-Identifier: LGPL-2.1-or-later
// The order of grey pixels in plain code, of which the compiler makes vectors where it may. Each
// unit that includes this has loops of its own, for the processor that it is compiled for.
#pragma once

#include <cstddef>

namespace {

inline void mirrorGrey(unsigned char* line, std::size_t count)
{
    for (std::size_t i = 0; i < count / 2; ++i) {
        const unsigned char left = line[i];
        line[i] = line[count - 1 - i];
        line[count - 1 - i] = left;
    }
}

inline void mergeGrey(const unsigned char* a, const unsigned char* b, unsigned char* out,
                      std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs; ++i) {
        out[2 * i] = a[i];
        out[2 * i + 1] = b[i];
    }
}

}  // namespace
