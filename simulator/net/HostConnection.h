// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "Bytes.h"
#include "Descriptor.h"
#include "Model.h"

namespace scansim {

// One end of a TCP connection: bytes out in segments of chosen sizes, at chosen times, and several
// ways to end it. Never blocks.
class HostConnection {
public:
    HostConnection(Descriptor socket, const NetworkTraits& traits);

    int fd() const { return socket_.get(); }

    // Queues a frame. With `notBefore` it waits for that time, and what is behind it waits, too.
    void send(const Bytes& frame, std::uint64_t notBefore = 0);

    // Whether so little is queued that more is welcome.
    bool hasRoom() const;

    // Hands the kernel what it takes; false if the host is not there any more.
    bool pump(std::uint64_t now);
    bool wantsToWrite(std::uint64_t now) const { return isFull_ && isDue(now); }
    std::optional<std::uint64_t> nextWake(std::uint64_t now) const;

    // Everything sent has arrived at the host's machine.
    bool isDelivered() const;

    // Appends what the host has sent; false if it has closed its end or is not there any more.
    bool receive(Bytes& bytes);

    void reset();      // tells the host that the connection is void
    void halfClose();  // says good-bye, and still listens
    void forget();     // forgets the connection without a word

private:
    struct Frame {
        std::size_t size;
        std::uint64_t notBefore;
    };

    bool isDue(std::uint64_t now) const;
    std::size_t nextWrite(std::uint64_t now) const;
    void noteSent(std::size_t count);

    Descriptor socket_;
    const NetworkTraits& traits_;
    Bytes bytes_;
    std::size_t sent_ = 0;      // of bytes_
    std::deque<Frame> frames_;  // what is left of them in bytes_
    bool isFull_ = false;       // the kernel takes no more at present
};

}  // namespace scansim
