// SPDX-License-Identifier: LGPL-2.1-or-later
// Recordings of the network and of USB, made byte by byte.
#pragma once

#include "Conversation.h"

namespace tracetest {

// A pcap file in the making.
class Recording {
public:
    explicit Recording(unsigned linkType);

    // A millisecond after the one before.
    void add(const trace::Bytes& packet);
    const std::string& text() const { return text_; }
    std::vector<trace::Conversation> read() const;

private:
    std::string text_;
    unsigned count_ = 0;
};

struct Segment {
    bool isHost = true;
    std::uint32_t sequence = 0;
    std::uint32_t acknowledged = 0;
    std::uint8_t flags = 0x18;
    trace::Bytes payload;
};
trace::Bytes tcpPacket(const Segment& segment, bool isVersion6 = false);

// To and from the port of searches.
trace::Bytes udpPacket(const trace::Bytes& payload);
trace::Bytes searchQuestion();
trace::Bytes searchAnswer(const std::vector<std::string>& strings);

// Of usbmon; the device is number 7 on bus 3.
trace::Bytes usbEvent(char type, std::uint8_t transferType, std::uint8_t endpoint, int status,
                      const trace::Bytes& data, bool isMapped = true);

}  // namespace tracetest
