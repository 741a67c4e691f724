// SPDX-License-Identifier: LGPL-2.1-or-later
// Who has a file or a port open, as far as /proc tells it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace check {

struct Holder {
    int pid = 0;  // 0: not to be told
    std::string program;
    std::string user;

    std::string shown() const;
};

// The processes with an open file that is a target: of the path of its link in /proc, and of what
// it reads. The files of other users are seen by root only.
using IsTarget = std::function<bool(const std::string& link, const std::string& text)>;
std::vector<Holder> holdersOf(const IsTarget& isTarget, const std::string& proc = "/proc");

// Those of a file. The same name may mean another file in a container.
std::vector<Holder> fileHolders(const std::string& path, const std::string& proc = "/proc");

// A line of /proc/net/udp.
struct UdpSocket {
    unsigned port = 0;
    unsigned long inode = 0;
    unsigned user = 0;
};
std::vector<UdpSocket> parseUdpTable(const std::string& text);

// The processes that have the UDP port, in this network. A holder without pid stands for sockets
// whose process cannot be told.
std::vector<Holder> udpHolders(unsigned port, const std::string& proc = "/proc");

std::string userName(unsigned id);

}  // namespace check
