// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Packet.h"

#include <arpa/inet.h>
#include <pcap/dlt.h>

namespace trace {

namespace {

constexpr std::uint64_t kIpv4 = 0x0800;
constexpr std::uint64_t kIpv6 = 0x86DD;
constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;

bool isVlan(std::uint64_t etherType)
{
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

// Behind the type field of Ethernet and its likes.
std::optional<ByteView> skipVlans(ByteView bytes, std::size_t typeOffset)
{
    std::size_t at = typeOffset;
    while (isVlan(bytes.big(at, 2))) {
        at += 4;
    }
    const std::uint64_t type = bytes.big(at, 2);
    return type == kIpv4 || type == kIpv6 ? std::optional(bytes.from(at + 2)) : std::nullopt;
}

// "Cooked" packets in their second form have the type first.
std::optional<ByteView> skipCooked(ByteView bytes)
{
    const std::uint64_t type = bytes.big(0, 2);
    return type == kIpv4 || type == kIpv6 ? std::optional(bytes.from(20)) : std::nullopt;
}

std::optional<ByteView> networkLayer(int linkType, ByteView bytes)
{
    switch (linkType) {
    case DLT_EN10MB:
        return skipVlans(bytes, 12);
    case DLT_LINUX_SLL:
        return skipVlans(bytes, 14);
    case DLT_LINUX_SLL2:
        return skipCooked(bytes);
    case DLT_NULL:
    case DLT_LOOP:
        return bytes.from(4);
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
        return bytes;
    default:
        return std::nullopt;
    }
}

std::string address(int family, ByteView bytes)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, bytes.begin(), text, sizeof text);
    return text;
}

struct Datagram {
    Packet packet;
    std::uint8_t protocol = 0;
    ByteView bytes;
};

std::optional<Datagram> readIpv4(ByteView bytes)
{
    const std::size_t headerSize = std::size_t{4} * (bytes[0] & 15U);
    const std::size_t total = bytes.big(2, 2);
    const bool isFragment = (bytes.big(6, 2) & 0x3FFF) != 0;
    if (headerSize < 20 || !bytes.has(0, headerSize) || isFragment) {
        return std::nullopt;
    }
    Datagram result;
    result.packet.source = address(AF_INET, bytes.from(12));
    result.packet.destination = address(AF_INET, bytes.from(16));
    result.protocol = bytes[9];
    // Where the network card cuts the segments the length may be 0.
    const std::size_t size = total == 0 ? bytes.size() : total;
    result.bytes = bytes.first(size).from(headerSize);
    return result;
}

std::optional<Datagram> readIpv6(ByteView bytes)
{
    constexpr std::size_t kHeader = 40;
    if (!bytes.has(0, kHeader)) {
        return std::nullopt;
    }
    Datagram result;
    result.packet.source = address(AF_INET6, bytes.from(8));
    result.packet.destination = address(AF_INET6, bytes.from(24));
    result.protocol = bytes[6];
    result.bytes = bytes.from(kHeader).first(bytes.big(4, 2));
    return result;
}

std::optional<Packet> readTransport(Datagram datagram)
{
    const ByteView bytes = datagram.bytes;
    Packet packet = std::move(datagram.packet);
    packet.isTcp = datagram.protocol == kTcp;
    const std::size_t headerSize = packet.isTcp ? std::size_t{4} * (bytes[12] >> 4U) : 8;
    if ((!packet.isTcp && datagram.protocol != kUdp) || headerSize < 8 ||
        (packet.isTcp && headerSize < 20) || !bytes.has(0, headerSize)) {
        return std::nullopt;
    }
    packet.sourcePort = static_cast<std::uint16_t>(bytes.big(0, 2));
    packet.destinationPort = static_cast<std::uint16_t>(bytes.big(2, 2));
    packet.payload = bytes.from(headerSize);
    if (packet.isTcp) {
        packet.sequence = static_cast<std::uint32_t>(bytes.big(4, 4));
        packet.acknowledged = static_cast<std::uint32_t>(bytes.big(8, 4));
        packet.isAck = (bytes[13] & 16U) != 0;
        packet.isFin = (bytes[13] & 1U) != 0;
        packet.isSyn = (bytes[13] & 2U) != 0;
        packet.isReset = (bytes[13] & 4U) != 0;
    }
    return packet;
}

}  // namespace

bool isKnownLink(int linkType)
{
    return networkLayer(linkType, {}).has_value() || linkType == DLT_EN10MB ||
           linkType == DLT_LINUX_SLL || linkType == DLT_LINUX_SLL2;
}

std::optional<Packet> readPacket(int linkType, ByteView bytes)
{
    const std::optional<ByteView> network = networkLayer(linkType, bytes);
    if (!network) {
        return std::nullopt;
    }
    const int version = (*network)[0] >> 4;
    std::optional<Datagram> datagram = version == 4   ? readIpv4(*network)
                                       : version == 6 ? readIpv6(*network)
                                                      : std::nullopt;
    return datagram ? readTransport(std::move(*datagram)) : std::nullopt;
}

}  // namespace trace
