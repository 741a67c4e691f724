// SPDX-License-Identifier: LGPL-2.1-or-later
// The scanner's end of the connection, at 127.0.0.1.
#pragma once

#include "Frames.h"
#include "Sockets.h"

#include <future>

// Listens on the scanner's port as long as it lives. What it sends waits in the socket, so
// that a test can send first and let the library read then.
class FakeScanner {
public:
    FakeScanner();
    FakeScanner(const FakeScanner&) = delete;
    FakeScanner& operator=(const FakeScanner&) = delete;
    ~FakeScanner();

    // Starts to wait for a connection and its greeting, which is answered with answer.
    void greet(const Bytes& answer = frameHeader(0));
    // Waits until that is done; the greeting that came.
    Bytes greeting();

    void send(const Bytes& bytes) const { sendAll(peer.get(), bytes); }
    Bytes received(std::size_t size) const { return receiveAll(peer.get(), size); }
    // True when the library has ended the connection.
    bool isEnded() const;

    Descriptor listener;
    Descriptor peer;

private:
    std::future<Bytes> greeting_;
};
