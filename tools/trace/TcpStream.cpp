// SPDX-License-Identifier: LGPL-2.1-or-later
#include "TcpStream.h"

#include <algorithm>

namespace trace {

namespace {

// More than any window: what a host waits for so long is missing in the recording only.
constexpr std::size_t kMostWaiting = std::size_t{4} << 20;

}  // namespace

void TcpStream::begin(std::uint32_t sequence)
{
    if (!base_) {
        base_ = sequence + 1;
    }
}

// The number nearest to what is due: 32 bits wrap around in long scans.
std::int64_t TcpStream::offsetOf(std::uint32_t sequence) const
{
    const auto due = static_cast<std::uint32_t>(*base_ + next_);
    return static_cast<std::int64_t>(next_) + static_cast<std::int32_t>(sequence - due);
}

void TcpStream::add(std::uint64_t time, std::uint32_t sequence, ByteView bytes,
                    std::vector<Piece>& pieces)
{
    if (bytes.empty()) {
        return;
    }
    if (!base_) {
        base_ = sequence;
    }
    last_ = std::max(last_, time);
    const std::int64_t offset = offsetOf(sequence);
    const std::int64_t old = static_cast<std::int64_t>(next_) - offset;
    repeated_ += old > 0 ? 1 : 0;
    outOfOrder_ += old < 0 ? 1 : 0;
    const ByteView fresh = bytes.from(static_cast<std::size_t>(std::max<std::int64_t>(old, 0)));
    if (fresh.empty()) {
        return;
    }
    Segment& segment = waiting_[old > 0 ? next_ : static_cast<std::uint64_t>(offset)];
    if (segment.bytes.size() < fresh.size()) {
        waitingBytes_ += fresh.size() - segment.bytes.size();
        segment = {time, fresh.copy()};
    }
    handOut(time, pieces);
    while (waitingBytes_ > kMostWaiting) {
        skipGap(time, pieces);
    }
}

void TcpStream::acknowledge(std::uint64_t time, std::uint32_t number, std::vector<Piece>& pieces)
{
    while (!waiting_.empty() && offsetOf(number) > static_cast<std::int64_t>(next_)) {
        skipGap(time, pieces);
    }
}

void TcpStream::handOut(std::uint64_t time, std::vector<Piece>& pieces)
{
    while (!waiting_.empty() && waiting_.begin()->first <= next_) {
        const auto first = waiting_.begin();
        const ByteView bytes =
            ByteView(first->second.bytes).from(static_cast<std::size_t>(next_ - first->first));
        waitingBytes_ -= first->second.bytes.size();
        if (!bytes.empty()) {
            pieces.push_back({time, missing_, bytes.copy()});
            missing_ = 0;
            next_ += bytes.size();
        }
        waiting_.erase(first);
    }
}

// To the first bytes that wait.
void TcpStream::skipGap(std::uint64_t time, std::vector<Piece>& pieces)
{
    missing_ += static_cast<std::size_t>(waiting_.begin()->first - next_);
    next_ = waiting_.begin()->first;
    handOut(time, pieces);
}

void TcpStream::end(std::vector<Piece>& pieces)
{
    while (!waiting_.empty()) {
        skipGap(last_, pieces);
    }
}

}  // namespace trace
