// SPDX-License-Identifier: LGPL-2.1-or-later
// Scanners that answer the discovery.
#pragma once

#include "Sockets.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

// Listens on the discovery port, and sends answers to whoever sends a query there.
class Responder {
public:
    explicit Responder(const std::vector<Bytes>& answers, bool isShared = true);
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder();

    // The queries, once they have stopped coming.
    std::vector<Bytes> queries();
    // Where the last one was sent to and from.
    std::string route;
    // Go on sending the answers until the end.
    std::atomic<bool> isFlood{false};
    std::atomic<long> sent{0};

private:
    void run();

    std::vector<Bytes> answers_;
    Descriptor fd_;
    std::atomic<bool> isOver_{false};
    std::vector<Bytes> queries_;
    std::thread thread_;
};
