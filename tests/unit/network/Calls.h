// SPDX-License-Identifier: LGPL-2.1-or-later
// Calls of the C library that tests make fail.
#pragma once

#include <functional>

// While one is alive, send returns a result of its own and sends nothing.
class SendResult {
public:
    explicit SendResult(long result);
    SendResult(const SendResult&) = delete;
    SendResult& operator=(const SendResult&) = delete;
    ~SendResult();
};

// While one is alive, there is no socket to be had.
class NoSockets {
public:
    NoSockets();
    NoSockets(const NoSockets&) = delete;
    NoSockets& operator=(const NoSockets&) = delete;
    ~NoSockets();
};

// While one is alive, usleep does what it says instead of sleeping.
class DuringSleep {
public:
    explicit DuringSleep(std::function<void()> action);
    DuringSleep(const DuringSleep&) = delete;
    DuringSleep& operator=(const DuringSleep&) = delete;
    ~DuringSleep();
};
