// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Responder.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

Responder::Responder(const std::vector<Bytes>& answers, bool isShared)
    : answers_(answers), fd_(socket(AF_INET, SOCK_DGRAM, 0))
{
    const int on = isShared ? 1 : 0;
    setsockopt(fd_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const int info = 1;
    setsockopt(fd_.get(), IPPROTO_IP, IP_PKTINFO, &info, sizeof info);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(5353);
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    thread_ = std::thread([this] { run(); });
}

Responder::~Responder()
{
    queries();
}

std::vector<Bytes> Responder::queries()
{
    isOver_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    return queries_;
}

void Responder::run()
{
    while (!isOver_) {
        pollfd waited = {fd_.get(), POLLIN, 0};
        if (poll(&waited, 1, 20) < 1) {
            continue;
        }
        Bytes query(2000);
        sockaddr_in sender = {};
        char control[200];
        iovec data = {query.data(), query.size()};
        msghdr message = {};
        message.msg_name = &sender;
        message.msg_namelen = sizeof sender;
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        query.resize(
            static_cast<std::size_t>(std::max<ssize_t>(recvmsg(fd_.get(), &message, 0), 0)));
        queries_.push_back(query);
        for (const cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
             part = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(part))) {
            if (part->cmsg_type == IP_PKTINFO) {
                in_pktinfo info;
                memcpy(&info, CMSG_DATA(part), sizeof info);
                char to[INET_ADDRSTRLEN];
                inet_ntop(AF_INET, &info.ipi_addr, to, sizeof to);
                route = std::string(to) + " from " + std::to_string(ntohs(sender.sin_port));
            }
        }
        do {
            for (const Bytes& answer : answers_) {
                sendto(fd_.get(), answer.data(), answer.size(), 0,
                       reinterpret_cast<sockaddr*>(&sender), sizeof sender);
                ++sent;
            }
        } while (isFlood && !isOver_);
    }
}
