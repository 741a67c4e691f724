// SPDX-License-Identifier: LGPL-2.1-or-later
// How far a long run is.
#pragma once

#include <chrono>
#include <cstdio>

namespace frontend {

class Progress {
public:
    // A line on standard error every few seconds.
    Progress(const char* unit, long total) : unit_(unit), total_(total) {}

    double seconds() const { return std::chrono::duration<double>(Clock::now() - began_).count(); }

    void reached(long count)
    {
        if (Clock::now() - shown_ >= std::chrono::seconds(10)) {
            shown_ = Clock::now();
            std::fprintf(stderr, "  %ld of %ld %s after %.0f s\n", count, total_, unit_, seconds());
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    const char* unit_;
    long total_;
    Clock::time_point began_ = Clock::now();
    Clock::time_point shown_ = began_;
};

}  // namespace frontend
