// SPDX-License-Identifier: LGPL-2.1-or-later
// Cuts what a host sends over a TCP connection into its greeting and commands.
#pragma once

#include "Conversation.h"

namespace trace {

class HostStream {
public:
    // What is complete with these bytes is appended.
    void add(std::uint64_t time, ByteView bytes, std::vector<Transfer>& transfers);
    // Bytes were lost: what has begun will never be complete.
    void breakOff(std::uint64_t time, std::vector<Transfer>& transfers);

private:
    std::size_t takeOne(ByteView bytes, std::vector<Transfer>& transfers) const;
    std::size_t takeUnknown(ByteView bytes, std::vector<Transfer>& transfers) const;

    Bytes pending_;
    std::uint64_t time_ = 0;
};

}  // namespace trace
