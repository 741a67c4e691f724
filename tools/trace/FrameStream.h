// SPDX-License-Identifier: LGPL-2.1-or-later
// Cuts what a scanner sends over a TCP connection into the payloads of its frames.
#pragma once

#include "Conversation.h"

namespace trace {

class FrameStream {
public:
    // What is complete with these bytes is appended.
    void add(std::uint64_t time, ByteView bytes, std::vector<Transfer>& transfers);
    // Bytes were lost, or no more come: the frame that has begun will never be complete.
    void breakOff(std::uint64_t time, std::vector<Transfer>& transfers);

private:
    bool takeFrame(std::vector<Transfer>& transfers);
    bool skipToFrame(std::vector<Transfer>& transfers);
    void drop(std::size_t count);

    Bytes pending_;
    std::size_t start_ = 0;  // of what is left of pending_
    std::uint64_t time_ = 0;
    bool isGreeted_ = false;
};

}  // namespace trace
