// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ChunkDamage.h"

#include <algorithm>

#include "ChunkEncoder.h"

namespace scansim {

namespace {

constexpr std::size_t kHeaderSize = ChunkEncoder::kHeaderSize;

void flipBits(Bytes& chunk, std::uint64_t count)
{
    const std::uint64_t bits = (chunk.size() - kHeaderSize) * 8;
    count = std::min(count, bits);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t bit = (2 * i + 1) * bits / (2 * count);
        chunk[kHeaderSize + static_cast<std::size_t>(bit / 8)] ^=
            static_cast<std::uint8_t>(0x80 >> bit % 8);
    }
}

void shorten(Bytes& chunk, std::size_t count)
{
    chunk.resize(chunk.size() - std::min(count, chunk.size() - kHeaderSize));
    putBe32(&chunk[ChunkEncoder::kSizeAt], static_cast<std::uint32_t>(chunk.size()));
}

}  // namespace

void damageChunk(Bytes& chunk, const Fault& fault)
{
    const auto size = static_cast<std::uint32_t>(chunk.size());
    switch (fault.action) {
    case FaultAction::FlipBits:
        return flipBits(chunk, fault.argument);
    case FaultAction::Truncate:
        return chunk.resize(std::min<std::size_t>(fault.argument, chunk.size()));
    case FaultAction::Shorten:
        return shorten(chunk, fault.argument);
    case FaultAction::Size:
        return putBe32(&chunk[ChunkEncoder::kSizeAt], fault.argument);
    case FaultAction::Oversize:
        return putBe32(&chunk[ChunkEncoder::kSizeAt], size + fault.argument);
    case FaultAction::Undersize:
        return putBe32(&chunk[ChunkEncoder::kSizeAt], size - fault.argument);
    case FaultAction::Lines:
        return putBe32(&chunk[ChunkEncoder::kLinesAt], fault.argument);
    case FaultAction::Pixels:
        return putBe32(&chunk[ChunkEncoder::kPixelsAt], fault.argument);
    case FaultAction::Quality:
        return putBe32(&chunk[ChunkEncoder::kQualityAt], fault.argument);
    default:
        return;
    }
}

}  // namespace scansim
