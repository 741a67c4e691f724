// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CaptureFile.h"

#include "Support.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace tracetest;
using testing::HasSubstr;
using trace::Bytes;
using trace::Transfer;

trace::Conversation read(const std::string& text)
{
    std::istringstream in("# scanlib capture 1\n" + text);
    return trace::readCapture(in);
}

std::string write(const trace::Conversation& conversation)
{
    std::ostringstream out;
    trace::writeCapture(conversation, out);
    return out.str();
}

TEST(TraceCapture, IsWrittenAsText)
{
    trace::Conversation conversation;
    conversation.transport = trace::Transport::Network;
    conversation.transfers = {host(5000, bytes("1b 53")), scanner(5213, Bytes(40, 0xAB)),
                              Transfer::remark(6000, "a\nremark"), scanner(6000, {})};
    conversation.transfers[1].known = 20;
    EXPECT_EQ(write(conversation),
              "# scanlib capture 1\ntransport network\n> 0 1b53\n< 213 ab*20 ff?20\n"
              "! 1000 a\\x0Aremark\n< 1000\n");
}

TEST(TraceCapture, IsReadAsItWasWritten)
{
    trace::Conversation conversation;
    Bytes mixed(100, 3);
    mixed.insert(mixed.end(), {1, 2, 2, 3});
    mixed.resize(200, 0);
    conversation.transfers = {host(0, bytes("00 01 FE ff")), scanner(7, mixed),
                              scanner(8, Bytes(50, trace::kMadeUp))};
    conversation.transfers[2].known = 10;
    const trace::Conversation again = read(write(conversation).substr(20));
    ASSERT_EQ(again.transfers.size(), 3U);
    EXPECT_EQ(again.transport, trace::Transport::Usb);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(again.transfers[i].bytes, conversation.transfers[i].bytes);
        EXPECT_EQ(again.transfers[i].known, conversation.transfers[i].known);
        EXPECT_EQ(again.transfers[i].time, conversation.transfers[i].time);
        EXPECT_EQ(again.transfers[i].from, conversation.transfers[i].from);
    }
}

// Searches indent what a scanner says of itself, and it may say nothing.
TEST(TraceCapture, TextsOfRemarksKeepTheirBlanks)
{
    trace::Conversation conversation;
    for (const char* text : {"", "    ", "    IPADDRESS", "blank behind ", "# > !"}) {
        conversation.transfers.push_back(Transfer::remark(7, text));
    }
    const trace::Conversation again = read(write(conversation).substr(20));
    ASSERT_EQ(again.transfers.size(), conversation.transfers.size());
    for (std::size_t i = 0; i < again.transfers.size(); ++i) {
        EXPECT_EQ(again.transfers[i].text, conversation.transfers[i].text);
    }
    EXPECT_EQ(read("!  9 text\n!\t10\n").transfers[0].text, "text");
}

// Clocks that were never set, or fields of a file that were not filled.
TEST(TraceCapture, AnyTimeCanBeWrittenAndRead)
{
    trace::Conversation conversation;
    conversation.transfers = {host(0, bytes("00")), scanner(UINT64_MAX - 1, bytes("01")),
                              Transfer::remark(UINT64_MAX, "late")};
    const trace::Conversation again = read(write(conversation).substr(20));
    ASSERT_EQ(again.transfers.size(), 3U);
    EXPECT_EQ(again.transfers[1].time, UINT64_MAX - 1);
    EXPECT_EQ(again.transfers[2].time, UINT64_MAX);
    EXPECT_THROW(read("> 18446744073709551616 00\n"), trace::CaptureError);
    EXPECT_THROW(read("> 18446744073709551620 00\n"), trace::CaptureError);
}

TEST(TraceCapture, WrongLinesAreNamed)
{
    const std::pair<const char*, const char*> wrong[] = {
        {"transport pigeon\n", "line 2: transport is usb or network"},
        {"# fine\n\nnonsense\n", "line 4: neither"},
        {"> 0 1\n", "half a byte"},
        {"> 0 zz\n", "'zz' is not hexadecimal"},
        {"> x 00\n", "'x' is no number"},
        {"> 0 *5\n", "one byte is repeated"},
        {"> 0 0102*5\n", "one byte is repeated"},
        {"> 0 00*0\n", "one byte is repeated"},
        {"> 0 00*99999999\n", "'99999999' is no number that fits"},
        {"> 0 00*1048576 00*1048576\n", "too many bytes|not too often"},
        {"> 99999999999999999999 00\n", "is no number that fits"},
    };
    for (const auto& [text, message] : wrong) {
        try {
            read(text);
            ADD_FAILURE() << text;
        } catch (const trace::CaptureError& error) {
            const std::string what = error.what();
            const std::string wanted = message;
            const std::size_t bar = wanted.find('|');
            EXPECT_TRUE(what.find(wanted.substr(0, bar)) != std::string::npos ||
                        (bar != std::string::npos &&
                         what.find(wanted.substr(bar + 1)) != std::string::npos))
                << what;
        }
    }
    std::istringstream other("# something else\n");
    EXPECT_THROW(trace::readCapture(other), trace::CaptureError);
}

TEST(TraceCapture, ATinyFileCannotFillTheMemory)
{
    std::string text;
    for (int i = 0; i < 1100; ++i) {
        text += "< 0 ff?1048576\n";
    }
    EXPECT_THROW(read(text), trace::CaptureError);
}

}  // namespace
