// SPDX-License-Identifier: LGPL-2.1-or-later
// Tells a running transfer that it is to stop.
#pragma once

#include <atomic>
#include <chrono>

// Owned by the engine, watched by the transport. request() may be called from a
// signal handler or another thread while a transfer runs; it only sets a flag.
//
// While the remains of a cancelled job are drained, the flag does not count: a time
// limit does, so that a device which never stops sending, or never answers, is given
// up after a while.
class CancelToken {
public:
    using Clock = std::chrono::steady_clock;

    void request() { bRequested = true; }
    bool isRequested() const { return bRequested; }
    // Takes the request back; true if there was one.
    bool consume() { return bRequested.exchange(false); }

    bool isDraining() const { return bDraining; }

    // True when a transport is to give up waiting for more.
    bool shouldStop() const { return bDraining ? Clock::now() >= deadline : isRequested(); }

    // While one of these lives, the time limit counts and the flag does not.
    class Draining {
    public:
        Draining(CancelToken& token, Clock::duration limit)
            : token_(token), wasDraining_(token.bDraining), outerDeadline_(token.deadline)
        {
            token_.bDraining = true;
            token_.deadline = Clock::now() + limit;
        }
        Draining(const Draining&) = delete;
        Draining& operator=(const Draining&) = delete;
        ~Draining()
        {
            token_.bDraining = wasDraining_;
            token_.deadline = outerDeadline_;
        }

    private:
        CancelToken& token_;
        bool wasDraining_;
        Clock::time_point outerDeadline_;
    };

private:
    std::atomic<bool> bRequested{false};
    bool bDraining = false;
    Clock::time_point deadline;
};
