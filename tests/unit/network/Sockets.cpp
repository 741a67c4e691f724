// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sockets.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

void Descriptor::reset(int fd)
{
    if (fd_ >= 0) {
        close(fd_);
    }
    fd_ = fd;
}

Connection::Connection()
{
    const Descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener.get(), generic, size), 0);
    EXPECT_EQ(listen(listener.get(), 1), 0);
    EXPECT_EQ(getsockname(listener.get(), generic, &size), 0);
    own.reset(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(connect(own.get(), generic, size), 0);
    peer.reset(accept(listener.get(), nullptr, nullptr));
    EXPECT_GE(peer.get(), 0);
}

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

int openDescriptors()
{
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr) {
        count++;
    }
    closedir(folder);
    return count;
}

void sendAll(int fd, const Bytes& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + sent, bytes.size() - sent);
        ASSERT_GT(n, 0);
        sent += static_cast<std::size_t>(n);
    }
}

Bytes receiveAll(int fd, std::size_t size)
{
    Bytes bytes(size);
    std::size_t got = 0;
    pollfd waited = {fd, POLLIN, 0};
    while (got < size && poll(&waited, 1, 2000) > 0) {
        const ssize_t n = recv(fd, bytes.data() + got, size - got, 0);
        if (n <= 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(got);
    return bytes;
}

void resetConnection(Descriptor& fd)
{
    const linger abort = {1, 0};
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
    fd.reset();
}

void playDead(int fd)
{
    sock_filter drop = {BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog program = {1, &drop};
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), 0);
}
