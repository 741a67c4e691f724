// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <netinet/in.h>

#include <optional>

#include "Netlink.h"

namespace scansim {

// What the command sees of a network.
enum class NetworkKind {
    Loopback,  // itself; a broadcast fails at once
    Scanners,  // network scanners, too, all in one network namespace
    Link       // the scanners at the other end of a link, in a namespace of their own
};

// Networks apart from the machine's own, for the network scanners and the command that is to find
// them. This process ends up where the scanners are.
class PrivateNetwork {
public:
    // Leaves the network namespace that this process is in. Throws SandboxError.
    explicit PrivateNetwork(NetworkKind kind);

    // A scanner's address answers, or is as good as switched off.
    void show(in_addr scanner);
    void hide(in_addr scanner);

    // Takes a process of the command to its side; false if that failed.
    bool enterCommandSide() const;

    // What connects the scanners to the command.
    const char* scannersInterface() const;

    static in_addr commandAddress();

private:
    void connectNamespaces();

    NetworkKind kind_;
    Descriptor commandNamespace_;
    std::optional<Netlink> netlink_;
};

}  // namespace scansim
