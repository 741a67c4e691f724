// SPDX-License-Identifier: LGPL-2.1-or-later
// Connections for the tests.
#pragma once

#include "Samples.h"

#include <chrono>
#include <cstddef>

// A descriptor, closed at the end.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int get() const { return fd_; }
    void reset(int fd = -1);

private:
    int fd_;
};

// Two connected TCP sockets, the library's and that of its peer.
struct Connection {
    Connection();
    Descriptor own;
    Descriptor peer;
};

bool isOpen(int fd);
// How many this process has.
int openDescriptors();
void sendAll(int fd, const Bytes& bytes);
// The bytes that arrive, up to size of them; fewer when none comes for two seconds.
Bytes receiveAll(int fd, std::size_t size);
// Ends the connection with a reset.
void resetConnection(Descriptor& fd);
// From now on, nothing that is sent to fd arrives, and nothing is answered.
void playDead(int fd);

class Stopwatch {
public:
    std::chrono::milliseconds elapsed() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start = Clock::now();
};
