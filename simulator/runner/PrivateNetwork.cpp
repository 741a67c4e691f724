// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PrivateNetwork.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>

#include <cerrno>
#include <cstring>

#include "SandboxError.h"

namespace scansim {

namespace {

constexpr const char* kLoopback = "lo";
constexpr const char* kCommandLink = "eth0";
constexpr const char* kScannerLink = "scanners0";
constexpr const char* kCommandAddress = "10.83.0.1";
constexpr const char* kScannerSideAddress = "10.83.0.2";

in_addr address(const char* text)
{
    in_addr result{};
    inet_pton(AF_INET, text, &result);
    return result;
}

void unshareNetwork()
{
    if (unshare(CLONE_NEWNET) != 0) {
        throw SandboxError(
            std::string("no network namespace (") + std::strerror(errno) +
            "): they have to be allowed (kernel with CONFIG_NET_NS, "
            "sysctl user.max_net_namespaces above 0); in a container, add CAP_SYS_ADMIN");
    }
}

}  // namespace

PrivateNetwork::PrivateNetwork(NetworkKind kind) : kind_(kind)
{
    unshareNetwork();
    netlink_.emplace();
    netlink_->setUp(kLoopback);
    if (kind == NetworkKind::Scanners) {
        netlink_->addAddress(kLoopback, commandAddress(), 32);
        netlink_->addDefaultRoute(kLoopback, commandAddress());
    } else if (kind == NetworkKind::Link) {
        connectNamespaces();
    }
}

// The namespace of the moment becomes the command's, and this process goes to a new one.
void PrivateNetwork::connectNamespaces()
{
    Netlink commandSide = std::move(*netlink_);
    commandNamespace_ = Descriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    unshareNetwork();
    netlink_.emplace();
    netlink_->setUp(kLoopback);
    netlink_->addVethPair(kScannerLink, kCommandLink, commandNamespace_.get());
    commandSide.addAddress(kCommandLink, commandAddress(), 24);
    commandSide.setUp(kCommandLink);
    netlink_->addAddress(kScannerLink, address(kScannerSideAddress), 24);
    netlink_->setUp(kScannerLink);
    commandSide.awaitWorking(kCommandLink);
    netlink_->awaitWorking(kScannerLink);
    commandSide.addDefaultRoute(kCommandLink, commandAddress());
    netlink_->addDefaultRoute(kScannerLink, address(kScannerSideAddress));
}

const char* PrivateNetwork::scannersInterface() const
{
    return kind_ == NetworkKind::Link ? kScannerLink : kLoopback;
}

in_addr PrivateNetwork::commandAddress()
{
    return address(kCommandAddress);
}

// On one machine the command's end of a connection would have the scanner's own address, were it
// not told another.
void PrivateNetwork::show(in_addr scanner)
{
    netlink_->addLocalAddress(scanner,
                              kind_ == NetworkKind::Scanners ? commandAddress() : in_addr{});
}

void PrivateNetwork::hide(in_addr scanner)
{
    netlink_->removeLocalAddress(scanner);
}

bool PrivateNetwork::enterCommandSide() const
{
    return !commandNamespace_.isOpen() || setns(commandNamespace_.get(), CLONE_NEWNET) == 0;
}

}  // namespace scansim
