// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Netlink.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "SandboxError.h"

namespace scansim {

namespace {

constexpr int kLongestWaitMs = 5000;

[[noreturn]] void fail(const std::string& what, int error)
{
    throw SandboxError("cannot " + what + ": " + std::strerror(error));
}

}  // namespace

// One message to the kernel: a header, a structure of its kind, attributes.
class Netlink::Request {
public:
    Request(std::uint16_t type, std::uint16_t flags) : bytes_(sizeof(nlmsghdr))
    {
        head_.nlmsg_type = type;
        head_.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    }

    template <class Structure>
    Request& add(const Structure& structure)
    {
        append(&structure, sizeof structure);
        return *this;
    }

    Request& attribute(std::uint16_t type, const void* data, std::size_t size)
    {
        const std::size_t start = begin(type);
        append(data, size);
        end(start);
        return *this;
    }

    template <class Value>
    Request& attribute(std::uint16_t type, const Value& value)
    {
        return attribute(type, &value, sizeof value);
    }

    Request& attribute(std::uint16_t type, const std::string& text)
    {
        return attribute(type, text.c_str(), text.size() + 1);
    }

    // An attribute made of what is added until its end.
    std::size_t begin(std::uint16_t type)
    {
        const std::size_t start = bytes_.size();
        rtattr head{};
        head.rta_type = type;
        append(&head, sizeof head);
        return start;
    }

    void end(std::size_t start)
    {
        const auto length = static_cast<std::uint16_t>(bytes_.size() - start);
        std::memcpy(bytes_.data() + start, &length, sizeof length);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }

    const std::vector<char>& finish(std::uint32_t sequence)
    {
        head_.nlmsg_seq = sequence;
        head_.nlmsg_len = static_cast<std::uint32_t>(bytes_.size());
        std::memcpy(bytes_.data(), &head_, sizeof head_);
        return bytes_;
    }

private:
    void append(const void* data, std::size_t size)
    {
        const char* first = static_cast<const char*>(data);
        bytes_.insert(bytes_.end(), first, first + size);
    }

    nlmsghdr head_{};
    std::vector<char> bytes_;
};

Netlink::Netlink() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE))
{
    if (!socket_.isOpen()) {
        fail("talk to the kernel about networks", errno);
    }
}

std::vector<char> Netlink::send(Request& request, const std::string& what)
{
    const std::vector<char>& bytes = request.finish(++sequence_);
    if (::send(socket_.get(), bytes.data(), bytes.size(), 0) < 0) {
        fail(what, errno);
    }
    std::vector<char> told;
    for (;;) {
        std::vector<char> message(16384);
        const ssize_t count = recv(socket_.get(), message.data(), message.size(), 0);
        if (count < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(nlmsgerr)))) {
            fail(what, count < 0 ? errno : EPROTO);
        }
        message.resize(static_cast<std::size_t>(count));
        nlmsghdr head;
        std::memcpy(&head, message.data(), sizeof head);
        if (head.nlmsg_seq != sequence_) {
            continue;
        }
        if (head.nlmsg_type != NLMSG_ERROR) {
            told = std::move(message);
            continue;
        }
        nlmsgerr answer;
        std::memcpy(&answer, message.data() + NLMSG_HDRLEN, sizeof answer);
        if (answer.error != 0) {
            fail(what, -answer.error);
        }
        return told;
    }
}

// Asked of the netlink socket, whose namespace it stays in.
unsigned Netlink::linkIndex(const std::string& name)
{
    ifreq request{};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    if (ioctl(socket_.get(), SIOCGIFINDEX, &request) != 0) {
        fail("find the network link " + name, errno);
    }
    return static_cast<unsigned>(request.ifr_ifindex);
}

void Netlink::setUp(const std::string& link)
{
    ifinfomsg info{};
    info.ifi_index = static_cast<int>(linkIndex(link));
    info.ifi_flags = IFF_UP;
    info.ifi_change = IFF_UP;
    Request request(RTM_NEWLINK, 0);
    send(request.add(info), "switch on the network link " + link);
}

bool Netlink::isWorking(const std::string& link)
{
    ifinfomsg info{};
    info.ifi_index = static_cast<int>(linkIndex(link));
    Request request(RTM_GETLINK, 0);
    const std::vector<char> told = send(request.add(info), "ask about the network link " + link);
    std::size_t at = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof info);
    while (at + sizeof(rtattr) < told.size()) {
        rtattr attribute;
        std::memcpy(&attribute, told.data() + at, sizeof attribute);
        if (attribute.rta_type == IFLA_OPERSTATE) {
            return told[at + sizeof attribute] == IF_OPER_UP;
        }
        at += std::max<std::size_t>(RTA_ALIGN(attribute.rta_len), sizeof attribute);
    }
    return false;
}

void Netlink::awaitWorking(const std::string& link)
{
    for (int i = 0; i < kLongestWaitMs; ++i) {
        if (isWorking(link)) {
            return;
        }
        usleep(1000);
    }
    fail("bring the network link " + link + " to life", ETIMEDOUT);
}

void Netlink::addVethPair(const std::string& name, const std::string& peer, int peerNamespace)
{
    Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.add(ifinfomsg{}).attribute(IFLA_IFNAME, name);
    const std::size_t link = request.begin(IFLA_LINKINFO);
    request.attribute(IFLA_INFO_KIND, std::string("veth"));
    const std::size_t data = request.begin(IFLA_INFO_DATA);
    const std::size_t other = request.begin(VETH_INFO_PEER);
    request.add(ifinfomsg{})
        .attribute(IFLA_IFNAME, peer)
        .attribute(IFLA_NET_NS_FD, static_cast<std::uint32_t>(peerNamespace));
    request.end(other);
    request.end(data);
    request.end(link);
    send(request, "connect two network namespaces (a veth pair)");
}

void Netlink::addAddress(const std::string& link, in_addr address, unsigned prefix)
{
    ifaddrmsg message{};
    message.ifa_family = AF_INET;
    message.ifa_prefixlen = static_cast<std::uint8_t>(prefix);
    message.ifa_index = linkIndex(link);
    Request request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL);
    request.add(message).attribute(IFA_LOCAL, address).attribute(IFA_ADDRESS, address);
    send(request, "give an address to the network link " + link);
}

void Netlink::route(Request request, const std::string& link, in_addr source,
                    const std::string& what)
{
    if (source.s_addr != 0) {
        request.attribute(RTA_PREFSRC, source);
    }
    send(request.attribute(RTA_OIF, linkIndex(link)), what);
}

void Netlink::addDefaultRoute(const std::string& link, in_addr source)
{
    rtmsg message{};
    message.rtm_family = AF_INET;
    message.rtm_table = RT_TABLE_MAIN;
    message.rtm_protocol = RTPROT_STATIC;
    message.rtm_scope = RT_SCOPE_LINK;
    message.rtm_type = RTN_UNICAST;
    Request request(RTM_NEWROUTE, NLM_F_CREATE);
    route(request.add(message), link, source, "route everything to the network link " + link);
}

namespace {

rtmsg localRoute()
{
    rtmsg message{};
    message.rtm_family = AF_INET;
    message.rtm_dst_len = 32;
    message.rtm_table = RT_TABLE_LOCAL;
    message.rtm_protocol = RTPROT_STATIC;
    message.rtm_scope = RT_SCOPE_HOST;
    message.rtm_type = RTN_LOCAL;
    return message;
}

}  // namespace

void Netlink::addLocalAddress(in_addr address, in_addr source)
{
    Request request(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL);
    route(request.add(localRoute()).attribute(RTA_DST, address), "lo", source,
          "give a scanner its address");
}

void Netlink::removeLocalAddress(in_addr address)
{
    Request request(RTM_DELROUTE, 0);
    route(request.add(localRoute()).attribute(RTA_DST, address), "lo", in_addr{},
          "take a scanner's address away");
}

}  // namespace scansim
