// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FrameStream.h"

#include "../../src/HBN3.h"

#include <algorithm>

namespace trace {

namespace {

constexpr std::size_t kFrameHeaderSize = HBN3::kHeaderSize;
constexpr std::size_t kLengthOffset = 5;
constexpr std::uint8_t kMagic[] = {'H', 'B', 'N', '3'};
constexpr std::size_t kHostRoom = 80000;
// What claims to be longer is no frame.
constexpr std::size_t kLongestFrame = 1 << 20;

}  // namespace

void FrameStream::add(std::uint64_t time, ByteView bytes, std::vector<Transfer>& transfers)
{
    time_ = time;
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    while (takeFrame(transfers) || skipToFrame(transfers)) {
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(start_));
    start_ = 0;
}

void FrameStream::breakOff(std::uint64_t time, std::vector<Transfer>& transfers)
{
    if (!pending_.empty()) {
        transfers.push_back(Transfer::oddity(
            time, "a frame of which only " + std::to_string(pending_.size()) + " bytes are there"));
        pending_.clear();
    }
}

void FrameStream::drop(std::size_t count)
{
    start_ += count;
}

bool FrameStream::takeFrame(std::vector<Transfer>& transfers)
{
    const ByteView bytes = ByteView(pending_).from(start_);
    const std::size_t size = bytes.big(kLengthOffset, 4);
    if (!bytes.startsWith(ByteView(kMagic, sizeof kMagic)) || size > kLongestFrame ||
        !bytes.has(kFrameHeaderSize, size)) {
        return false;
    }
    if (size + kFrameHeaderSize > kHostRoom) {
        transfers.push_back(Transfer::oddity(time_, "a frame of " + std::to_string(size) +
                                                        " bytes, which is more than a host takes"));
    } else if (size == 1) {
        transfers.push_back(
            Transfer::oddity(time_, "a frame of a single byte, which no host takes"));
    }
    if (size == 0 && !isGreeted_) {
        transfers.push_back(Transfer::remark(time_, "scanner greets the host"));
    } else {
        transfers.push_back(
            Transfer::data(Party::Scanner, time_, bytes.part(kFrameHeaderSize, size).copy()));
    }
    isGreeted_ = true;
    drop(kFrameHeaderSize + size);
    return true;
}

// Drops what cannot be the beginning of a frame; false if there is nothing such.
bool FrameStream::skipToFrame(std::vector<Transfer>& transfers)
{
    const ByteView bytes = ByteView(pending_).from(start_);
    const ByteView magic(kMagic, sizeof kMagic);
    const bool isTooLong =
        bytes.has(0, kFrameHeaderSize) && bytes.big(kLengthOffset, 4) > kLongestFrame;
    if (bytes.empty() || (magic.startsWith(bytes.first(magic.size())) && !isTooLong)) {
        return false;
    }
    const auto* const next =
        std::search(bytes.begin() + 1, bytes.end(), magic.begin(), magic.end());
    std::size_t size = static_cast<std::size_t>(next - bytes.begin());
    if (next == bytes.end()) {
        // The magic may have begun.
        size -= std::min(size - 1, magic.size() - 1);
        while (size < bytes.size() && !magic.startsWith(bytes.from(size))) {
            ++size;
        }
    }
    transfers.push_back(Transfer::oddity(
        time_, std::string(isTooLong ? "wrong length" : "wrong magic") + " of a frame, " +
                   std::to_string(size) + " bytes skipped: " + hex(bytes.first(size), 16)));
    drop(size);
    return true;
}

}  // namespace trace
