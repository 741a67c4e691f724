// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "Discovery.h"
#include "Journal.h"
#include "Sockets.h"

namespace scansim {

// Answers those who search for scanners, in the name of one of them.
class Responder {
public:
    // Both have to outlive it. Throws std::runtime_error.
    Responder(const Model& model, Journal& journal);

    void addTo(std::vector<pollfd>& descriptors) const;
    void handle(const std::vector<pollfd>& descriptors, std::uint64_t now);
    std::optional<std::uint64_t> nextWake(std::uint64_t now) const;

private:
    struct Answer {
        Bytes bytes;
        sockaddr_in to;
    };

    void serve(std::uint64_t now);
    void schedule(const sockaddr_in& to, std::uint64_t now);
    void flood(std::uint64_t now);
    void send(const Answer& answer) const;

    const Model& model_;
    Journal& journal_;
    Descriptor socket_;
    std::multimap<std::uint64_t, Answer> answers_;  // by the time at which they are due
    std::uint64_t floodUntil_ = 0;
    sockaddr_in flooded_{};
    std::uint32_t floodCount_ = 0;
};

}  // namespace scansim
