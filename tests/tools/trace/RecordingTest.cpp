// SPDX-License-Identifier: LGPL-2.1-or-later
// Recordings of the network and of USB, and what is read of them.
#include "Input.h"
#include "Packets.h"
#include "Support.h"

#include <gmock/gmock.h>

#include <pcap/dlt.h>

namespace {

using namespace tracetest;
using testing::HasSubstr;
using trace::Bytes;

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

TEST(TraceRecording, SearchesAndTheirAnswers)
{
    Recording recording(101);
    recording.add(udpPacket(searchQuestion()));
    recording.add(udpPacket(searchAnswer({"IPADDRESS \"10.0.0.2\"", "MACUAA \"400000000080\"",
                                          "ADAPTERNAME \"Combo\"", "PRINTERVIDPID \"12344020\""})));
    recording.add(udpPacket(searchAnswer({"IPADDRESS \"10.0.0.3\""})));
    const auto conversations = recording.read();
    ASSERT_EQ(conversations.size(), 1U);
    const std::string text = printed(conversations[0]);
    EXPECT_THAT(text, HasSubstr("search for scanners: _host-config._udp.local type 33\n"));
    EXPECT_THAT(text, HasSubstr("answer to a search: model._host-config._udp.local type 16\n"));
    EXPECT_THAT(text, HasSubstr("    ADAPTERNAME \"Combo\"\n"));
    EXPECT_THAT(text, HasSubstr("ODD: a host does not list"));
    EXPECT_EQ(text.find("ODD"), text.rfind("ODD"));
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

TEST(TraceRecording, ATinyFileCannotFillTheMemory)
{
    Recording recording(DLT_USB_LINUX_MMAPPED);
    Bytes event = usbEvent('C', 3, 0x81, 0, {});
    event[34] = 0x10;  // a transfer of a MiB
    for (int i = 0; i < 1100; ++i) {
        recording.add(event);
    }
    EXPECT_THROW(recording.read(), std::runtime_error);
}

TEST(TraceRecording, OtherLinksAreRefused)
{
    EXPECT_THROW(Recording(105).read(), std::runtime_error);
    EXPECT_THROW(trace::readInput("/nonexistent"), std::runtime_error);
}

}  // namespace
