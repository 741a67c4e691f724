// SPDX-License-Identifier: LGPL-2.1-or-later
// Scanners on the network through genuine sockets: net_probe's steps and what they give.

#include <regex>

#include "Shell.h"
#include "Support.h"

namespace scansim::test {

namespace {

constexpr const char* kTickled = "connect ok\nraw 9 48 42 4E 33 00 00 00 00 00\n";
constexpr const char* kConnect = "connect=10.83.0.11 tickle ";
constexpr const char* kLockReply = "frame 8 1B 53 05 00 00 00 80 00\n";
constexpr const char* kStartReply = "frame 8 1B 53 01 00 00 00 80 00\n";
constexpr const char* kUnlockReply = "frame 8 1B 53 06 00 00 00 80 00\n";

class Net : public testing::Test {
protected:
    void SetUp() override
    {
        const Outcome outcome =
            shell(std::string(SIMTEST_SCANNER_SIM) + " --net flatbed-326 -- true");
        ASSERT_NE(outcome.status, kCannotSimulate) << outcome.output;
    }

    static Outcome rawProbe(const std::string& options, const std::string& steps)
    {
        return shell(std::string("SCANNER_SIM=") + SIMTEST_SCANNER_SIM + " " + SIMTEST_SCANNER_SIM +
                     " " + options + " -- " + SIMTEST_NET_PROBE + " " + steps);
    }

    static Outcome probe(const std::string& options, const std::string& steps)
    {
        Outcome outcome = rawProbe(options, steps);
        outcome.output =
            std::regex_replace(withoutNotices(outcome.output), std::regex("first after .*\n"), "");
        return outcome;
    }

    static std::string output(const std::string& options, const std::string& steps)
    {
        return probe(options, steps).output;
    }

    // What comes of a conversation that a fault disturbs.
    static std::string disturbed(const std::string& fault, const std::string& steps)
    {
        const Outcome outcome = probe("--net flatbed-326,block-size=3000 --fault '" + fault + "'",
                                      "timeout=300 " + std::string(kConnect) + steps);
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        return outcome.output;
    }

    TempFolder folder;
};

std::string tickled(const std::string& rest)
{
    return kTickled + rest;
}

std::string answer(const std::string& ip, const std::string& mac, const std::string& name,
                   const std::string& ids, const std::string& more = "")
{
    return "answer from " + ip + ":5353 IPADDRESS=\"" + ip + "\" MACUAA=\"" + mac +
           "\" 1284STRID=\"" + name + "\" ADAPTERNAME=\"" + name + "\" PRINTERVIDPID=\"" + ids +
           "\"" + more + "\n";
}

// The samples of a recorded PNM file, which has nothing behind them.
std::string samples(const std::string& path, std::size_t lines = 20)
{
    const std::size_t size = 600 * lines * 3;
    const std::string text = readAll(path);
    return text.size() < size ? std::string() : text.substr(text.size() - size);
}

}  // namespace

TEST_F(Net, ASearchFailsAtOnceWithoutNetworkScanners)
{
    EXPECT_EQ(output("--usb flatbed-326", "search=1000"), "search unreachable\n");
}

TEST_F(Net, EveryScannerAnswersFromItsOwnAddress)
{
    EXPECT_EQ(output("--net flatbed-326 --usb adf-402 --net "
                     "lut-402,ip=192.168.7.5,mac=100070482C6A,answer.string='EXTRA more'",
                     "search=200"),
              answer("10.83.0.11", "400000000080", "Flatbed 326", "12343260") +
                  answer("192.168.7.5", "08000E123456", "Colour 402", "43214021", " EXTRA=more") +
                  "answers 2\n");
}

TEST_F(Net, TheSameBehindALink)
{
    EXPECT_EQ(output("--veth --net flatbed-326 --net adf-402,ip=192.168.7.5",
                     "search=300 connect=192.168.7.5 tickle close"),
              answer("10.83.0.11", "400000000080", "Flatbed 326", "12343260") +
                  answer("192.168.7.5", "400000000040", "Combo 402", "12344020") + "answers 2\n" +
                  kTickled + "close\n");
}

TEST_F(Net, ConversationWithAPage)
{
    const Outcome outcome =
        probe("--record " + folder.path("pages") + " --net flatbed-326",
              kConnect + std::string("write=lock frame write=start frame page=") +
                  folder.path("pixels") + " write=unlock frame close");
    EXPECT_EQ(outcome.output,
              tickled(std::string(kLockReply) + kStartReply +
                      "page record 1\nframes 3259 to 8192\n" + kUnlockReply + "close\n"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(readAll(folder.path("pixels")).size(), 36000U);
    EXPECT_TRUE(readAll(folder.path("pixels")) ==
                samples(folder.path("pages/dev1-flatbed-326-001.pnm")));
}

TEST_F(Net, EveryFrameSizeInEverySegmentSize)
{
    const std::vector<std::string> frames = {"2",    "3",    "5",     "7",        "64",
                                             "1000", "8192", "65535", "random:3", "2 3 5000"};
    const std::vector<std::string> segments = {"segment-size=1", "segment-size=7",
                                               "segment-size=1460", "segments=packed",
                                               "segments=frames"};
    for (const std::string& frame : frames) {
        for (const std::string& segment : segments) {
            const std::string name = "frame-size=" + frame + "," + segment;
            TempFolder pages;
            const Outcome outcome = probe(
                "--record " + pages.path("") + " --net flatbed-326,block-size=1357,'" + name + "'",
                kConnect + std::string("write=lock frame write=start frame page=") +
                    pages.path("pixels") + " write=unlock frame close");
            EXPECT_EQ(outcome.status, 0) << name << outcome.output;
            EXPECT_TRUE(readAll(pages.path("pixels")) ==
                        samples(pages.path("dev1-flatbed-326-001.pnm")))
                << name << outcome.output;
        }
    }
}

// More than the sockets' buffers hold, so that the scanner has to wait for its host again and
// again.
TEST_F(Net, ALongPage)
{
    for (const char* keys : {"segments=frames", "segments=packed,frame-size=random:1",
                             "segment-size=1460,frame-size=65536", "frame-size=700"}) {
        TempFolder pages;
        const Outcome outcome =
            probe("--record " + pages.path("") + " --net flatbed-326," + keys,
                  kConnect +
                      std::string("write=tall-lock frame write=tall-start frame wait=100 "
                                  "page=") +
                      pages.path("pixels") + " write=unlock frame close");
        EXPECT_EQ(outcome.status, 0) << keys << outcome.output;
        EXPECT_EQ(readAll(pages.path("pixels")).size(), 600 * 1044 * 3U);
        EXPECT_TRUE(readAll(pages.path("pixels")) ==
                    samples(pages.path("dev1-flatbed-326-001.pnm"), 1044))
            << keys << outcome.output;
    }
}

TEST_F(Net, SegmentsAreAsAskedFor)
{
    const std::string steps = kConnect + std::string("write=properties frame segments");
    EXPECT_NE(output("--net flatbed-326,segment-size=1", steps).find("segments 84\n"),
              std::string::npos);
    EXPECT_NE(output("--net flatbed-326,segment-size=20", steps).find("segments 5\n"),
              std::string::npos);
    EXPECT_NE(output("--net flatbed-326", steps).find("segments 2\n"), std::string::npos);
    const std::string page =
        kConnect + std::string("write=lock frame write=start frame page=/dev/null segments");
    const auto segments = [&](const std::string& keys) {
        const std::string text = output("--tolerate --net flatbed-326," + keys, page);
        std::smatch match;
        return std::regex_search(text, match, std::regex("segments (\\d+)\n")) ? std::stoi(match[1])
                                                                               : -1;
    };
    // Tickle, two replies, marker, end; and 36027 bytes in frames of 500.
    EXPECT_EQ(segments("frame-size=500"), 5 + 73);
    EXPECT_LT(segments("frame-size=500,segments=packed"), 10);
}

// ---- faults --------------------------------------------------------------------

TEST_F(Net, FaultsOfTheConnection)
{
    const std::string options = "--net flatbed-326 --fault 'connect: ";
    const std::string steps = "timeout=300 " + std::string(kConnect);
    EXPECT_EQ(output(options + "timeout'", steps), "connect ok\nraw 0 timeout\n");
    EXPECT_EQ(output(options + "half-close'", steps), "connect ok\nraw 0 closed\n");
    EXPECT_EQ(output(options + "unplug'", steps), "connect ok\nraw 0 timeout\n");
    // The second connection is as good as new.
    EXPECT_EQ(output(options + "timeout'", steps + "close " + steps),
              tickled("").insert(0, "connect ok\nraw 0 timeout\nclose\n"));
    const std::string reset = output(options + "reset'", "timeout=300 connect=10.83.0.11 raw=9");
    EXPECT_EQ(reset, "connect ok\nraw 0 reset\n");
}

TEST_F(Net, FaultsOfTheTickle)
{
    const std::pair<const char*, const char*> cases[] = {
        {"timeout", "raw 0 timeout"},
        {"silence", "raw 0 timeout"},
        {"vanish", "raw 0 timeout"},
        {"half-close", "raw 0 closed"},
        {"half-close 4", "raw 4 48 42 4E 33 closed"},
        {"reset 8", "raw 8 48 42 4E 33 00 00 00 00 reset"},
        {"garbage 9", "raw 9 DB DB DB DB DB DB DB DB DB"},
        {"truncate 3", "raw 3 48 42 4E timeout"},
        {"magic", "raw 9 58 42 4E 33 00 00 00 00 00"},
        {"length 0x01020304", "raw 9 48 42 4E 33 00 01 02 03 04"}};
    for (const auto& [fault, expected] : cases) {
        EXPECT_EQ(disturbed(std::string("tickle: ") + fault, ""),
                  std::string("connect ok\n") + expected + "\n")
            << fault;
    }
    EXPECT_EQ(disturbed("tickle: extra 2", "raw=2"), tickled("raw 2 A5 A5\n"));
    EXPECT_EQ(disturbed("tickle: delay 400", "raw=9"),
              "connect ok\nraw 0 timeout\nraw 9 48 42 4E 33 00 00 00 00 00\n");
}

TEST_F(Net, FaultsOfACommand)
{
    const std::pair<const char*, const char*> cases[] = {
        {"timeout", "frame 0 timeout in the header after 0\n"},
        {"reset", "frame 0 reset in the header after 0\n"},
        {"half-close", "frame 0 closed in the header after 0\n"},
        {"unplug", "frame 0 timeout in the header after 0\n"}};
    for (const auto& [fault, expected] : cases) {
        EXPECT_EQ(disturbed(std::string("command properties: ") + fault, "write=properties frame"),
                  tickled(expected))
            << fault;
    }
}

TEST_F(Net, FaultsOfAReply)
{
    const std::string start = " 1B 53 03 00 3A 00 80 00\n";
    const std::pair<const char*, std::string> cases[] = {
        {"reset", "frame 0 reset in the header after 0\n"},
        {"reset 12", "frame 3 1B 53 03 reset of 66\n"},
        {"reset 1000", "frame 66" + start},
        {"half-close 5", "frame 0 closed in the header after 5\n"},
        {"silence 75", "frame 66" + start},
        {"vanish 10", "frame 1 1B timeout of 66\n"},
        {"magic", "frame 0 no frame but 58 42 4E 33 00 00 00 00 42\n"},
        {"length 0", "frame 0\n"},
        {"length 1", "frame 1 1B\n"},
        {"length 0xFFFFFFFF", "frame 0 of 4294967295\n"},
        {"length 100", "frame 66 1B 53 03 00 3A 00 80 00 timeout of 100\n"},
        {"lose 2", "frame 64 1B 53 03 00 3A 00 80 00 timeout of 66\n"},
        {"truncate 3", "frame 3 1B 53 03\n"},
        {"garbage 4", "frame 4 DB 00 25 4A\n"},
        {"zero", "frame 0\n"},
        {"short 3", "frame 3 1B 53 03\n"},
        {"stray 2", "frame 2 DB 00\n"}};
    for (const auto& [fault, expected] : cases) {
        EXPECT_EQ(disturbed(std::string("reply properties: ") + fault, "write=properties frame"),
                  tickled(expected))
            << fault;
    }
    EXPECT_EQ(disturbed("reply properties: extra 3", "write=properties frame raw=3"),
              tickled("frame 66" + start + "raw 3 A5 A5 A5\n"));
    EXPECT_EQ(disturbed("reply properties: reset 1000", "write=properties frame raw=1"),
              tickled("frame 66" + start + "raw 0 reset\n"));
    EXPECT_EQ(disturbed("reply properties: delay 400", "write=properties raw=1 raw=9"),
              tickled("raw 0 timeout\nraw 9 48 42 4E 33 00 00 00 00 42\n"));
}

TEST_F(Net, FaultsOfBlocks)
{
    const std::string scan = "write=lock frame write=start frame page=/dev/null";
    const std::string begun = std::string(kLockReply) + kStartReply;
    const std::pair<const char*, const char*> cases[] = {
        {"block 3: reset 100", "page of 6109 bytes reset of 3009\n"},
        {"block 3: half-close", "page of 6018 bytes closed in the header after 0\n"},
        {"block 3: vanish 5", "page of 6018 bytes timeout in the header after 5\n"},
        {"block 3: timeout", "page of 6018 bytes timeout in the header after 0\n"},
        {"block 3: lose 1", "page of 9027 bytes no frame but 42 4E 33 00 00 00 20 00 1B\n"},
        {"end: silence", "page of 36108 bytes timeout in the header after 0\n"},
        {"end: half-close 18", "page record 1\nframes 3340 to 8192\n"},
        {"marker: reset", "page of 0 bytes reset in the header after 0\n"}};
    for (const auto& [fault, expected] : cases) {
        EXPECT_EQ(disturbed(fault, scan), tickled(begun + expected)) << fault;
    }
}

TEST_F(Net, WhatWasSaidBeforeAFaultArrives)
{
    // The host's window, the scanner's send buffer, and more than both.
    for (unsigned block : {10U, 44U, 50U, 56U, 500U}) {
        const std::string text =
            disturbed("block " + std::to_string(block) + ": reset",
                      "write=tall-lock frame write=tall-start frame wait=200 page=/dev/null");
        EXPECT_NE(text.find("page of " + std::to_string((block - 1) * 3009) + " bytes"),
                  std::string::npos)
            << text;
    }
}

TEST_F(Net, AFaultOfOneFrameLeavesTheOthersOfItsBlock)
{
    const Outcome outcome = probe(
        "--record " + folder.path("pages") +
            " --net flatbed-326,frame-size=1000,block-size=3000 --fault 'block 2: length 1000'",
        kConnect + std::string("write=lock frame write=start frame page=") + folder.path("pixels") +
            " write=unlock frame");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_TRUE(readAll(folder.path("pixels")) ==
                samples(folder.path("pages/dev1-flatbed-326-001.pnm")))
        << outcome.output;
}

TEST_F(Net, AHostThatIsCutOffCanComeAgain)
{
    const std::string steps = "timeout=300 " + std::string(kConnect) +
                              "write=properties frame close " + "control='device 1: plug' " +
                              kConnect + "write=properties frame close";
    for (const char* fault : {"reset", "half-close", "vanish", "silence 20", "timeout"}) {
        const std::string text = output(
            std::string("--net flatbed-326 --fault 'reply properties: ") + fault + "'", steps);
        EXPECT_NE(text.find("frame 66 1B 53 03 00 3A 00 80 00\nclose\n"), std::string::npos)
            << fault << "\n"
            << text;
    }
}

TEST_F(Net, VanishedScannersAreNotEvenFound)
{
    for (const char* link : {"", "--veth "}) {
        const std::string text =
            output(std::string(link) + "--net flatbed-326 --net combo-401",
                   "timeout=300 " + std::string(kConnect) +
                       "control='device 1: unplug' raw=1 search=200 close connect=10.83.0.11 "
                       "control='device 1: state?' control='device 1: plug' count=200 " +
                       kConnect);
        EXPECT_EQ(text, tickled("ok\nraw 0 timeout\n" +
                                answer("10.83.0.12", "400000000040", "Combo 401", "12344010") +
                                "answers 1\nclose\nconnect timeout\n"
                                "unplugged address=10.83.0.11 locked=no sheets=0 pages=0 "
                                "complaints=0\nok\nanswers 2\n" +
                                kTickled));
    }
}

TEST_F(Net, AReturnedScannerKnowsNothingOfTheConnection)
{
    const std::string text = disturbed("reply properties: replug",
                                       "write=properties wait=500 write=properties wait=100 raw=1");
    EXPECT_EQ(text.find("raw 1"), std::string::npos) << text;
    EXPECT_NE(text.find("reset\n"), std::string::npos) << text;
}

TEST_F(Net, ThePortCanBeClosed)
{
    EXPECT_EQ(output("--net flatbed-326,port=closed",
                     "connect=10.83.0.11 control='device 1: open-port' connect=10.83.0.11 tickle "
                     "control='device 1: close-port' connect=10.83.0.11"),
              "connect refused\nok\n" + tickled("ok\nconnect refused\n"));
}

TEST_F(Net, OneHostAtATime)
{
    const std::string first = std::string(SIMTEST_NET_PROBE) + " " + kConnect + "wait=700 close";
    const std::string second =
        std::string(SIMTEST_NET_PROBE) + " wait=300 timeout=200 connect=10.83.0.11 tickle raw=9";
    const auto both = [&](const std::string& keys) {
        return shell(std::string(SIMTEST_SCANNER_SIM) + " --net flatbed-326" + keys +
                     " -- sh -c '" + first + " > /dev/null & " + second + "; wait'");
    };
    EXPECT_NE(both("").output.find("raw 0 timeout\n"), std::string::npos);
    EXPECT_NE(both(",second-host=refused").output.find("reset\n"), std::string::npos);
    const Outcome later =
        shell(std::string(SIMTEST_SCANNER_SIM) + " --net flatbed-326 -- sh -c '" + first +
              " > /dev/null & " + SIMTEST_NET_PROBE + " wait=300 " + kConnect + "; wait'");
    EXPECT_NE(later.output.find(kTickled), std::string::npos) << later.output;
}

// ---- searches ------------------------------------------------------------------

TEST_F(Net, VariantsOfAnswers)
{
    const auto found = [](const std::string& keys) {
        return output("--net flatbed-326," + keys, "search=200");
    };
    const std::string head = "answer from 10.83.0.11:5353";
    EXPECT_EQ(found("answer.quotes=no"),
              head +
                  " IPADDRESS=10.83.0.11 MACUAA=400000000080 1284STRID=\"Flatbed 326\" "
                  "ADAPTERNAME=Flatbed 326 PRINTERVIDPID=12343260\nanswers 1\n");
    EXPECT_EQ(found("answer.vid-pid=0xDEAD0001,answer.adapter-name=none,answer.id-string=Den,"
                    "'answer.leave-out=IPADDRESS MACUAA'"),
              head + " 1284STRID=\"Den\" PRINTERVIDPID=\"DEAD0001\"\nanswers 1\n");
    EXPECT_EQ(found("answer.pointers=yes"), head + "\nanswers 1\n");
    EXPECT_EQ(found("answer.records=srv"), head + "\nanswers 1\n");
    const std::string good = answer("10.83.0.11", "400000000080", "Flatbed 326", "12343260");
    EXPECT_EQ(found("answer.question=yes,'answer.records=txt a srv'"), good + "answers 1\n");
    EXPECT_EQ(found("answer.count=0"), "answers 0\n");
    EXPECT_EQ(found("answer.count=3"), good + good + good + "answers 3\n");
}

TEST_F(Net, RightAnswersAmongOthers)
{
    const std::string good = answer("10.83.0.11", "400000000080", "Flatbed 326", "12343260");
    // So few that the searcher's socket holds them all.
    for (const char* kind : {"garbage", "foreign"}) {
        const std::string text =
            output(std::string("--net flatbed-326,answer.") + kind + "=40", "search=300");
        EXPECT_NE(text.find(good + "answers 41\n"), std::string::npos) << text;
        EXPECT_EQ(text.find("PRINTERVIDPID=\"FEED00") != std::string::npos,
                  std::string(kind) == "foreign");
    }
}

TEST_F(Net, LateAnswersAndFloods)
{
    const Outcome late = rawProbe("--net flatbed-326,answer.delay-ms=300", "search=500");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(late.output, match, std::regex("first after (\\d+) ms")));
    EXPECT_GE(std::stoi(match[1]), 295);
    EXPECT_LT(std::stoi(match[1]), 450);
    const std::string flood = output("--net flatbed-326,answer.flood-ms=400", "count=300");
    ASSERT_TRUE(std::regex_search(flood, match, std::regex("answers (\\d+)")));
    EXPECT_GT(std::stoi(match[1]), 500);
}

// ---- complaints ----------------------------------------------------------------

TEST_F(Net, ComplaintsDecideTheExitStatus)
{
    const std::pair<std::string, const char*> cases[] = {
        {"ask-wrongly", "a search in wrong words"},
        {"connect=10.83.0.11 write=properties send=00 raw=1", "does not begin with the tickle"},
        {kConnect + std::string("send=48424E330000000008 write=properties frame"),
         "only the tickle has a frame header"},
        {kConnect + std::string("write=unlock frame"), "unlock without a lock"},
        {kConnect + std::string("write=lock frame"), "the host left the scanner locked"},
        {kConnect + std::string("write=lock frame close wait=100"),
         "the host left the scanner locked"}};
    for (const auto& [steps, complaint] : cases) {
        const Outcome outcome = probe("--net flatbed-326", steps);
        EXPECT_EQ(outcome.status, 99) << steps;
        EXPECT_NE(outcome.output.find(complaint), std::string::npos) << outcome.output;
    }
    EXPECT_EQ(probe("--tolerate --net flatbed-326", "ask-wrongly").status, 0);
}

TEST_F(Net, AnOpenConnectionAtTheEndIsNoComplaint)
{
    const Outcome outcome =
        probe("--net flatbed-326", kConnect + std::string("write=properties frame"));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(Net, OptionsThatCannotBe)
{
    const auto statusOf = [](const std::string& options) {
        return shell(std::string(SIMTEST_SCANNER_SIM) + " " + options + " -- true").status;
    };
    EXPECT_EQ(statusOf("--net flatbed-326 --fault 'claim: busy'"), 2);
    EXPECT_EQ(statusOf("--usb flatbed-326 --fault 'connect: reset'"), 2);
    EXPECT_EQ(statusOf("--net flatbed-326,ip=10.1.1.1 --net adf-402,ip=10.1.1.1"), 2);
    EXPECT_EQ(statusOf("--usb flatbed-326,ip=10.1.1.1 --net adf-402,ip=10.1.1.1"), 0);
    EXPECT_EQ(output("--usb flatbed-326", "control='device 1: open-port'"),
              "error: a scanner on USB has no port\ncontrol failed\n");
}

}  // namespace scansim::test
