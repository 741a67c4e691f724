// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Framer.h"

#include <algorithm>

namespace scansim {

namespace {

constexpr unsigned kLargestPower = 16;

}  // namespace

Bytes makeFrame(const Bytes& payload)
{
    Bytes frame = {'H', 'B', 'N', '3', 0, 0, 0, 0, 0};
    putBe32(frame.data() + 5, static_cast<std::uint32_t>(payload.size()));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

Framer::Framer(const NetworkTraits& traits)
    : traits_(traits), random_(traits.frameSeed.value_or(0) + 1), nextSize_(chooseSize())
{
}

// Random sizes are as often small as large: each power of two up to 64 KB is as likely.
std::uint32_t Framer::chooseSize()
{
    if (!traits_.frameSeed) {
        return traits_.frameSizes[chosen_++ % traits_.frameSizes.size()];
    }
    const std::uint32_t low = 1U << (1 + random_() % (kLargestPower - 1));
    return low + static_cast<std::uint32_t>(random_()) % low;
}

void Framer::cut(std::size_t& from, std::size_t size, std::vector<Bytes>& frames)
{
    const auto first = pending_.begin() + static_cast<long>(from);
    frames.push_back(makeFrame(Bytes(first, first + static_cast<long>(size))));
    from += size;
    nextSize_ = chooseSize();
}

std::vector<Bytes> Framer::addImage(const Bytes& bytes)
{
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    std::vector<Bytes> frames;
    std::size_t from = 0;
    while (pending_.size() - from >= nextSize_ + 2) {
        cut(from, nextSize_, frames);
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(from));
    return frames;
}

std::vector<Bytes> Framer::flush()
{
    std::vector<Bytes> frames;
    std::size_t from = 0;
    if (!pending_.empty()) {
        cut(from, pending_.size(), frames);
    }
    pending_.clear();
    return frames;
}

}  // namespace scansim
