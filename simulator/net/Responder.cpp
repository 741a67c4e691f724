// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Responder.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace scansim {

namespace {

// More at once would not fit the searcher's socket, which has to get a turn in between.
constexpr std::uint64_t kAnswersPerMs = 4;

}  // namespace

Responder::Responder(const Model& model, Journal& journal)
    : model_(model), journal_(journal), socket_(hearBroadcasts(kDiscoveryPort))
{
}

void Responder::addTo(std::vector<pollfd>& descriptors) const
{
    descriptors.push_back({socket_.get(), POLLIN, 0});
}

void Responder::handle(const std::vector<pollfd>& descriptors, std::uint64_t now)
{
    if (isReady(descriptors, socket_.get())) {
        serve(now);
    }
    while (!answers_.empty() && answers_.begin()->first <= now) {
        send(answers_.begin()->second);
        answers_.erase(answers_.begin());
    }
    if (now < floodUntil_) {
        flood(now);
    }
}

void Responder::serve(std::uint64_t now)
{
    std::uint8_t buffer[2048];
    sockaddr_in from{};
    for (;;) {
        socklen_t size = sizeof from;
        const ssize_t count = recvfrom(socket_.get(), buffer, sizeof buffer, 0,
                                       reinterpret_cast<sockaddr*>(&from), &size);
        if (count < 0) {
            return;
        }
        const Bytes datagram(buffer, buffer + count);
        const Query query = recogniseQuery(datagram);
        if (query == Query::None) {
            continue;
        }
        if (query == Query::Wrong) {
            journal_.complain("a search in wrong words: " + hex(buffer, datagram.size()));
        }
        schedule(from, now);
    }
}

void Responder::schedule(const sockaddr_in& to, std::uint64_t now)
{
    const NetworkTraits& traits = model_.network;
    journal_.trace(std::string("a search from ") + inet_ntoa(to.sin_addr));
    std::uint64_t count = 0;
    const auto add = [&](Bytes bytes, std::uint64_t time) {
        answers_.emplace(time + count++ / kAnswersPerMs, Answer{std::move(bytes), to});
    };
    for (std::uint32_t i = 0; i < traits.garbageAnswers; ++i) {
        add(makeGarbageAnswer(i), now);
    }
    for (std::uint32_t i = 0; i < traits.foreignAnswers; ++i) {
        add(makeForeignAnswer(i), now);
    }
    for (std::uint32_t i = 0; i < traits.answers; ++i) {
        add(makeAnswer(model_), now + traits.answerDelayMs);
    }
    flooded_ = to;
    floodUntil_ = now + traits.floodMs;
}

void Responder::flood(std::uint64_t now)
{
    for (std::uint64_t i = 0; i < kAnswersPerMs; ++i) {
        answers_.emplace(now + 1, Answer{makeForeignAnswer(floodCount_++), flooded_});
    }
}

// From the scanner's own address, which is not that of the socket. It fails while the scanner has
// vanished, as it should.
void Responder::send(const Answer& answer) const
{
    sockaddr_in to = answer.to;
    iovec data{const_cast<std::uint8_t*>(answer.bytes.data()), answer.bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    in_pktinfo source{};
    source.ipi_spec_dst = parseAddress(model_.network.ip);
    cmsghdr* head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = IPPROTO_IP;
    head->cmsg_type = IP_PKTINFO;
    head->cmsg_len = CMSG_LEN(sizeof source);
    std::memcpy(CMSG_DATA(head), &source, sizeof source);
    sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

std::optional<std::uint64_t> Responder::nextWake(std::uint64_t now) const
{
    if (now < floodUntil_) {
        return now + 1;
    }
    return answers_.empty() ? std::nullopt : std::make_optional(answers_.begin()->first);
}

}  // namespace scansim
