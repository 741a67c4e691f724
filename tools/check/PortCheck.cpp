// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PortCheck.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace check {

namespace {

constexpr int kPort = 5353;

sockaddr_in addressOf(in_addr_t host)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = htonl(host);
    return address;
}

// A socket with the options of the backend's search.
class SearchSocket {
public:
    SearchSocket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(fd_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    SearchSocket(const SearchSocket&) = delete;
    SearchSocket& operator=(const SearchSocket&) = delete;
    ~SearchSocket()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    bool bindPort() const
    {
        const sockaddr_in any = addressOf(INADDR_ANY);
        return bind(fd_, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0;
    }

    // Connecting a datagram socket looks for the route, and sends nothing.
    bool findRoute() const
    {
        const sockaddr_in everybody = addressOf(INADDR_BROADCAST);
        return connect(fd_, reinterpret_cast<const sockaddr*>(&everybody), sizeof everybody) == 0;
    }

private:
    int fd_;
};

bool hasOtherAddress()
{
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) {
        return false;
    }
    bool isFound = false;
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        const bool isIp = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET;
        isFound = isFound ||
                  (isIp && (one->ifa_flags & IFF_UP) != 0 && (one->ifa_flags & IFF_LOOPBACK) == 0);
    }
    freeifaddrs(all);
    return isFound;
}

std::string shown(const std::vector<Holder>& holders)
{
    std::string text;
    for (const Holder& holder : holders) {
        text += (text.empty() ? "" : ", ") + holder.shown();
    }
    return text;
}

bool isAnyUnknown(const std::vector<Holder>& holders)
{
    bool isUnknown = false;
    for (const Holder& holder : holders) {
        isUnknown = isUnknown || holder.pid == 0;
    }
    return isUnknown;
}

void judgeTaken(const PortState& state, Severity severity, Voice& voice)
{
    const std::string who =
        state.holders.empty() ? "" : " It is held by " + shown(state.holders) + ".";
    const std::string advice =
        isAnyUnknown(state.holders)
            ? "Find out who has the port: sudo scanlib-check --no-usb"
            : "Stop the program that has UDP port 5353, or tell it to share the port.";
    voice.say(severity, 0, "port-taken",
              "UDP port 5353, where scanners on the network answer, cannot be opened (" +
                  state.whyNot + ")." + who +
                  " No scanner on the network is found; those on USB are.",
              advice);
}

void judgeRoute(const PortState& state, bool isWanted, Voice& voice)
{
    Severity severity = state.hasAddress ? Severity::Warning : Severity::Note;
    severity = isWanted ? Severity::Error : severity;
    voice.say(severity, 0, "no-route",
              state.hasAddress
                  ? "there is no way for a broadcast to leave this computer (no default route), so "
                    "no scanner on the network is found; those on USB are."
                  : "this computer is not connected to a network, so no scanner on the network is "
                    "found; those on USB are.",
              severity == Severity::Note ? ""
                                         : "Connect the computer to the network of the scanner "
                                           "(a default route is needed: ip route).");
}

}  // namespace

PortState PortState::ofThisComputer()
{
    PortState state;
    const SearchSocket socket;
    // Before the bind, which makes this program a holder itself.
    state.holders = udpHolders(kPort);
    state.canBind = socket.bindPort();
    state.whyNot = state.canBind ? "" : strerror(errno);
    state.hasRoute = SearchSocket().findRoute();
    state.hasAddress = hasOtherAddress();
    return state;
}

void judgePort(const PortState& state, bool isWanted, Findings& findings)
{
    Voice voice(findings, "network");
    if (!state.canBind) {
        judgeTaken(state, isWanted ? Severity::Error : Severity::Warning, voice);
    } else if (!state.holders.empty()) {
        voice.note(0, "port-shared",
                   "UDP port 5353, where scanners on the network answer, is shared with " +
                       shown(state.holders) + ", which is all right.");
    }
    if (!state.hasRoute) {
        judgeRoute(state, isWanted, voice);
    }
}

}  // namespace check
