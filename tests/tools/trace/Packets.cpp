// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Packets.h"

#include "Input.h"
#include "Support.h"

namespace tracetest {

using trace::Bytes;

namespace {

std::string littleEndian(std::uint64_t value, int size)
{
    std::string result;
    for (int i = 0; i < size; ++i) {
        result += static_cast<char>(value >> (8 * i));
    }
    return result;
}

Bytes bigEndian(std::uint64_t value, int size)
{
    Bytes result;
    for (int i = size - 1; i >= 0; --i) {
        result.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
    return result;
}

Bytes ipPacket(std::uint8_t protocol, bool isHost, const Bytes& payload, bool isVersion6 = false)
{
    const Bytes host = isVersion6 ? Bytes(16, 1) : bytes("0a 00 00 01");
    const Bytes device = isVersion6 ? Bytes(16, 2) : bytes("0a 00 00 02");
    const Bytes addresses = isHost ? joined({host, device}) : joined({device, host});
    const Bytes head =
        isVersion6 ? joined({bytes("60 00 00 00"), bigEndian(payload.size(), 2), {protocol, 64}})
                   : joined({bytes("45 00"),
                             bigEndian(20 + payload.size(), 2),
                             bytes("00 00 40 00 40"),
                             {protocol},
                             bytes("00 00")});
    return joined({head, addresses, payload});
}

}  // namespace

Recording::Recording(unsigned linkType)
    : text_(littleEndian(0xA1B2C3D4, 4) + littleEndian(2, 2) + littleEndian(4, 2) +
            littleEndian(0, 8) + littleEndian(1 << 20, 4) + littleEndian(linkType, 4))
{
}

void Recording::add(const Bytes& packet)
{
    ++count_;
    text_ += littleEndian(count_ / 1000, 4) + littleEndian(count_ % 1000 * 1000, 4) +
             littleEndian(packet.size(), 4) + littleEndian(packet.size(), 4);
    text_.append(packet.begin(), packet.end());
}

std::vector<trace::Conversation> Recording::read() const
{
    return trace::readInput(TemporaryFile(text_).path());
}

Bytes tcpPacket(const Segment& segment, bool isVersion6)
{
    const Bytes ports = segment.isHost ? bytes("c0 00 23 8c") : bytes("23 8c c0 00");
    const Bytes header = joined({ports,
                                 bigEndian(segment.sequence, 4),
                                 bigEndian(segment.acknowledged, 4),
                                 {0x50, segment.flags},
                                 bytes("ff ff 00 00 00 00")});
    return ipPacket(6, segment.isHost, joined({header, segment.payload}), isVersion6);
}

Bytes udpPacket(const Bytes& payload)
{
    return ipPacket(
        17, true,
        joined({bytes("14 e9 14 e9"), bigEndian(8 + payload.size(), 2), bytes("00 00"), payload}));
}

Bytes searchQuestion()
{
    const std::string name("\14_host-config\4_udp\5local\0\0\41\0\1", 29);
    return joined({bytes("00 00 00 00 00 01 00 00 00 00 00 00"), Bytes(name.begin(), name.end())});
}

Bytes searchAnswer(const std::vector<std::string>& strings)
{
    Bytes data;
    for (const std::string& text : strings) {
        data.push_back(static_cast<std::uint8_t>(text.size()));
        data.insert(data.end(), text.begin(), text.end());
    }
    const std::string name("\5model\14_host-config\4_udp\5local\0", 31);
    return joined({bytes("00 00 84 00 00 00 00 01 00 00 00 00"), Bytes(name.begin(), name.end()),
                   bytes("00 10 00 01 00 00 00 78"), bigEndian(data.size(), 2), data});
}

Bytes usbEvent(char type, std::uint8_t transferType, std::uint8_t endpoint, int status,
               const Bytes& data, bool isMapped)
{
    const std::string head =
        littleEndian(0xABCD, 8) + type + static_cast<char>(transferType) +
        static_cast<char>(endpoint) + '\7' + littleEndian(3, 2) + (transferType == 2 ? '\0' : '-') +
        '\0' + std::string(12, '\0') + littleEndian(static_cast<std::uint32_t>(status), 4) +
        littleEndian(data.size(), 4) + littleEndian(data.size(), 4) +
        std::string("\x80\6\0\3\0\0\xFF\0", 8) + std::string(isMapped ? 16 : 0, '\0');
    return joined({Bytes(head.begin(), head.end()), data});
}

}  // namespace tracetest
