// SPDX-License-Identifier: LGPL-2.1-or-later
// Stands in for the scanners' colour-correction library: one table for each channel.

#include <cstddef>

namespace {

constexpr int kTableSize = 256;

void correctLine(unsigned char* line, std::size_t samples, std::size_t channels,
                 const unsigned char* tables)
{
    for (std::size_t i = 0; i < samples; ++i) {
        line[i] = tables[i % channels * kTableSize + line[i]];
    }
}

}  // namespace

// Returns 0, or 1 when the table does not have one part for every channel.
extern "C" __attribute__((visibility("default"))) int ScanCorrect(unsigned char* data, int width,
                                                                  int lines, int stride,
                                                                  int isColour, unsigned char* lut,
                                                                  int lutSize)
{
    const int channels = isColour != 0 ? 3 : 1;
    if (lutSize != channels * kTableSize) {
        return 1;
    }
    for (int line = 0; line < lines; ++line) {
        correctLine(data + static_cast<std::size_t>(line) * static_cast<std::size_t>(stride),
                    static_cast<std::size_t>(width) * static_cast<std::size_t>(channels),
                    static_cast<std::size_t>(channels), lut);
    }
    return 0;
}
