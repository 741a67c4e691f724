// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FakeScanner.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr int kOn = 1;

}  // namespace

FakeScanner::FakeScanner() : listener(socket(AF_INET, SOCK_STREAM, 0))
{
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(9100);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener.get(), 5), 0);
}

FakeScanner::~FakeScanner()
{
    if (greeting_.valid()) {
        greeting_.wait();
    }
}

void FakeScanner::greet(const Bytes& answer)
{
    greeting_ = std::async(std::launch::async, [this, answer] {
        pollfd waited = {listener.get(), POLLIN, 0};
        if (poll(&waited, 1, 5000) < 1) {
            return Bytes();
        }
        peer.reset(accept(listener.get(), nullptr, nullptr));
        setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
        const Bytes came = receiveAll(peer.get(), 9);
        send(answer);
        return came;
    });
}

Bytes FakeScanner::greeting()
{
    return greeting_.get();
}

bool FakeScanner::isEnded() const
{
    unsigned char byte = 0;
    return recv(peer.get(), &byte, 1, MSG_PEEK) == 0;
}
