// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LogReader.h"

#include "LogLine.h"
#include "LogText.h"
#include "Support.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace tracetest;
using testing::HasSubstr;
using testing::Not;
using trace::Bytes;
using trace::Conversation;

const Bytes kUnlock = bytes("1B 53 06 00 00 00 80 00");
const Bytes kUnlocked = bytes("1B 53 06 00 00 00 80 02");

std::vector<Conversation> read(const std::string& text)
{
    std::istringstream in(text);
    return trace::readLog(in);
}

const char* const kPrefixes[] = {
    "",
    "Nov 22 07:10:54 host scanimage: ",
    "Nov 22 07:10:54 host scanimage[123]: ",
    "Nov 22 07:10:54.123456 host scanimage[123]: ",
    "2026-11-22T07:10:54.123456+01:00 host scanimage[123]: ",
    "2026-11-22T07:10:54+0100 host scanimage[123]: ",
    "[ 1234.567890] host scanimage[123]: ",
    "1763795454.123456 host scanimage[123]: ",
};

TEST(TraceLog, CommandsAndRepliesInEveryFormat)
{
    for (const std::string prefix : kPrefixes) {
        const auto conversations =
            read(usbCommand(prefix, 123, scanCommand(0x05, 402), bytes("1B 53 05 00 00 00 80 00")) +
                 usbCommand(prefix, 123, kUnlock, kUnlocked));
        ASSERT_EQ(conversations.size(), 1U) << prefix;
        EXPECT_EQ(conversations[0].name, "Process 123, thread -77");
        EXPECT_EQ(conversations[0].hasTimes, !prefix.empty());
        ASSERT_EQ(conversations[0].transfers.size(), 4U) << prefix;
        EXPECT_EQ(conversations[0].transfers[0].bytes, scanCommand(0x05, 402));
        EXPECT_EQ(conversations[0].transfers[2].bytes, kUnlock);
        EXPECT_EQ(conversations[0].transfers[3].bytes, kUnlocked);
    }
}

TEST(TraceLog, TimesAreThoseOfTheLines)
{
    const auto micro = [](const std::string& line) { return *trace::readLogLine(line).time; };
    EXPECT_EQ(micro("Nov 22 07:10:55 h x: ") - micro("Nov 22 07:10:54 h x: "), 1000000U);
    EXPECT_EQ(micro("Dec  1 00:00:00 h x: ") - micro("Nov 30 23:59:59 h x: "), 1000000U);
    EXPECT_EQ(micro("Mar  1 00:00:00 h x: ") - micro("Feb 28 23:59:59 h x: "), 1000000U);
    EXPECT_EQ(micro("2028-03-01T00:00:00 h x: ") - micro("2028-02-29T23:59:59 h x: "), 1000000U);
    EXPECT_EQ(micro("2027-01-01 00:00:00 h x: ") - micro("2026-12-31 23:59:59 h x: "), 1000000U);
    EXPECT_EQ(micro("2026-11-22T07:10:55.5+01:00 h") - micro("2026-11-22T07:10:54.25+01:00 h"),
              1250000U);
    EXPECT_EQ(micro("[   12.000001] h x[1]: "), 12000001U);
    EXPECT_FALSE(trace::readLogLine("[P:1 T:2] src/x.cpp       : 1    Read    -- x").time);
}

// A message of two lines, or what a journal says of itself.
TEST(TraceLog, TimesSurviveAForeignLine)
{
    const std::string prefix = kPrefixes[3];
    for (const std::string foreign : {"\n", "-- Boot 1f2e --\n", "    second half\n"}) {
        const auto conversations =
            read(usbCommand(prefix, 123, scanCommand(0x05, 402), bytes("1B 53 05 00 00 00 80 00")) +
                 foreign + usbCommand(prefix, 123, kUnlock, kUnlocked));
        ASSERT_EQ(conversations.size(), 1U);
        EXPECT_TRUE(conversations[0].hasTimes) << foreign;
        EXPECT_EQ(conversations[0].transfers.size(), 4U) << foreign;
    }
}

TEST(TraceLog, ProcessesAreToldApart)
{
    const std::string first =
        networkDump(1, "sendOnce", "data to be sent", kUnlock, "Nov 22 07:10:54 h a[1]: ");
    const std::string second = networkDump(2, "sendOnce", "data to be sent", scanCommand(0x05, 326),
                                           "Nov 22 07:10:54 h b[2]: ");
    std::istringstream a(first), b(second);
    std::string mixed, line;
    for (bool more = true; more;) {
        more = false;
        for (auto* in : {&a, &b}) {
            if (std::getline(*in, line)) {
                mixed += line + "\n";
                more = true;
            }
        }
    }
    const auto conversations = read(mixed);
    ASSERT_EQ(conversations.size(), 2U);
    ASSERT_EQ(conversations[0].transfers.size(), 1U);
    ASSERT_EQ(conversations[1].transfers.size(), 1U);
    EXPECT_EQ(conversations[0].transfers[0].bytes, kUnlock);
    EXPECT_EQ(conversations[1].transfers[0].bytes, scanCommand(0x05, 326));
}

TEST(TraceLog, NetworkDumps)
{
    const auto conversations =
        read(networkDump(9, "sendOnce", "data to be sent", bytes("48 42 4e 33 00 00 00 00 02")) +
             networkDump(9, "sendOnce", "data to be sent", inNpaFrame(scanCommand(0x05, 402))) +
             networkDump(9, "readInto", "header received", bytes("48 42 4e 33 00 00 00 00 08")) +
             networkDump(9, "readReply", "global buffer contents:", frame(kUnlocked)));
    ASSERT_EQ(conversations.size(), 1U);
    const auto& transfers = conversations[0].transfers;
    ASSERT_EQ(transfers.size(), 3U);
    EXPECT_EQ(conversations[0].transport, trace::Transport::Network);
    EXPECT_EQ(transfers[1].bytes, inNpaFrame(scanCommand(0x05, 402)));
    EXPECT_EQ(transfers[2].bytes, kUnlocked);
}

TEST(TraceLog, ADumpThatLacksBytesIsFlagged)
{
    std::string text = networkDump(9, "sendOnce", "data to be sent", kUnlock);
    text.erase(text.find("80 00"), 5);
    const auto conversations = read(text);
    ASSERT_EQ(conversations.size(), 1U);
    EXPECT_THAT(printed(conversations[0]), HasSubstr("ODD: a dump lacks 2 bytes\n"));
}

TEST(TraceLog, ATinyFileCannotFillTheMemory)
{
    std::string text;
    for (int i = 0; i < 1100; ++i) {
        text += usbRead(1 << 20, 0, "");
    }
    EXPECT_THROW(read(text), std::runtime_error);
}

TEST(TraceLog, RecordsAndSizesOfTheImage)
{
    const std::string head = marked("", 5, "traceHeader", " -> image data acquired") +
                             marked("", 5, "traceHeader", " -> <<begin of header dump>>") +
                             marked("", 5, "traceHeader", " 1B 53  2  0 E8  3 80  2  0  0") +
                             marked("", 5, "traceHeader", "  1  2  3  4  5  6  7  8  9  A") +
                             marked("", 5, "traceHeader", " -> <<end of header dump>>");
    const auto conversations =
        read(usbCommand("", 5, scanCommand(0x05, 326), bytes("1B 53 05 00 00 00 80 00")) +
             usbCommand("", 5, scanCommand(0x01, 326), bytes("1B 53 01 00 00 00 80 00")) +
             usbRead(31, 9, pageMarker(5)) + usbRead(1008, 0, head) + usbRead(9, 1, ""));
    ASSERT_EQ(conversations.size(), 1U);
    const auto& transfers = conversations[0].transfers;
    ASSERT_EQ(transfers.size(), 7U);
    EXPECT_EQ(transfers[4].bytes, bytes("1B 53 02 00 17 00 80 00 09 00 01  7D 02 00 00  B1 00 00 00"
                                        "01 00 00 00  02 00 00 00  03 00 00 00"));
    EXPECT_EQ(transfers[5].bytes.size(), 1008U);
    EXPECT_EQ(transfers[5].known, 20U);
    EXPECT_THAT(printed(conversations[0]), HasSubstr("image: 999 bytes in 1 block"));
    EXPECT_THAT(printed(conversations[0]), HasSubstr("988 bytes of it not recorded\n"));
    EXPECT_THAT(printed(conversations[0]), HasSubstr("record: end of the page (1)\n"));
}

// The host does not log length, status and feeder of a record.
TEST(TraceLog, WhatIsNotLoggedOfARecordIsNotShown)
{
    const auto conversations = read(
        usbCommand("", 5, scanCommand(0x05, 326), bytes("1B 53 05 00 00 00 80 02")) +
        usbCommand("", 5, scanCommand(0x01, 326), bytes("1B 53 01 00 00 00 80 02")) +
        usbRead(31, 9, marked("", 5, "processPageMarker", " -> width = 637")) + usbRead(31, 1, ""));
    ASSERT_EQ(conversations.size(), 1U);
    for (const bool showsBytes : {false, true}) {
        const std::string text = printed(conversations[0], showsBytes);
        const std::string records = text.substr(text.find("record: page marker"));
        EXPECT_THAT(records, HasSubstr("width                    637 pixels"));
        EXPECT_THAT(records, HasSubstr("the rest of it is not in the log\n"));
        EXPECT_THAT(records, HasSubstr("record: end of the page (1)\n"));
        for (const char* made : {"length ", "status ", "feeder ", "| ", "ODD"}) {
            EXPECT_THAT(records, Not(HasSubstr(made)));
        }
    }
}

// Also in a record, whose fields nobody would tell from recorded ones when it is saved.
TEST(TraceLog, WhatIsNotLoggedIsWhite)
{
    const std::string width = marked("", 5, "processPageMarker", " -> width = 637");
    const std::string halves = marked("", 5, "processPageMarker", "interleaving is needed");
    const auto conversations = read(
        usbCommand("", 5, scanCommand(0x01, 326), bytes("1B 53 01 00 00 00 80 02")) +
        usbRead(31, 1, "") + usbRead(31, 9, halves) + usbRead(40, 9, width) + usbRead(20, 0, ""));
    ASSERT_EQ(conversations.size(), 1U);
    const auto& transfers = conversations[0].transfers;
    ASSERT_EQ(transfers.size(), 6U);
    const std::size_t known[] = {9, 9, 31, 0};
    for (std::size_t i = 0; i < 4; ++i) {
        const trace::Transfer& transfer = transfers[2 + i];
        EXPECT_EQ(transfer.known, known[i]) << i;
        EXPECT_EQ(trace::ByteView(transfer.bytes).from(known[i]).copy(),
                  Bytes(transfer.bytes.size() - known[i], trace::kMadeUp))
            << i;
    }
}

}  // namespace
