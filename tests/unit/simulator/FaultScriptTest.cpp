// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FaultScript.h"

#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

std::string errorOf(const std::string& rule)
{
    try {
        FaultScript().add(rule);
    } catch (const InputError& error) {
        return error.what();
    }
    return "";
}

// Begins a flatbed page on a scanner with one fault, and reads the page marker.
struct FaultyPage {
    explicit FaultyPage(const std::string& fault, const std::string& setting = "block-size=1000")
        : bench({"feeder.sheets=0", "fault=" + fault, setting})
    {
        bench.begin(HostCommand());
        bench.read();
    }
    // All that the host still gets to read.
    std::vector<Bytes> rest()
    {
        std::vector<Bytes> reads;
        for (Bytes bytes = bench.read(); !bytes.empty(); bytes = bench.read()) {
            reads.push_back(bytes);
        }
        return reads;
    }

    Bench bench;
};

// The page marker that a fault spoils; the page has 100 x 20 pixels.
Bytes spoiltMarker(const std::string& action)
{
    Bench bench({"feeder.sheets=0", "fault=marker: " + action});
    bench.begin(HostCommand());
    return bench.read();
}

Bytes spoiltReply(CommandId id, const std::string& action)
{
    Bench bench({std::string("fault=reply ") + commandName(id) + ": " + action});
    bench.send(id);
    return bench.read(512);
}

constexpr std::size_t kBlocks = 6;  // of a page, the others being marker and end

}  // namespace

TEST(FaultScript, CountsOccurrences)
{
    FaultScript script;
    script.add("block 2: stall");
    script.add("reply lock always: status 130");
    EXPECT_FALSE(script.happen(FaultEvent::Block));
    EXPECT_EQ(script.happen(FaultEvent::Block)->action, FaultAction::Stall);
    EXPECT_FALSE(script.happen(FaultEvent::Block));
    EXPECT_FALSE(script.happen(FaultEvent::Reply, CommandId::Start));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(script.happen(FaultEvent::Reply, CommandId::Lock)->argument, 130U);
    }
}

TEST(FaultScript, HasDefaults)
{
    FaultScript script;
    script.add("claim: refuse");
    script.add("reply 3: truncate");
    EXPECT_EQ(script.happen(FaultEvent::Claim)->argument, 1U);
    EXPECT_EQ(script.happen(FaultEvent::Reply, CommandId::Lock)->argument, 5U);
}

TEST(FaultScript, RefusesNonsense)
{
    EXPECT_NE(errorOf("block").find("EVENT: ACTION"), std::string::npos);
    EXPECT_NE(errorOf("blook: stall").find("unknown event"), std::string::npos);
    EXPECT_NE(errorOf("block: explode").find("unknown action"), std::string::npos);
    EXPECT_NE(errorOf("block:").find("no action"), std::string::npos);
    EXPECT_NE(errorOf("block: busy").find("cannot have"), std::string::npos);
    EXPECT_NE(errorOf("chunk: stall").find("cannot have"), std::string::npos);
    EXPECT_NE(errorOf("chunk: oversize 0x80000000").find("between 0"), std::string::npos);
    EXPECT_NE(errorOf("block 0: stall").find("between 1"), std::string::npos);
    EXPECT_NE(errorOf("block 1 2: stall").find("too many"), std::string::npos);
    EXPECT_NE(errorOf("block: stall 3").find("too many"), std::string::npos);
    EXPECT_NE(errorOf("reply: stall").find("name of a command"), std::string::npos);
    EXPECT_NE(errorOf("reply dance: stall").find("name of a command"), std::string::npos);
}

TEST(FaultScript, HelpNamesEveryAction)
{
    const std::string help = FaultScript::help();
    for (const char* word :
         {"stall",      "timeout",    "unplug", "replug", "refuse",    "busy",     "held",
          "zero",       "short",      "delay",  "stray",  "garbage",   "truncate", "status",
          "feeder",     "flip",       "jam",    "cut",    "flip-bits", "shorten",  "size",
          "oversize",   "undersize",  "lines",  "pixels", "quality",   "reset",    "half-close",
          "vanish",     "silence",    "magic",  "length", "extra",     "lose",     "read-only",
          "ignore",     "precede",    "code",   "omit",   "twice",     "late",     "remove-paper",
          "keep",       "follow",     "record", "offset", "trim",      "sources",  "resolutions",
          "interleave", "data-length"}) {
        EXPECT_NE(help.find(std::string("\n  ") + word), std::string::npos) << word;
    }
}

TEST(Fault, TransferFailures)
{
    const std::pair<const char*, TransferResult> cases[] = {{"stall", TransferResult::Stall},
                                                            {"unplug", TransferResult::Unplug},
                                                            {"replug", TransferResult::Replug}};
    for (const auto& [action, result] : cases) {
        FaultyPage page(std::string("block 2: ") + action);
        EXPECT_EQ(page.bench.read().size(), 1009U);
        EXPECT_TRUE(page.bench.read().empty());
        EXPECT_EQ(page.bench.lastResult, result);
    }
}

TEST(Fault, CommandFailures)
{
    Bench stall({"fault=command properties: stall"});
    EXPECT_EQ(stall.send(CommandId::Properties), TransferResult::Stall);
    Bench timeout({"fault=command properties 2: timeout"});
    EXPECT_EQ(timeout.send(CommandId::Properties), TransferResult::Done);
    EXPECT_EQ(timeout.send(CommandId::Properties), TransferResult::Nothing);
    EXPECT_EQ(timeout.send(CommandId::Properties), TransferResult::Nothing);
    timeout.scanner->reset();
    EXPECT_EQ(timeout.send(CommandId::Properties), TransferResult::Done);
}

TEST(Fault, TimeoutSilencesTheScannerUntilItIsReset)
{
    FaultyPage page("block: timeout");
    EXPECT_TRUE(page.bench.read().empty());
    EXPECT_EQ(page.bench.lastResult, TransferResult::Nothing);
    EXPECT_EQ(page.bench.send(CommandId::Cancel), TransferResult::Nothing);
    page.bench.scanner->reset();
    page.bench.begin(HostCommand());
    EXPECT_EQ(page.bench.read().at(8), 9);
}

TEST(Fault, ZeroAndShortTransfers)
{
    FaultyPage zero("block: zero");
    EXPECT_TRUE(zero.bench.read().empty());
    EXPECT_EQ(zero.bench.lastResult, TransferResult::Done);
    EXPECT_EQ(zero.bench.read().size(), 1009U);
    FaultyPage cut("block: short 7");
    EXPECT_EQ(cut.bench.read().size(), 7U);
    EXPECT_EQ(cut.bench.read().size(), 1002U);
}

TEST(Fault, FaultyBlocksAreNotPacked)
{
    FaultyPage page("block 3: stall", "block-transfers=packed");
    EXPECT_EQ(page.bench.read().size(), 2018U);
    page.bench.read();
    EXPECT_EQ(page.bench.lastResult, TransferResult::Stall);
}

TEST(Fault, GarbageStrayAndTruncatedReplies)
{
    Bench garbage({"fault=reply properties: garbage 6"});
    garbage.send(CommandId::Properties);
    EXPECT_EQ(garbage.read().size(), 6U);
    EXPECT_TRUE(garbage.read().empty());
    Bench stray({"fault=reply properties: stray 9"});
    stray.send(CommandId::Properties);
    EXPECT_NE(stray.read().at(0), 0x1B);
    EXPECT_EQ(stray.read().at(2), 0x03);
    Bench truncated({"fault=reply properties: truncate 4"});
    truncated.send(CommandId::Properties);
    EXPECT_EQ(truncated.read(), (Bytes{0x1B, 0x53, 0x03, 0}));
}

TEST(Fault, DelayedReply)
{
    Bench bench({"fault=reply properties: delay 250"});
    bench.scanner->setNow(1000);
    bench.send(CommandId::Properties);
    EXPECT_TRUE(bench.read().empty());
    EXPECT_EQ(bench.scanner->nextWake(), std::optional<std::uint64_t>(1250));
    bench.scanner->setNow(1250);
    EXPECT_EQ(bench.read().at(2), 0x03);
}

TEST(Fault, StatusFeederAndFlipOfAReply)
{
    Bench status({"fault=reply lock: status 130", "feeder.sheets=0"});
    status.send(HostCommand(), CommandId::Lock);
    EXPECT_EQ(status.read().at(6), 130);
    EXPECT_FALSE(status.scanner->isLocked());
    Bench feeder({"fault=reply feeder-status: feeder 1"});
    feeder.send(CommandId::FeederStatus);
    EXPECT_EQ(feeder.read().at(7), 1);
    Bench flip({"fault=reply start: flip", "feeder.sheets=0"});
    flip.send(HostCommand(), CommandId::Lock);
    flip.read();
    flip.send(HostCommand(), CommandId::Start);
    EXPECT_EQ(flip.read().at(9), 1);
}

TEST(Fault, RefusedStartPlaysNoPage)
{
    Bench bench({"fault=reply start: status 136", "feeder.sheets=0"});
    bench.begin(HostCommand());
    EXPECT_TRUE(bench.read().empty());
    bench.begin(HostCommand());
    EXPECT_EQ(bench.read().at(8), 9);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Fault, JamEndsThePage)
{
    FaultyPage page("block 3: jam");
    page.bench.read();
    page.bench.read();
    EXPECT_EQ(page.bench.read().at(8), 5);
    EXPECT_TRUE(page.bench.read().empty());
    FaultyPage end("end: jam");
    Bytes last;
    for (Bytes bytes = end.bench.read(); !bytes.empty(); bytes = end.bench.read()) {
        last = bytes;
    }
    EXPECT_EQ(last.at(8), 5);
}

TEST(Fault, CutPageEndsEarly)
{
    FaultyPage page("page: cut 1500");
    std::size_t size = 0;
    Bytes last;
    for (const Bytes& bytes : page.rest()) {
        size += bytes.size();
        last = bytes;
    }
    EXPECT_EQ(size, 5 * 9U + 4500U + 9U);
    EXPECT_EQ(last.at(8), 1);
}

TEST(Fault, PageEndsAfterItsBeginning)
{
    FaultyPage page("page: keep 1500");
    const std::vector<Bytes> reads = page.rest();
    ASSERT_EQ(reads.size(), 3U);
    EXPECT_EQ(reads[0].size(), 1009U);
    EXPECT_EQ(reads[1].size(), 509U);
    EXPECT_EQ(reads[2].at(8), 1);
    EXPECT_EQ(FaultyPage("page: keep 0").rest().size(), 1U);
    EXPECT_EQ(FaultyPage("page: keep 1000000").rest().size(), kBlocks + 1);
}

TEST(Fault, CompressedPageEndsAfterItsBeginning)
{
    Bench bench({"stream=compressed", "compression-level=6", "protocol=402", "feeder.sheets=0",
                 "fault=page: keep 100"});
    HostCommand host;
    host.protocol = 402;
    host.compression = 1;
    host.level = 6;
    bench.begin(host);
    bench.read();
    EXPECT_EQ(bench.read().size(), 131U);
    EXPECT_EQ(bench.read().at(8), 1);
}

TEST(Fault, PageOfOtherLengthThanAsked)
{
    EXPECT_EQ(FaultyPage("page: lines 40").rest().size(), 2 * kBlocks + 1);
    EXPECT_EQ(FaultyPage("page: lines 0").rest().size(), 1U);
}

TEST(Fault, FieldsOfTheMarker)
{
    const Bytes good = spoiltMarker("code 9");
    EXPECT_EQ(good.at(8), 9);
    const struct {
        const char* action;
        std::size_t offset;
        Bytes field;
    } cases[] = {{"code 5", 8, {5}},
                 {"data-length 0x1234", 4, {0x34, 0x12}},
                 {"interleave", 10, {1}},
                 {"pixels 0x01020304", 11, {4, 3, 2, 1}},
                 {"lines 0xFFFFFFFF", 15, {255, 255, 255, 255}},
                 {"offset 7", 19, {7, 0, 0, 0}},
                 {"trim 9", 27, {9, 0, 0, 0}}};
    for (const auto& [action, offset, field] : cases) {
        Bytes expected = good;
        std::copy(field.begin(), field.end(), expected.begin() + static_cast<long>(offset));
        EXPECT_EQ(spoiltMarker(action), expected) << action;
    }
}

TEST(Fault, MarkerThatDoesNotComeOrComesLateOrTwice)
{
    EXPECT_EQ(spoiltMarker("omit").at(8), 0);
    FaultyPage twice("marker: twice");
    EXPECT_EQ(twice.bench.read().at(8), 9);
    EXPECT_EQ(twice.rest().size(), kBlocks + 1);
    FaultyPage late("marker: late 2");  // its first block has been read
    const std::vector<Bytes> reads = late.rest();
    ASSERT_EQ(reads.size(), kBlocks + 1);
    EXPECT_EQ(reads[0].at(8), 0);
    EXPECT_EQ(reads[1].at(8), 9);
    EXPECT_EQ(reads[2].at(8), 0);
    EXPECT_EQ(FaultyPage("marker: late 99").rest().size(), kBlocks);
}

TEST(Fault, JamBeforeTheFirstBlock)
{
    EXPECT_EQ(spoiltMarker("jam").at(8), 5);
    FaultyPage page("marker: jam");
    EXPECT_TRUE(page.bench.read().empty());
    page.bench.begin(HostCommand());
    EXPECT_EQ(page.bench.read().at(8), 9);
}

TEST(Fault, RecordsAndFieldsOfBlocks)
{
    FaultyPage record("block 2: record 7");
    const std::vector<Bytes> reads = record.rest();
    ASSERT_EQ(reads.size(), kBlocks + 2);
    EXPECT_EQ(reads[1].size(), 9U);
    EXPECT_EQ(reads[1].at(8), 7);
    EXPECT_EQ(reads[2].size(), 1009U);
    EXPECT_EQ(FaultyPage("block: code 4").bench.read().at(8), 4);
    EXPECT_EQ(FaultyPage("block: data-length 0x102").bench.read().at(4), 2);
    EXPECT_EQ(FaultyPage("block 2: omit").rest().size(), kBlocks);
    EXPECT_EQ(FaultyPage("block always: omit").rest().size(), 1U);
    EXPECT_EQ(FaultyPage("block 2: twice").rest().size(), kBlocks + 2);
}

TEST(Fault, EndOfThePage)
{
    EXPECT_EQ(FaultyPage("end: code 200").rest().back().at(8), 200);
    EXPECT_EQ(FaultyPage("end: omit").rest().size(), kBlocks);
    EXPECT_EQ(FaultyPage("end: twice").rest().size(), kBlocks + 2);
    FaultyPage more("end: follow 50");
    const std::vector<Bytes> reads = more.rest();
    ASSERT_EQ(reads.size(), kBlocks + 2);
    EXPECT_EQ(reads[kBlocks].at(8), 1);
    EXPECT_EQ(reads[kBlocks + 1].size(), 59U);
}

TEST(Fault, FieldsOfReplies)
{
    EXPECT_EQ(spoiltReply(CommandId::Properties, "code 6").at(2), 6);
    EXPECT_EQ(spoiltReply(CommandId::Properties, "data-length 0xFFFE").at(5), 0xFF);
    EXPECT_EQ(spoiltReply(CommandId::Properties, "sources").at(14), 255);
    EXPECT_EQ(spoiltReply(CommandId::Properties, "resolutions 9").at(29), 9);
    EXPECT_TRUE(spoiltReply(CommandId::Properties, "omit").empty());
    // A short reply has no such field.
    EXPECT_EQ(spoiltReply(CommandId::FeederStatus, "sources").size(), 8U);
}

TEST(Fault, AnotherReplyComesFirst)
{
    Bench bench({"fault=reply properties: precede 5"});
    bench.send(CommandId::Properties);
    EXPECT_EQ(bench.read(512), (Bytes{0x1B, 0x53, 0x05, 0, 0, 0, 0x80, 2}));
    EXPECT_EQ(bench.read(512).at(2), 0x03);
}

TEST(Fault, CommandsWithoutEffect)
{
    Bench ignored({"fault=command properties: ignore"});
    EXPECT_EQ(ignored.send(CommandId::Properties), TransferResult::Done);
    EXPECT_TRUE(ignored.read().empty());
    Bench cut({"fault=command properties: short 3"});
    EXPECT_EQ(cut.send(CommandId::Properties), TransferResult::Short);
    EXPECT_EQ(cut.scanner->bytesTaken(), 3U);
    EXPECT_TRUE(cut.read().empty());
    cut.send(CommandId::Properties);
    EXPECT_EQ(cut.read(512).at(2), 0x03);
}

TEST(Fault, PaperIsTakenOut)
{
    Bench bench({"fault=command feeder-status: remove-paper"});
    bench.send(CommandId::FeederStatus);
    EXPECT_EQ(bench.read().at(7), 1);
    EXPECT_EQ(bench.scanner->sheets(), 0U);
}

TEST(FaultScript, Forgets)
{
    FaultScript script;
    script.add("block always: stall");
    EXPECT_TRUE(script.happen(FaultEvent::Block));
    script.forget();
    EXPECT_FALSE(script.happen(FaultEvent::Block));
}

}  // namespace scansim::test
