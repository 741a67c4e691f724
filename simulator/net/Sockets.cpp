// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace scansim {

namespace {

constexpr int kOn = 1;

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

Descriptor boundSocket(int type, in_addr address, std::uint16_t port, const std::string& what)
{
    Descriptor result(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr = address;
    name.sin_port = htons(port);
    if (!result.isOpen() ||
        setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn) != 0 ||
        bind(result.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
        fail(what);
    }
    return result;
}

}  // namespace

in_addr parseAddress(const std::string& text)
{
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    return address;
}

Descriptor listenOn(in_addr address, std::uint16_t port)
{
    Descriptor listener = boundSocket(SOCK_STREAM, address, port, "the scanner's port");
    if (listen(listener.get(), SOMAXCONN) != 0) {
        fail("the scanner's port");
    }
    return listener;
}

Descriptor hearBroadcasts(std::uint16_t port)
{
    return boundSocket(SOCK_DGRAM, {htonl(INADDR_BROADCAST)}, port, "the discovery port");
}

bool isReady(const std::vector<pollfd>& descriptors, int fd)
{
    return std::any_of(descriptors.begin(), descriptors.end(), [fd](const pollfd& descriptor) {
        return descriptor.fd == fd && descriptor.revents != 0;
    });
}

}  // namespace scansim
