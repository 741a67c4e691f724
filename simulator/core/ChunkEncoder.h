// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>

#include "Bytes.h"

namespace scansim {

// Compresses bands of lines. Each becomes a chunk that can be decoded by itself: a header of four
// big-endian words (size of the chunk, lines, pixels per line, quality) and entropy-coded blocks.
class ChunkEncoder {
public:
    static constexpr std::size_t kHeaderSize = 16;
    static constexpr std::size_t kSizeAt = 0;
    static constexpr std::size_t kLinesAt = 4;
    static constexpr std::size_t kPixelsAt = 8;
    static constexpr std::size_t kQualityAt = 12;
    static constexpr std::uint32_t kMaxPixels = 65496;

    ChunkEncoder(std::uint32_t pixels, std::uint32_t channels);
    ~ChunkEncoder();

    // `lines` are whole lines without gaps. Qualities below 1 are coarser than any other.
    Bytes encode(const Bytes& lines, int quality);

private:
    struct Coder;

    void begin(std::uint32_t paddedLines, int quality);
    void writeLines(const Bytes& lines, std::uint32_t count, std::uint32_t paddedLines);
    void padInto(Bytes& padded, const std::uint8_t* line) const;

    std::uint32_t pixels_;
    std::uint32_t channels_;
    std::uint32_t paddedPixels_;
    std::unique_ptr<Coder> coder_;
};

}  // namespace scansim
