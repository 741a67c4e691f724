// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Messages.h"

#include "Support.h"

#include <gmock/gmock.h>

namespace {

using namespace tracetest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using trace::Message;

std::string text(const Message& message)
{
    std::string result = message.title + "\n";
    for (const trace::Row& row : message.rows) {
        result += row.name + ": " + row.value + "\n";
    }
    for (const std::string& oddity : message.oddities) {
        result += "ODD: " + oddity + "\n";
    }
    return result;
}

constexpr const char* kParameters =
    "colour: colour (3)\n"
    "compression: 0\n"
    "compression level: 0\n"
    "preview: normal (3)\n"
    "width: 637 pixels\n"
    "height: 177 lines\n"
    "offset from the left: 10 dots\n"
    "offset from the top: 20 dots\n"
    "horizontal resolution: 75 dpi\n"
    "vertical resolution: 75 dpi\n";

TEST(TraceCommand, ShortOnesHaveNames)
{
    const std::pair<const char*, const char*> commands[] = {
        {"1B 53 0F 00 00 00 00 00", "cancel\n"},
        {"1B 53 04 00 00 00 80 00", "feeder status\n"},
        {"1B 53 03 00 00 00 80 00", "device properties\n"},
        {"1B 53 06 00 00 00 80 00", "unlock\n"},
        {"1B 44 04 00 00 00 80 00", "wake\n"},
    };
    for (const auto& [hex, name] : commands) {
        EXPECT_EQ(text(trace::decodeCommand(bytes(hex))), name);
    }
}

TEST(TraceCommand, LockAndStartOfEachVersionShowEveryField)
{
    const std::pair<std::uint8_t, std::string> kinds[] = {{0x05, "lock\n"}, {0x01, "start scan\n"}};
    for (const auto& [code, name] : kinds) {
        EXPECT_EQ(text(trace::decodeCommand(scanCommand(code, 326))),
                  name + "parameter length: 24 bytes\n" + kParameters);
        EXPECT_EQ(
            text(trace::decodeCommand(scanCommand(code, 401))),
            name + "parameter length: 26 bytes\n" + kParameters + "source: feeder (4)\nzero: 0\n");
        EXPECT_EQ(text(trace::decodeCommand(scanCommand(code, 402))),
                  name + "parameter length: 35 bytes\n" + kParameters +
                      "source: flatbed (1)\nzero: 0\nconstant: 0x10101\nconstant: 0x8000\n"
                      "constant: 0x8000\nconstant: 0x201\n");
    }
}

TEST(TraceCommand, NpaFramesAreTakenOff)
{
    EXPECT_EQ(text(trace::decodeCommand(inNpaFrame(scanCommand(0x05, 401)))),
              std::string("lock (in an NPA frame)\nNPA length: 53 bytes\nNPA padding: 2 bytes\n"
                          "parameter length: 26 bytes\n") +
                  kParameters + "source: feeder (4)\nzero: 0\n");
    trace::Bytes spoilt = inNpaFrame(bytes("1B 44 04 00 00 00 80 00"));
    spoilt[2] = 3;
    EXPECT_THAT(trace::decodeCommand(spoilt).oddities,
                ElementsAre("NPA frame of 28 bytes says it has 6"));
    spoilt.resize(15);
    EXPECT_THAT(trace::decodeCommand(spoilt).oddities,
                ElementsAre("NPA frame too short", "unknown command: " + trace::hex(spoilt, 32)));
}

TEST(TraceCommand, OdditiesAreFlagged)
{
    const auto oddities = [](const trace::Bytes& command) {
        return trace::decodeCommand(command).oddities;
    };
    EXPECT_THAT(oddities(bytes("1B 53 77 00 00 00 80 00")),
                ElementsAre("unknown command: 1B 53 77 00 00 00 80 00"));
    EXPECT_THAT(oddities(bytes("1B 53 06 00 00 00 00 00")),
                ElementsAre("unusual header 1B 53 06 00 00 00 00 00"));
    trace::Bytes cut = scanCommand(0x05, 402);
    cut.pop_back();
    EXPECT_THAT(oddities(cut), ElementsAre("command too short: 42 of 43 bytes"));
    cut[4] = 34;
    EXPECT_THAT(oddities(cut), ElementsAre("no protocol version has 34 bytes of parameters"));
    trace::Bytes tail = scanCommand(0x01, 402);
    tail[36] = 9;
    EXPECT_THAT(oddities(tail),
                ElementsAre("the constant bytes at the end are 00 01 01 09 00 80 00 80 01 02"));
}

TEST(TraceReply, ShowsStatusAndFeederInWords)
{
    const std::pair<std::uint8_t, const char*> statuses[] = {
        {128, "good"},   {129, "invalid"}, {130, "busy"},    {131, "busy"},      {132, "failed"},
        {133, "failed"}, {134, "failed"},  {136, "refused"}, {137, "no memory"}, {7, "unknown"}};
    for (const auto& [status, word] : statuses) {
        trace::Bytes reply = bytes("1B 53 05 00 00 00 80 01");
        reply[6] = status;
        const std::string words = std::string(word) + " (" + std::to_string(status) + ")";
        EXPECT_EQ(text(trace::decodeReply(reply, trace::kindOf(reply))),
                  "lock: " + words + ", feeder empty (1)\nlength: 0 bytes\nstatus: " + words +
                      "\nfeeder: feeder empty (1)\n");
    }
}

TEST(TraceReply, StartMayCarryTheFlipFlag)
{
    const trace::Bytes reply = bytes("1B 53 01 00 02 00 80 02 00 01");
    EXPECT_THAT(text(trace::decodeReply(reply, trace::kindOf(reply))),
                HasSubstr("record: 0\nflipped: yes (1)\n"));
}

TEST(TraceReply, PropertiesShowEveryField)
{
    const trace::Bytes reply = properties();
    EXPECT_EQ(text(trace::decodeReply(reply, trace::kindOf(reply))),
              "device properties: good (128), feeder loaded (2)\n"
              "length: 31 bytes\nstatus: good (128)\nfeeder: feeder loaded (2)\n"
              "major version: 1\nminor version: 2\ncode set: 3\ncompression technique: 4\n"
              "colour alignment: 5\ngrey alignment: 6\nnumber of sources: 1\n"
              "source 1: \ntype: feeder (2)\nscan bar: 7\n"
              "origin: 1 dots (0.1 mm at 300 dpi)\nwidth: 2552 dots (216.1 mm at 300 dpi)\n"
              "height: 3508 dots (297.0 mm at 300 dpi)\nnumber of resolutions: 1\n"
              "horizontal resolution: 75 dpi\nvertical resolution: 150 dpi\n"
              "depth: 24 bits a pixel\n");
}

TEST(TraceReply, PropertiesThatEndEarlyAreFlagged)
{
    trace::Bytes reply = properties();
    reply[14] = 200;  // sources
    EXPECT_THAT(text(trace::decodeReply(reply, trace::kindOf(reply))),
                HasSubstr("ODD: the properties end before source 2\n"));
    reply.resize(12);
    EXPECT_THAT(text(trace::decodeReply(reply, trace::kindOf(reply))),
                HasSubstr("ODD: properties too short: 4 of 7 bytes\n"));
}

// A few characters of a capture are 64 KiB of them.
TEST(TraceReply, PropertiesWithoutEndAreNotShownToTheirEnd)
{
    trace::Bytes reply = bytes("1B 53 03 00 FF FF 80 02");
    reply.resize(8 + 0xFFFF, 0xFF);
    const trace::Message message = trace::decodeReply(reply, trace::kindOf(reply));
    EXPECT_LT(message.rows.size(), 1100U);
    EXPECT_THAT(text(message), HasSubstr("ODD: so many sources and resolutions that the others"));
    // All that a host on USB reads is shown.
    reply = bytes("1B 53 03 00 F8 01 80 02");
    reply.resize(512, 0xFF);
    EXPECT_THAT(text(trace::decodeReply(reply, trace::kindOf(reply))),
                testing::Not(HasSubstr("so many")));
}

TEST(TraceReply, OdditiesAreFlagged)
{
    const trace::Bytes lock = bytes("1B 53 05 00 00 00 80 00");
    EXPECT_THAT(trace::decodeReply(bytes("1B 53 05 00"), trace::kindOf(lock)).oddities,
                ElementsAre("reply too short: 4 of 8 bytes"));
    EXPECT_THAT(trace::decodeReply(bytes("1B 53 05 00 01 00 80 00"), trace::kindOf(lock)).oddities,
                ElementsAre("reply too short: 8 of 9 bytes"));
    EXPECT_THAT(trace::decodeReply(lock, nullptr).oddities,
                ElementsAre("a reply that nobody asked for"));
    EXPECT_THAT(trace::decodeReply(lock, trace::kindOf(bytes("1B 53 06 00 00 00 80 00"))).oddities,
                ElementsAre("not the reply to unlock"));
}

TEST(TraceRecord, PageMarkerShowsEveryField)
{
    const trace::Bytes marker = bytes(
        "1B 53 02 00 17 00 80 02 09 00 01  7D 02 00 00  B1 00 00 00  03 00 00 00  04 00 00 00"
        "05 00 00 00");
    EXPECT_EQ(text(trace::decodeRecord(marker)),
              "record: page marker (9)\nlength: 23 bytes\nstatus: good (128)\n"
              "feeder: feeder loaded (2)\nrecord: page marker (9)\nhalf-lines: yes (1)\n"
              "width: 637 pixels\nheight: 177 lines\nhorizontal offset: 3 dots\n"
              "vertical offset: 4 dots\ntrim: 5 pixels\n");
    EXPECT_THAT(text(trace::decodeRecord(trace::Bytes(marker.begin(), marker.begin() + 13))),
                HasSubstr("width: 637 pixels, cut off\nODD: page marker too short: 13 of 31"));
}

TEST(TraceRecord, CodesHaveNames)
{
    const std::pair<std::uint8_t, const char*> codes[] = {
        {1, "end of the page"}, {2, "out of memory"}, {3, "stopped"},
        {4, "stopped"},         {5, "paper jam"},     {15, "device failure"}};
    for (const auto& [code, name] : codes) {
        trace::Bytes record = bytes("1B 53 02 00 01 00 80 00 00");
        record[8] = code;
        EXPECT_EQ(trace::decodeRecord(record).title,
                  std::string("record: ") + name + " (" + std::to_string(code) + ")");
        EXPECT_THAT(trace::decodeRecord(record).oddities, IsEmpty());
    }
}

TEST(TraceRecord, InsideABlockItsLengthHasToFit)
{
    const trace::Bytes record = bytes("1B 53 02 00 01 00 80 00 01");
    EXPECT_TRUE(trace::isRecord(record, 0));
    EXPECT_TRUE(trace::isRecord(record, 100));
    EXPECT_FALSE(trace::isRecord(joined({record, {0}}), 100));
    EXPECT_FALSE(trace::isRecord(bytes("1B 53 02 00 01 00 80 00 00"), 0));
}

TEST(TraceDifferences, NameTheFields)
{
    trace::Bytes other = scanCommand(0x05, 401);
    other[12] = 0x7E;
    EXPECT_THAT(trace::differences(other, scanCommand(0x05, 401)),
                ElementsAre("width: 638 pixels instead of 637 pixels"));
    EXPECT_THAT(trace::differences(scanCommand(0x05, 401), scanCommand(0x05, 401)), IsEmpty());
    EXPECT_THAT(trace::differences(bytes("1B 53 06 00 00 00 80 00"), scanCommand(0x05, 401)),
                ElementsAre("unlock instead of lock"));
    EXPECT_THAT(
        trace::differences(bytes("1B 53 06 00 00 00 80 01"), bytes("1B 53 06 00 00 00 80 00")),
        Not(IsEmpty()));
}

}  // namespace
