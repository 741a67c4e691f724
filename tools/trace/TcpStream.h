// SPDX-License-Identifier: LGPL-2.1-or-later
// One direction of a TCP connection: segments in any order become bytes in theirs.
#pragma once

#include "ByteView.h"

#include <map>
#include <optional>
#include <vector>

namespace trace {

class TcpStream {
public:
    // Bytes that follow those before without a gap, but for the missing ones said here.
    struct Piece {
        std::uint64_t time = 0;
        std::size_t missing = 0;
        Bytes bytes;
    };

    // The first byte has the number that follows `sequence`.
    void begin(std::uint32_t sequence);
    // A segment: bytes that can be handed out are appended to `pieces`.
    void add(std::uint64_t time, std::uint32_t sequence, ByteView bytes,
             std::vector<Piece>& pieces);
    // The peer has all the bytes in front of that number: those that are not here were not
    // recorded, and will not come.
    void acknowledge(std::uint64_t time, std::uint32_t number, std::vector<Piece>& pieces);
    // Nothing more comes: what waits for missing bytes is handed out without them.
    void end(std::vector<Piece>& pieces);

    std::size_t repeated() const { return repeated_; }
    std::size_t outOfOrder() const { return outOfOrder_; }

private:
    struct Segment {
        std::uint64_t time;
        Bytes bytes;
    };

    std::int64_t offsetOf(std::uint32_t sequence) const;
    void handOut(std::uint64_t time, std::vector<Piece>& pieces);
    void skipGap(std::uint64_t time, std::vector<Piece>& pieces);

    std::optional<std::uint32_t> base_;
    std::uint64_t next_ = 0;  // offset of the byte that is due
    std::map<std::uint64_t, Segment> waiting_;
    std::size_t waitingBytes_ = 0;
    std::size_t missing_ = 0;  // in front of the next piece
    std::size_t repeated_ = 0;
    std::size_t outOfOrder_ = 0;
    std::uint64_t last_ = 0;
};

}  // namespace trace
