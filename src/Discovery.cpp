// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Discovery.h"

#include "DiscoveryReply.h"
#include "SaneConfReader.h"
#include "SocketWrapper.h"

#include <algorithm>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kPort = 5353;
constexpr int kLongestAnswer = 1024;
// Nobody has so many scanners, but anybody can make up answers.
constexpr std::size_t kMostScanners = 1000;

// One question: the service records (33) of the Internet class (1).
constexpr char kQuery[] =
    "\0\0\0\0\0\1\0\0\0\0\0\0"
    "\x0c_host-config"
    "\x04_udp"
    "\x05local"
    "\0"
    "\0\x21\0\1";
constexpr std::size_t kQuerySize = sizeof kQuery - 1;

sockaddr_in addressOf(in_addr_t host)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = htonl(host);
    return address;
}

}  // namespace

Discovery::~Discovery()
{
    if (iSock >= 0) {
        close(iSock);
    }
}

bool Discovery::openPort()
{
    const int on = 1;
    iSock = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    setsockopt(iSock, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    // A responder of the system may listen there as well.
    setsockopt(iSock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in any = addressOf(INADDR_ANY);
    return bind(iSock, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0;
}

bool Discovery::sendQuery() const
{
    const sockaddr_in everybody = addressOf(INADDR_BROADCAST);
    return sendto(iSock, kQuery, kQuerySize, MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&everybody), sizeof everybody) >= 1;
}

int Discovery::waitForAnswer(Clock::time_point deadline) const
{
    using std::chrono::microseconds;
    const auto left = std::chrono::ceil<microseconds>(deadline - Clock::now());
    const long limit = static_cast<long>(std::max(left, microseconds(0)).count());
    return SocketWrapper::wait(iSock, POLLIN, limit / 1000000, limit % 1000000, nullptr);
}

void Discovery::receiveAnswer(SaneConfReader* conf, std::vector<NValueObjects>* found) const
{
    unsigned char answer[kLongestAnswer];
    sockaddr_in sender = {};
    socklen_t senderSize = sizeof sender;
    SL_TRACE("before recvfrom(). ");
    const ssize_t size = recvfrom(iSock, answer, sizeof answer, 0,
                                  reinterpret_cast<sockaddr*>(&sender), &senderSize);
    SL_TRACE("after recvfrom(). ret: %d", static_cast<int>(size));
    if (size < 1) {
        return;
    }
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
    SL_TRACE("data is from: %s", text);
    NValueObjects scanner;
    if (DiscoveryReply::parsePacket(answer, static_cast<int>(size), &scanner) == 0) {
        return;
    }
    SL_TRACE("parsing udp packets");
    const bool isConfigured =
        conf != nullptr &&
        conf->isFound(static_cast<int>(scanner.getVid()), static_cast<int>(scanner.getPid())) != 0;
    if (isConfigured && scanner.isComplete() && found->size() < kMostScanners) {
        found->push_back(scanner);
    }
}

void Discovery::collect(SaneConfReader* conf, std::vector<NValueObjects>* found) const
{
    const Clock::time_point deadline = Clock::now() + time_;
    int ready = waitForAnswer(deadline);
    while (ready >= 1 && Clock::now() < deadline) {
        receiveAnswer(conf, found);
        ready = waitForAnswer(deadline);
        const auto left = std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now());
        SL_TRACE("ret is %d and timeout is %d", ready, static_cast<int>(left.count()));
    }
}

int Discovery::search(SaneConfReader* conf, std::vector<NValueObjects>* found)
{
    SL_START();
    if (!openPort()) {
        SL_TRACE("[ERROR] broadcast errorr");
        SL_RETURN(NO_PORT);
    }
    if (!sendQuery()) {
        SL_TRACE("[ERROR] sendto return an error");
        SL_RETURN(NOT_SENT);
    }
    collect(conf, found);
    SL_RETURN(SEARCHED);
}
