// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Dialogue.h"

#include "Redaction.h"
#include "Support.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace {

using namespace tracetest;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using trace::Bytes;

const Bytes kUnlock = bytes("1B 53 06 00 00 00 80 00");
const Bytes kEnd = bytes("1B 53 02 00 01 00 80 00 01");

// A header of the version with so many image bytes behind it.
Bytes block(int version, std::size_t size, std::uint8_t fill = 0x11)
{
    const trace::Version& v = trace::versionOfNumber(version);
    Bytes result(v.blockHeaderSize);
    result[0] = 0x1B;
    result[1] = 0x53;
    result[2] = 0x02;
    const std::size_t length = size + v.blockLengthSurplus;
    result[4] = static_cast<std::uint8_t>(length);
    result[5] = static_cast<std::uint8_t>(length >> 8);
    result.resize(v.blockHeaderSize + size, fill);
    return result;
}

std::vector<trace::Transfer> page(int version, std::vector<Bytes> image)
{
    std::vector<trace::Transfer> result = {
        host(1000000, scanCommand(0x05, version)), scanner(1000500, bytes("1B530500000080 00")),
        host(1001000, scanCommand(0x01, version)), scanner(1001250, bytes("1B530100000080 00"))};
    std::uint64_t time = 1002000;
    for (const Bytes& each : image) {
        result.push_back(scanner(time, each));
        time += 1000;
    }
    result.push_back(scanner(time, kEnd));
    return result;
}

TEST(TraceDialogue, TellsTheVersionTimesAndDurations)
{
    const std::string text = printed(page(401, {}));
    EXPECT_THAT(text, HasSubstr("Test, protocol 401\n"));
    EXPECT_THAT(text, HasSubstr("      0.000000  host     lock\n"));
    EXPECT_THAT(text, HasSubstr("      0.000500  scanner  lock: good (128), no feeder (0) after "
                                "0.500 ms\n"));
    EXPECT_THAT(text, Not(HasSubstr("ODD")));
}

TEST(TraceDialogue, SummarisesTheImageOfEachVersion)
{
    for (const int version : {326, 401, 402}) {
        const Bytes blocks = joined({block(version, 1000), block(version, 500)});
        const std::size_t size = blocks.size();
        std::vector<Bytes> transfers;
        for (std::size_t at = 0; at < size; at += 7) {
            transfers.push_back(trace::ByteView(blocks).part(at, 7).copy());
        }
        EXPECT_THAT(
            printed(page(version, transfers)),
            AllOf(HasSubstr("image: 1500 bytes in 2 blocks, " + std::to_string(transfers.size()) +
                            " transfers of " + std::to_string(size) + " bytes, "),
                  Not(HasSubstr("ODD"))));
    }
}

TEST(TraceDialogue, TellsTheRate)
{
    EXPECT_THAT(printed(page(326, {block(326, 991), Bytes(1000, 1), block(326, 991)})),
                HasSubstr(", 2.000 ms, 1.50 MB/s\n"));
}

TEST(TraceDialogue, FlagsWhatIsOdd)
{
    EXPECT_THAT(printed({host(0, kUnlock)}), HasSubstr("ODD: no reply to unlock\n"));
    EXPECT_THAT(printed(page(326, {Bytes(100, 7)})),
                HasSubstr("ODD: 100 bytes without a block header, taken for image\n"));
    EXPECT_THAT(printed({scanner(0, Bytes(100, 7))}), HasSubstr("ODD: no scan was started\n"));
}

// Recordings with short packets: nothing is told of what is not there.
TEST(TraceDialogue, WhatWasNotRecordedIsNotShown)
{
    const auto cut = [](trace::Transfer transfer, std::size_t known) {
        std::fill(transfer.bytes.begin() + static_cast<long>(known), transfer.bytes.end(),
                  trace::kMadeUp);
        transfer.known = known;
        return transfer;
    };
    const Bytes wake = inNpaFrame(bytes("1B 44 04 00 00 00 80 00"));
    const Bytes awake = bytes("1B 44 04 00 00 00 80 02");
    const Bytes ask = bytes("1B 53 03 00 00 00 80 00");
    EXPECT_EQ(printed({host(0, wake), scanner(0, awake)}),
              printed({cut(host(0, wake), wake.size()), scanner(0, awake)}));
    for (std::size_t known = 0; known < wake.size(); ++known) {
        const std::string text = printed({cut(host(0, wake), known), scanner(0, awake)});
        EXPECT_THAT(text, AllOf(Not(HasSubstr("255")), Not(HasSubstr("FF")), Not(HasSubstr("ODD")),
                                HasSubstr(" of it not recorded\n")))
            << known;
        EXPECT_THAT(text, HasSubstr(known > 14 ? "host     wake (in" : "host     unknown command"));
    }
    for (std::size_t known = 0; known < properties().size(); ++known) {
        const std::string text = printed({host(0, ask), cut(scanner(0, properties()), known)});
        EXPECT_THAT(text, AllOf(Not(HasSubstr("255)")), Not(HasSubstr("4294")),
                                Not(HasSubstr("ODD")), HasSubstr(" of it not recorded\n")))
            << known;
        EXPECT_EQ(text.find(": good (128)") != std::string::npos, known > 6) << known;
    }
    EXPECT_THAT(printed({cut(host(0, wake), 0), cut(scanner(0, awake), 0)}),
                AllOf(HasSubstr("scanner  unknown reply\n"), Not(HasSubstr("ODD"))));
    const Bytes lock = scanCommand(0x05, 402);
    const std::string text = printed({cut(host(0, lock), 18)});
    EXPECT_THAT(text,
                AllOf(HasSubstr("width                    637 pixels\n"), HasSubstr(", cut off\n"),
                      Not(HasSubstr("offset")), HasSubstr("25 bytes of it not recorded\n")));
}

TEST(TraceDialogue, ShowsBytesBesideTheirMeaning)
{
    trace::Conversation conversation;
    conversation.transfers = page(326, {});
    const std::string text = printed(conversation, true);
    EXPECT_THAT(text, HasSubstr("| 1B 53 05 00 18 00 80 00 03 00 00 03 7D 02 00 00\n"));
    EXPECT_THAT(text, HasSubstr("width                    637 pixels  [7D 02 00 00]\n"));
}

TEST(TraceRedaction, BlanksTheImageAndNothingElse)
{
    for (const int version : {326, 401, 402}) {
        std::vector<trace::Conversation> conversations(1);
        conversations[0].name = "Host 192.168.1.2";
        conversations[0].transfers =
            page(version, {block(version, 100), Bytes(3, 5), block(version, 50)});
        const auto before = conversations[0].transfers;
        trace::redact(conversations);
        EXPECT_EQ(conversations[0].name, "Conversation 1");
        const auto& after = conversations[0].transfers;
        ASSERT_EQ(after.size(), before.size());
        EXPECT_EQ(after[4].bytes, block(version, 100, trace::kMadeUp));
        EXPECT_EQ(after[5].bytes, Bytes(3, trace::kMadeUp));
        EXPECT_EQ(after[6].bytes, block(version, 50, trace::kMadeUp));
        for (const std::size_t kept : {0U, 1U, 2U, 3U, 7U}) {
            EXPECT_EQ(after[kept].bytes, before[kept].bytes);
        }
    }
}

TEST(TraceRedaction, LeavesOutWhatTheHostSaid)
{
    std::vector<trace::Conversation> conversations(1);
    conversations[0].transfers = page(326, {});
    auto& transfers = conversations[0].transfers;
    transfers.push_back(trace::Transfer::remark(0, "[ERROR] Invalid IP: 192.168.1.7"));
    transfers.push_back(trace::Transfer::oddity(0, "reply too short"));
    trace::redact(conversations);
    EXPECT_EQ(transfers[transfers.size() - 2].text, "(left out)");
    EXPECT_EQ(transfers.back().text, "reply too short");
}

}  // namespace
