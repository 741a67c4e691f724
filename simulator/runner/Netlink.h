// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Descriptor.h"

namespace scansim {

// Changes the links, addresses and routes of the network namespace in which it was made, also
// after its process has gone to another one. Throws SandboxError when the kernel refuses.
class Netlink {
public:
    Netlink();

    unsigned linkIndex(const std::string& name);
    void setUp(const std::string& link);

    // A link whose other end has been switched on carries nothing before the kernel has noticed.
    void awaitWorking(const std::string& link);

    // A pair of connected links: `name` here and `peer` in the namespace of the descriptor.
    void addVethPair(const std::string& name, const std::string& peer, int peerNamespace);

    void addAddress(const std::string& link, in_addr address, unsigned prefix);

    // Everything not routed otherwise goes out on the link.
    void addDefaultRoute(const std::string& link, in_addr source);

    // Packets to the address are for this machine; those that it sends there come from `source`
    // if that is not 0.
    void addLocalAddress(in_addr address, in_addr source);
    void removeLocalAddress(in_addr address);

private:
    class Request;

    void route(Request request, const std::string& link, in_addr source, const std::string& what);
    bool isWorking(const std::string& link);

    // The kernel's answer, if it gives one besides its consent.
    std::vector<char> send(Request& request, const std::string& what);

    Descriptor socket_;
    std::uint32_t sequence_ = 0;
};

}  // namespace scansim
