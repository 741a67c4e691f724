// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RecordingSeeds.h"

#include "LogText.h"
#include "Packets.h"
#include "Support.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <pcap/dlt.h>

namespace {

using namespace tracetest;
using trace::Bytes;
using Seeds = std::map<std::string, std::string>;

constexpr std::size_t kMost = 4000;
constexpr std::size_t kFileHeader = 24;
constexpr std::size_t kPacketHeader = 16;

const Bytes kUnlock = bytes("1B 53 06 00 00 00 80 00");
const Bytes kUnlocked = bytes("1B 53 06 00 00 00 80 02");
const Bytes kStarted = bytes("1B 53 01 00 00 00 80 02");
const Bytes kLocked = bytes("1B 53 05 00 00 00 80 02");
const Bytes kAskProperties = bytes("1B 53 03 00 00 00 80 00");
const Bytes kBlock = bytes("1B 53 02 00 09 00 80 02 00 01 02 03 04 05 06 07 08");
const Bytes kEnd = bytes("1B 53 02 00 01 00 80 02 01");
const Bytes kMarker = bytes(
    "1B 53 02 00 17 00 80 00 09 00 01  7D 02 00 00  B1 00 00 00"
    "01 00 00 00  02 00 00 00  03 00 00 00");

std::uint32_t littleEndian(const std::string& text, std::size_t at)
{
    return static_cast<std::uint32_t>(
        trace::ByteView(Bytes(text.begin(), text.end())).little(at, 4));
}

std::string number(std::uint32_t value)
{
    std::string result;
    for (int shift = 0; shift < 32; shift += 8) {
        result += static_cast<char>(value >> shift);
    }
    return result;
}

// The packets of a file, with their headers.
std::vector<std::string> packetsOf(const std::string& file)
{
    std::vector<std::string> result;
    for (std::size_t at = kFileHeader; at + kPacketHeader <= file.size();) {
        const std::size_t size = kPacketHeader + littleEndian(file, at + 8);
        result.push_back(file.substr(at, size));
        at += size;
    }
    return result;
}

// Whole packets or lines.
std::string cut(const std::string& file, bool isText)
{
    if (isText) {
        return file.substr(0, file.rfind('\n', kMost) + 1);
    }
    std::string result = file.substr(0, kFileHeader);
    for (const std::string& packet : packetsOf(file)) {
        if (result.size() + packet.size() > kMost) {
            break;
        }
        result += packet;
    }
    return result;
}

std::string sample(const std::string& name)
{
    std::ifstream file(std::string(TRACE_SAMPLES "/") + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void addSamples(Seeds& seeds)
{
    for (const std::string name : {"network-402.pcap", "usb-401.pcap"}) {
        seeds[name] = cut(sample(name), false);
    }
    seeds["usb-401.capture"] = cut(sample("usb-401.capture"), true);
    const std::string log = sample("usb-326.log");
    seeds["usb-326.log"] =
        cut(log.substr(log.rfind('\n', log.find("writing data on USB")) + 1), true);
}

// Both sides of a session, in packets behind `front`.
std::string session(unsigned linkType, const Bytes& front, bool isVersion6)
{
    Recording recording(linkType);
    const auto add = [&](const Segment& segment) {
        recording.add(joined({front, tcpPacket(segment, isVersion6)}));
    };
    add({true, 91, 0, 0x18, bytes("48 42 4e 33 00 00 00 00 02")});
    add({true, 100, 0, 0x18, inNpaFrame(scanCommand(0x05, 402))});
    add({false, 9, 163, 0x18, joined({frame({}), frame(kLocked)})});
    return recording.text();
}

void addLinks(Seeds& seeds)
{
    const Bytes ethernet = Bytes(12, 2);
    const Bytes ipv4 = bytes("08 00");
    seeds["ethernet"] = session(DLT_EN10MB, joined({ethernet, ipv4}), false);
    seeds["vlan"] =
        session(DLT_EN10MB, joined({ethernet, bytes("88 a8 00 01 81 00 00 05"), ipv4}), false);
    seeds["version6"] = session(DLT_EN10MB, joined({ethernet, bytes("86 dd")}), true);
    seeds["loopback"] = session(DLT_NULL, bytes("02 00 00 00"), false);
    seeds["raw"] = session(101, {}, false);
    seeds["cooked"] = session(DLT_LINUX_SLL, joined({Bytes(14, 0), ipv4}), false);
    seeds["cooked2"] = session(DLT_LINUX_SLL2, joined({ipv4, Bytes(18, 0)}), false);
    seeds["unknown"] = session(105, {}, false);
    // Room for a packet in the reader as long as the longest one.
    std::string tight = session(101, {}, false);
    std::size_t longest = 0;
    for (const std::string& packet : packetsOf(tight)) {
        longest = std::max(longest, packet.size() - kPacketHeader);
    }
    tight.replace(16, 4, number(static_cast<std::uint32_t>(longest)));
    seeds["tight"] = tight;
    std::string exact = session(101, {}, false);
    exact.replace(0, 4, number(0xA1B23C4D));
    seeds["nanoseconds"] = exact;
}

// The packets of a file as the blocks of a pcapng file.
std::string inBlocks(const std::string& file)
{
    const auto block = [](std::uint32_t type, std::string body) {
        body.resize((body.size() + 3) / 4 * 4);
        const std::string size = number(static_cast<std::uint32_t>(body.size() + 12));
        return number(type) + size + body + size;
    };
    std::string result =
        block(0x0A0D0D0A, number(0x1A2B3C4D) + number(1) + std::string(8, '\xFF')) +
        block(1, number(littleEndian(file, 20)) + number(1 << 18));
    std::uint32_t time = 0;
    for (const std::string& packet : packetsOf(file)) {
        result += block(6, number(0) + number(5) + number(time += 1000) + packet.substr(8));
    }
    return result;
}

void addStreams(Seeds& seeds)
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
    recording.add(tcpPacket({false, 530, 116, 0x18, joined({part(13, 26), frame(kUnlocked)})}));
    recording.add(tcpPacket({true, 116, 560, 0x11, {}}));
    recording.add(tcpPacket({true, 300, 0, 0x02, {}}));
    recording.add(tcpPacket({true, 301, 0, 0x18, joined({bytes("01 02 03"), kUnlock})}));
    recording.add(tcpPacket({false, 900, 312, 0x18, joined({bytes("db db"), frame({1})})}));
    recording.add(tcpPacket({false, 912, 312, 0x04, {}}));
    seeds["streams"] = recording.text();

    Recording page(101);
    page.add(tcpPacket({true, 100, 0, 0x18, scanCommand(0x01, 326)}));
    page.add(tcpPacket({false, 500, 0, 0x18, joined({frame({}), frame(kStarted)})}));
    page.add(tcpPacket({false, 526, 0, 0x18, joined({frame(kMarker), frame(kBlock)})}));
    page.add(tcpPacket({false, 592, 0, 0x18, joined({frame(kBlock), frame(kEnd)})}));
    seeds["page"] = page.text();

    Recording searches(101);
    searches.add(udpPacket(searchQuestion()));
    searches.add(udpPacket(searchAnswer({"IPADDRESS \"10.0.0.2\"", "MACUAA \"400000000080\"",
                                         "ADAPTERNAME \"Combo\"", "PRINTERVIDPID \"12344020\""})));
    searches.add(udpPacket(searchAnswer({"IPADDRESS \"10.0.0.3\"", ""})));
    seeds["searches"] = searches.text();
    seeds["searches.pcapng"] = inBlocks(searches.text());
}

void addUsb(Seeds& seeds)
{
    for (const bool isMapped : {false, true}) {
        Recording recording(isMapped ? DLT_USB_LINUX_MMAPPED : DLT_USB_LINUX);
        const auto add = [&](char type, std::uint8_t endpoint, int status, const Bytes& data) {
            recording.add(usbEvent(type, 3, endpoint, status, data, isMapped));
        };
        recording.add(usbEvent('S', 2, 0x80, -115, {}, isMapped));
        recording.add(usbEvent('C', 2, 0x80, -32, {}, isMapped));
        add('S', 2, -115, scanCommand(0x01, 326));
        add('C', 0x81, 0, kStarted);
        add('C', 0x81, 0, kMarker);
        add('C', 0x81, 0, joined({kBlock, kBlock}));
        add('C', 0x81, 0, kEnd);
        add('C', 0x81, -2, {});
        add('E', 2, -19, kUnlock);
        add('S', 2, -115, kAskProperties);
        add('C', 0x81, 0, properties());
        const std::string name = isMapped ? "usb-mapped" : "usb";
        seeds[name] = recording.text();
        seeds[name + ".pcapng"] = inBlocks(recording.text());
    }
}

// A packet as programs record it that keep only the first bytes, so many or so many more.
std::string cutAnywhere(unsigned linkType, const Bytes& packet, std::size_t step)
{
    Recording recording(linkType);
    for (std::size_t size = 0; size <= packet.size(); size += step) {
        recording.add(trace::ByteView(packet).first(size).copy());
    }
    return recording.text();
}

void addCut(Seeds& seeds)
{
    seeds["cut"] = cutAnywhere(101, tcpPacket({true, 7, 0, 0x18, kUnlock}), 1);
    seeds["cut-version6"] = cutAnywhere(101, tcpPacket({true, 7, 0, 0x18, kUnlock}, true), 1);
    seeds["cut-search"] = cutAnywhere(101, udpPacket(searchAnswer({"IPADDRESS \"10.0.0.2\""})), 2);
    seeds["cut-usb"] = cutAnywhere(DLT_USB_LINUX, usbEvent('S', 3, 2, 0, kUnlock, false), 1);
    seeds["cut-usb-mapped"] =
        cutAnywhere(DLT_USB_LINUX_MMAPPED, usbEvent('S', 3, 2, 0, kUnlock, true), 2);
}

void addLogs(Seeds& seeds)
{
    const std::string prefixes[] = {
        "", "Nov 22 07:10:54.1 h s[12]: ", "2026-11-22T07:10:54+01:00 h s[12]: ", "[ 1234.5] h s: ",
        "1763795454.1 h s[1]: "};
    int kind = 0;
    for (const std::string& prefix : prefixes) {
        seeds["log" + std::to_string(kind++)] = usbCommand(prefix, 12, kUnlock, kUnlocked, 9);
    }
    seeds["log-properties"] = usbCommand("", 5, kAskProperties, properties(), properties().size());
    const std::string head = marked("", 5, "traceHeader", " -> image data acquired") +
                             marked("", 5, "traceHeader", " 1B 53  2  0 E8  3 80  2  0  0") +
                             marked("", 5, "traceHeader", "  1  2  3  4  5  6  7  8  9  A");
    seeds["log-page"] = networkDump(5, "sendOnce", "data to be sent", scanCommand(0x01, 326)) +
                        usbRead(31, 9, pageMarker(5)) + usbRead(1008, 0, head) + usbRead(9, 1, "");
    seeds["log-network"] =
        marked("", 9, "openDevice", "::: METHOD START :::") +
        networkDump(9, "sendOnce", "data to be sent", bytes("48 42 4e 33 00 00 00 00 02")) +
        networkDump(9, "sendOnce", "data to be sent", inNpaFrame(scanCommand(0x05, 402))) +
        networkDump(9, "readInto", "header received", bytes("48 42 4e 33 00 00 00 00 08")) +
        networkDump(9, "readReply", "global buffer contents:", frame(kUnlocked)) +
        marked("", 9, "Read", "[ERROR] no more");
}

void addCaptures(Seeds& seeds)
{
    seeds["capture"] =
        "# scanlib capture 1\n"
        "transport network\n"
        "> 0 1b53040000008000\n"
        "< 5 1b53040000008002\n"
        "! 6 a remark\n"
        "> 9 1b53060000008000\n"
        "< 12 1b53060000008002\n"
        "< 12\n"
        "< 15 07*100 ff?20\r\n";
    // A byte more than a transfer may have.
    seeds["capture-too-long"] = "# scanlib capture 1\n< 0 07*1048576 07\n";
}

}  // namespace

Seeds recordingSeeds()
{
    Seeds seeds;
    addSamples(seeds);
    addLinks(seeds);
    addStreams(seeds);
    addUsb(seeds);
    addCut(seeds);
    addLogs(seeds);
    addCaptures(seeds);
    return seeds;
}
