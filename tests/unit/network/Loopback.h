// SPDX-License-Identifier: LGPL-2.1-or-later
// The network of the tests: the loopback device and nothing else.
#pragma once

// Brings the loopback device up and sends everything there, broadcasts too. Refuses to touch
// a network that has other devices. False, with the reason on stderr, where it fails.
bool bringUpLoopback();

// Takes the route away again, so that broadcasts cannot be sent, as long as one lives.
class NoRoute {
public:
    NoRoute();
    NoRoute(const NoRoute&) = delete;
    NoRoute& operator=(const NoRoute&) = delete;
    ~NoRoute();
};
