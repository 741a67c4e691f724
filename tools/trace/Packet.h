// SPDX-License-Identifier: LGPL-2.1-or-later
// TCP segments and UDP datagrams in packets of several kinds of links.
#pragma once

#include "ByteView.h"

#include <optional>
#include <string>

namespace trace {

struct Packet {
    std::string source;       // IP address
    std::string destination;  // likewise
    std::uint16_t sourcePort = 0;
    std::uint16_t destinationPort = 0;
    bool isTcp = false;
    ByteView payload;

    // TCP.
    std::uint32_t sequence = 0;
    std::uint32_t acknowledged = 0;
    bool isAck = false;
    bool isSyn = false;
    bool isFin = false;
    bool isReset = false;
};

// Whether packets of a link type (a DLT_ number) can be read.
bool isKnownLink(int linkType);

// Nothing if it is neither TCP nor UDP, cut off before its payload, or a fragment of a packet.
std::optional<Packet> readPacket(int linkType, ByteView bytes);

}  // namespace trace
