// SPDX-License-Identifier: LGPL-2.1-or-later
#include "HostStream.h"

#include "../../src/HBN3.h"
#include "CommandKinds.h"

#include <algorithm>

namespace trace {

namespace {

constexpr std::size_t kGreetingSize = HBN3::kHeaderSize;
constexpr std::uint8_t kGreeting[kGreetingSize] = {'H', 'B', 'N', '3', 0, 0, 0, 0, 2};
constexpr std::size_t kShownBytes = 32;

}  // namespace

void HostStream::add(std::uint64_t time, ByteView bytes, std::vector<Transfer>& transfers)
{
    time_ = time;
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    ByteView left = pending_;
    while (const std::size_t taken = takeOne(left, transfers)) {
        left = left.from(taken);
    }
    pending_.erase(pending_.begin(), pending_.end() - static_cast<long>(left.size()));
}

void HostStream::breakOff(std::uint64_t time, std::vector<Transfer>& transfers)
{
    if (!pending_.empty()) {
        transfers.push_back(Transfer::data(Party::Host, time, std::move(pending_)));
        pending_.clear();
    }
}

// The bytes up to where a command or greeting may begin.
std::size_t HostStream::takeUnknown(ByteView bytes, std::vector<Transfer>& transfers) const
{
    const auto* const next = std::find_if(bytes.begin() + 1, bytes.end(), [](std::uint8_t byte) {
        return byte == kEscape || byte == kNpaMark || byte == kGreeting[0];
    });
    const auto size = static_cast<std::size_t>(next - bytes.begin());
    transfers.push_back(Transfer::oddity(
        time_, "the host sends what begins no command: " + hex(bytes.first(size), kShownBytes)));
    return size;
}

// 0 while there is nothing complete.
std::size_t HostStream::takeOne(ByteView bytes, std::vector<Transfer>& transfers) const
{
    const ByteView greeting(kGreeting, kGreetingSize);
    if (!bytes.empty() && greeting.startsWith(bytes.first(kGreetingSize))) {
        if (bytes.size() < kGreetingSize) {
            return 0;
        }
        transfers.push_back(Transfer::remark(time_, "host greets the scanner (HBN3 tickle)"));
        return kGreetingSize;
    }
    const std::optional<std::size_t> size = sizeOfCommand(bytes);
    if (!size) {
        return 0;
    }
    if (*size == 0) {
        return takeUnknown(bytes, transfers);
    }
    if (bytes.size() < *size) {
        return 0;
    }
    transfers.push_back(Transfer::data(Party::Host, time_, bytes.first(*size).copy()));
    return *size;
}

}  // namespace trace
