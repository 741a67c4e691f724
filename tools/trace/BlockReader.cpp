// SPDX-License-Identifier: LGPL-2.1-or-later
#include "BlockReader.h"

#include <algorithm>

namespace trace {

namespace {

constexpr std::uint8_t kStart[] = {kEscape, kScanClass, kImageCode};

}  // namespace

bool BlockReader::mayBeHeader(std::uint8_t next) const
{
    return header_.size() >= sizeof kStart || next == kStart[header_.size()];
}

// Adds to the header that has begun; returns how many of the bytes belong to it.
std::size_t BlockReader::takeHeader(ByteView bytes)
{
    std::size_t taken = 0;
    while (taken < bytes.size() && header_.size() < version_->blockHeaderSize &&
           mayBeHeader(bytes[taken])) {
        header_.push_back(bytes[taken++]);
    }
    return taken;
}

void BlockReader::takeImage(std::size_t from, std::size_t to, std::vector<Range>& ranges)
{
    imageBytes_ += to - from;
    if (from < to) {
        ranges.push_back({from, to});
    }
}

std::vector<BlockReader::Range> BlockReader::add(ByteView bytes, std::size_t known)
{
    std::vector<Range> ranges;
    std::size_t at = 0;
    while (at < bytes.size()) {
        if (pending_ == 0 && at < known) {
            at += takeHeader(bytes.first(known).from(at));
            if (header_.size() == version_->blockHeaderSize) {
                const std::size_t length = ByteView(header_).little(4, 2);
                pending_ = length - std::min(length, version_->blockLengthSurplus);
                ++blocks_;
                header_.clear();
                continue;
            }
            if (at == known && known == bytes.size()) {
                break;
            }
            // No header after all: the host takes all that is there for image.
            const std::size_t first = at - std::min(at, header_.size());
            strayBytes_ += known == bytes.size() ? bytes.size() - first : 0;
            takeImage(first, bytes.size(), ranges);
            header_.clear();
            break;
        }
        const std::size_t end =
            pending_ == 0 ? bytes.size() : std::min(bytes.size(), at + pending_);
        takeImage(at, end, ranges);
        pending_ -= std::min(pending_, end - at);
        at = end;
    }
    return ranges;
}

}  // namespace trace
