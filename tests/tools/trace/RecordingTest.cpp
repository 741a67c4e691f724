// SPDX-License-Identifier: LGPL-2.1-or-later
// Recordings of the network and of USB, made here byte by byte.
#include "Input.h"
#include "Support.h"

#include <gmock/gmock.h>

#include <pcap/dlt.h>

namespace {

using namespace tracetest;
using testing::HasSubstr;
using trace::Bytes;

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

// A pcap file in the making.
class Recording {
public:
    explicit Recording(unsigned linkType)
        : text_(littleEndian(0xA1B2C3D4, 4) + littleEndian(2, 2) + littleEndian(4, 2) +
                littleEndian(0, 8) + littleEndian(1 << 20, 4) + littleEndian(linkType, 4))
    {
    }
    void add(const Bytes& packet)
    {
        ++count_;
        text_ += littleEndian(count_ / 1000, 4) + littleEndian(count_ % 1000 * 1000, 4) +
                 littleEndian(packet.size(), 4) + littleEndian(packet.size(), 4);
        text_.append(packet.begin(), packet.end());
    }
    std::vector<trace::Conversation> read() const
    {
        return trace::readInput(TemporaryFile(text_).path());
    }

private:
    std::string text_;
    unsigned count_ = 0;
};

struct Segment {
    bool isHost = true;
    std::uint32_t sequence = 0;
    std::uint32_t acknowledged = 0;
    std::uint8_t flags = 0x18;
    Bytes payload;
};

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

Bytes tcpPacket(const Segment& segment, bool isVersion6 = false)
{
    const Bytes ports = segment.isHost ? bytes("c0 00 23 8c") : bytes("23 8c c0 00");
    const Bytes header = joined({ports,
                                 bigEndian(segment.sequence, 4),
                                 bigEndian(segment.acknowledged, 4),
                                 {0x50, segment.flags},
                                 bytes("ff ff 00 00 00 00")});
    return ipPacket(6, segment.isHost, joined({header, segment.payload}), isVersion6);
}

const Bytes kUnlock = bytes("1B 53 06 00 00 00 80 00");
const Bytes kUnlocked = bytes("1B 53 06 00 00 00 80 02");

TEST(TraceRecording, LinksOfAllKinds)
{
    const Bytes ethernet = Bytes(12, 2);
    const Bytes ipv4 = bytes("08 00");
    const struct {
        int linkType;
        Bytes front;
        bool isVersion6;
    } links[] = {
        {DLT_EN10MB, joined({ethernet, ipv4}), false},
        {DLT_EN10MB, joined({ethernet, bytes("86 dd")}), true},
        {DLT_EN10MB, joined({ethernet, bytes("81 00 00 05"), ipv4}), false},
        {DLT_EN10MB, joined({ethernet, bytes("88 a8 00 01 81 00 00 05"), ipv4}), false},
        {DLT_NULL, bytes("02 00 00 00"), false},
        {DLT_LOOP, bytes("00 00 00 02"), false},
        {101, {}, false},
        {228, {}, false},
        {DLT_LINUX_SLL, joined({Bytes(14, 0), ipv4}), false},
        {DLT_LINUX_SLL2, joined({ipv4, Bytes(18, 0)}), false},
    };
    for (const auto& link : links) {
        Recording recording(static_cast<unsigned>(link.linkType));
        recording.add(
            joined({link.front, tcpPacket({true, 7, 0, 0x18, kUnlock}, link.isVersion6)}));
        recording.add(joined(
            {link.front, tcpPacket({false, 9, 15, 0x18, joined({frame({}), frame(kUnlocked)})},
                                   link.isVersion6)}));
        const auto conversations = recording.read();
        ASSERT_EQ(conversations.size(), 1U) << link.linkType;
        EXPECT_THAT(printed(conversations[0]),
                    HasSubstr("scanner  unlock: good (128), feeder loaded (2) after 1.000 ms\n"))
            << link.linkType;
    }
}

TEST(TraceRecording, SegmentsOutOfOrderRepeatedAndMissing)
{
    Recording recording(101);
    const Bytes reply = joined({frame({}), frame(kUnlocked)});
    const auto part = [&reply](std::size_t from, std::size_t to) {
        return trace::ByteView(reply).part(from, to - from).copy();
    };
    recording.add(tcpPacket({true, 99, 0, 0x02, {}}));
    recording.add(tcpPacket({false, 499, 100, 0x12, {}}));
    recording.add(tcpPacket({true, 100, 500, 0x18, kUnlock}));
    recording.add(tcpPacket({false, 510, 108, 0x18, part(10, 26)}));
    recording.add(tcpPacket({false, 500, 108, 0x18, part(0, 10)}));
    recording.add(tcpPacket({false, 500, 108, 0x18, part(0, 10)}));
    recording.add(tcpPacket({true, 108, 526, 0x18, kUnlock}));
    // 4 bytes of the next reply are not in the recording.
    recording.add(tcpPacket({false, 530, 116, 0x18, joined({part(13, 26), frame(kUnlocked)})}));
    recording.add(tcpPacket({true, 116, 560, 0x11, {}}));
    const auto conversations = recording.read();
    ASSERT_EQ(conversations.size(), 1U);
    const std::string text = printed(conversations[0]);
    EXPECT_THAT(text, HasSubstr("host connects\n"));
    EXPECT_THAT(text, HasSubstr("4 bytes of the scanner were not recorded\n"));
    EXPECT_THAT(text, HasSubstr("host ends the connection\n"));
    EXPECT_THAT(text, HasSubstr("1 repeated segments, 2 ahead of their turn\n"));
    std::size_t replies = 0;
    for (const auto& transfer : conversations[0].transfers) {
        replies += transfer.bytes == kUnlocked ? 1U : 0U;
    }
    EXPECT_EQ(replies, 2U);
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

TEST(TraceRecording, SearchesAndTheirAnswers)
{
    const std::string question("\14_host-config\4_udp\5local\0\0\41\0\1", 29);
    const auto udp = [](const Bytes& payload) {
        return ipPacket(17, true,
                        joined({bytes("14 e9 14 e9"), bigEndian(8 + payload.size(), 2),
                                bytes("00 00"), payload}));
    };
    Recording recording(101);
    recording.add(udp(joined(
        {bytes("00 00 00 00 00 01 00 00 00 00 00 00"), Bytes(question.begin(), question.end())})));
    recording.add(udp(searchAnswer({"IPADDRESS \"10.0.0.2\"", "MACUAA \"400000000080\"",
                                    "ADAPTERNAME \"Combo\"", "PRINTERVIDPID \"12344020\""})));
    recording.add(udp(searchAnswer({"IPADDRESS \"10.0.0.3\""})));
    const auto conversations = recording.read();
    ASSERT_EQ(conversations.size(), 1U);
    const std::string text = printed(conversations[0]);
    EXPECT_THAT(text, HasSubstr("search for scanners: _host-config._udp.local type 33\n"));
    EXPECT_THAT(text, HasSubstr("answer to a search: model._host-config._udp.local type 16\n"));
    EXPECT_THAT(text, HasSubstr("    ADAPTERNAME \"Combo\"\n"));
    EXPECT_THAT(text, HasSubstr("ODD: a host does not list"));
    EXPECT_EQ(text.find("ODD"), text.rfind("ODD"));
}

Bytes usbEvent(char type, std::uint8_t transferType, std::uint8_t endpoint, int status,
               const Bytes& data, bool isMapped = true)
{
    const std::string head =
        littleEndian(0xABCD, 8) + type + static_cast<char>(transferType) +
        static_cast<char>(endpoint) + '\7' + littleEndian(3, 2) + (transferType == 2 ? '\0' : '-') +
        '\0' + std::string(12, '\0') + littleEndian(static_cast<std::uint32_t>(status), 4) +
        littleEndian(data.size(), 4) + littleEndian(data.size(), 4) +
        std::string("\x80\6\0\3\0\0\xFF\0", 8) + std::string(isMapped ? 16 : 0, '\0');
    return joined({Bytes(head.begin(), head.end()), data});
}

TEST(TraceRecording, UsbInBothFormats)
{
    for (const bool isMapped : {false, true}) {
        Recording recording(isMapped ? DLT_USB_LINUX_MMAPPED : DLT_USB_LINUX);
        recording.add(usbEvent('S', 2, 0x80, -115, {}, isMapped));
        recording.add(usbEvent('S', 3, 2, -115, kUnlock, isMapped));
        recording.add(usbEvent('C', 3, 2, 0, {}, isMapped));
        recording.add(usbEvent('S', 3, 0x81, -115, {}, isMapped));
        recording.add(usbEvent('C', 3, 0x81, -2, {}, isMapped));
        recording.add(usbEvent('C', 3, 0x81, -32, {}, isMapped));
        recording.add(usbEvent('C', 3, 0x81, 0, kUnlocked, isMapped));
        const auto conversations = recording.read();
        ASSERT_EQ(conversations.size(), 1U);
        EXPECT_EQ(conversations[0].name, "USB device 7 on bus 3");
        const std::string text = printed(conversations[0]);
        EXPECT_THAT(text, HasSubstr("control get descriptor 80 06 00 03 00 00 FF 00\n"));
        EXPECT_THAT(text, HasSubstr("ODD: transfer on endpoint 1 in given up by the host\n"));
        EXPECT_THAT(text, HasSubstr("ODD: transfer on endpoint 1 in stalled\n"));
        EXPECT_THAT(text, HasSubstr("unlock: good (128), feeder loaded (2) after 5.000 ms\n"));
    }
}

TEST(TraceRecording, OtherLinksAreRefused)
{
    EXPECT_THROW(Recording(105).read(), std::runtime_error);
    EXPECT_THROW(trace::readInput("/nonexistent"), std::runtime_error);
}

}  // namespace
