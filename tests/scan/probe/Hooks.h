// SPDX-License-Identifier: LGPL-2.1-or-later
// What the process asks of the kernel and of the C library, seen and timed from outside of the
// backend: this program's own ioctl, recv, clock_gettime, ... come before those of every library.
#pragma once

#include <string>

namespace hooks {

// ---- transfers ----
// Each call becomes a letter of the trace: R for the reads of the transport (USB requests,
// receives), X, U and W for the cancel command, the unlock command and other writes, C for a
// connect, w for the first of the calls that wait for it.

struct Transfers {
    static void start();
    static void stop();
    static const std::string& trace();

    // Runs inside of the call that becomes that letter of the trace (from 0), before the kernel
    // sees it; then no more. alsoLater: inside of every later one, too.
    static void actAt(int place, void (*action)(), bool alsoLater = false);
    // Runs inside of the call that waits for the same transfer for that many times.
    static void actWhenStuck(int waits, void (*action)());
    // Where the action ran first; -1: not yet.
    static int actedAt();
};

// ---- what a signal handler must not do ----

// Counts what the calling thread calls while one is alive: memory, locks, the log.
class Unsafe {
public:
    Unsafe();
    Unsafe(const Unsafe&) = delete;
    Unsafe& operator=(const Unsafe&) = delete;
    ~Unsafe();
    static int count();
    static const char* firstName();
};
// Also called by the interposed allocators.
void noteUnsafe(const char* name);

// ---- time ----

// From now on the clocks of this process run that many times as fast.
void setClockSpeed(int times);
// Seconds by the process's own clock.
double now();

}  // namespace hooks
