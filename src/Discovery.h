// SPDX-License-Identifier: LGPL-2.1-or-later
// The search for scanners on the local network.
#pragma once

#include "CLogger.h"
#include "NValueObjects.h"

#include <chrono>
#include <vector>

class SaneConfReader;

// Broadcasts a query of multicast DNS and collects what comes back until the time is over,
// however much that is.
class Discovery : public CLogger {
public:
    explicit Discovery(std::chrono::milliseconds time) : time_(time) {}
    Discovery(const Discovery&) = delete;
    Discovery& operator=(const Discovery&) = delete;
    ~Discovery();

    enum Result {
        SEARCHED = 0,
        NO_PORT = 1,
        NOT_SENT = 99,
    };

    // Appends the answers of configured scanners to found, a thousand at most.
    int search(SaneConfReader* conf, std::vector<NValueObjects>* found);

private:
    using Clock = std::chrono::steady_clock;

    bool openPort();
    bool sendQuery() const;
    void collect(SaneConfReader* conf, std::vector<NValueObjects>* found) const;
    int waitForAnswer(Clock::time_point deadline) const;
    void receiveAnswer(SaneConfReader* conf, std::vector<NValueObjects>* found) const;

    std::chrono::milliseconds time_;
    int iSock = -1;
};
