// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "Support.h"

namespace scansim::test {

namespace {

const Bytes kUnlocked = {0x1B, 0x53, 0x06, 0, 0, 0, 0x80, 2};

// Reads a page to its end record; gives all that came before it, record by record.
std::vector<Bytes> readPage(Bench& bench, std::size_t capacity = 4096)
{
    std::vector<Bytes> reads;
    for (;;) {
        Bytes bytes = bench.read(capacity);
        if (bytes.empty()) {
            return reads;
        }
        reads.push_back(std::move(bytes));
    }
}

std::size_t imageSize(const std::vector<Bytes>& reads)
{
    std::size_t size = 0;
    for (const Bytes& read : reads) {
        size += read.size();
    }
    return size;
}

HostCommand feederScan()
{
    HostCommand host;
    host.protocol = 401;
    host.source = 4;
    return host;
}

}  // namespace

TEST(Scanner, RepliesByteForByte)
{
    Bench bench({"protocol=402"});
    bench.send(CommandId::Wake);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x44, 0x04, 0, 0, 0, 0x80, 2}));
    bench.send(CommandId::FeederStatus);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x53, 0x04, 0, 0, 0, 0x80, 2}));
    HostCommand host;
    host.protocol = 402;
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x53, 0x05, 0, 0, 0, 0x80, 2}));
    bench.send(host, CommandId::Start);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x53, 0x01, 0, 0, 0, 0x80, 2}));
    readPage(bench);
    bench.send(CommandId::Unlock);
    EXPECT_EQ(bench.read(), kUnlocked);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Scanner, PropertiesReply)
{
    Bench bench({"properties.major=3", "properties.minor=4", "properties.codeset=5",
                 "properties.compression=2", "properties.colour-alignment=6",
                 "properties.grey-alignment=7", "flatbed.bar-id=9", "flatbed.origin=0x01020304",
                 "flatbed.resolutions=75 150x300@8", "sources=flatbed"});
    bench.send(CommandId::Properties);
    EXPECT_EQ(
        bench.read(512),
        (Bytes{
            0x1B, 0x53, 0x03, 0, 40, 0, 0x80, 0,  // header: 7 + 15 + 2 * 9
            3,    4,    5,    2, 6,  7, 1,        // versions ... one source
            1,    9,    4,    3, 2,  1, 0xF8, 0x09, 0,  0,   0xB4, 0x0D, 0, 0,    2,  // 2552 x 3508
            75,   0,    0,    0, 75, 0, 0,    0,    24, 150, 0,    0,    0, 0x2C, 1, 0, 0, 8}));
}

TEST(Scanner, FeederStatusTellsOfFeederAndPaper)
{
    Bench none({"sources=flatbed"});
    none.send(CommandId::Properties);
    EXPECT_EQ(none.read().at(7), 0);
    Bench empty({"feeder.sheets=0"});
    empty.send(CommandId::FeederStatus);
    EXPECT_EQ(empty.read().at(7), 1);
    empty.scanner->loadSheets(1);
    empty.send(CommandId::FeederStatus);
    EXPECT_EQ(empty.read().at(7), 2);
}

class Framing : public testing::TestWithParam<std::pair<std::uint32_t, std::size_t>> {};
INSTANTIATE_TEST_SUITE_P(Scanner, Framing,
                         testing::Values(std::pair(326U, 9U), std::pair(401U, 10U),
                                         std::pair(402U, 31U)));

TEST_P(Framing, BlocksMarkerAndEnd)
{
    const auto [protocol, header] = GetParam();
    const std::size_t surplus = header == 31 ? 23 : header - 8;
    Bench bench({"protocol=" + std::to_string(protocol), "feeder.sheets=0"});
    HostCommand host;
    host.protocol = protocol;
    bench.begin(host);
    const std::vector<Bytes> reads = readPage(bench);
    // 100 x 20 pixels of three bytes: six blocks of 1000
    ASSERT_EQ(reads.size(), 8U);
    EXPECT_EQ(reads[0], (Bytes{0x1B, 0x53, 0x02, 0, 23, 0, 0x80, 1, 9, 0, 0, 100, 0, 0, 0, 20,
                               0,    0,    0,    0, 0,  0, 0,    0, 0, 0, 0, 0,   0, 0, 0}));
    for (std::size_t i = 1; i <= 6; ++i) {
        EXPECT_EQ(reads[i].size(), header + 1000);
        EXPECT_EQ(le16(&reads[i][4]), 1000 + surplus);
        EXPECT_EQ(reads[i][2], 0x02);
        EXPECT_EQ(reads[i][8], 0);
    }
    EXPECT_EQ(reads[7].size(), header);
    EXPECT_EQ(reads[7][8], 1);
    EXPECT_EQ(le16(&reads[7][4]), surplus);
}

TEST(Scanner, LastBlockIsAsShortAsThePage)
{
    Bench bench({"feeder.sheets=0", "block-size=4097"});
    bench.begin(HostCommand());
    const std::vector<Bytes> reads = readPage(bench, 100000);
    ASSERT_EQ(reads.size(), 4U);
    EXPECT_EQ(reads[1].size(), 9U + 4097U);
    EXPECT_EQ(reads[2].size(), 9U + 1903U);
}

TEST(Scanner, LongTransfersComeInPieces)
{
    Bench bench({"feeder.sheets=0", "block-size=5000"});
    bench.begin(HostCommand());
    const std::vector<Bytes> reads = readPage(bench, 4096);
    ASSERT_EQ(reads.size(), 5U);
    EXPECT_EQ(reads[1].size(), 4096U);
    EXPECT_EQ(reads[2].size(), 9U + 5000U - 4096U);
    EXPECT_EQ(reads[3].size(), 9U + 1000U);
}

TEST(Scanner, PackedBlocksFillEveryReadButTheLast)
{
    Bench bench({"feeder.sheets=0", "block-transfers=packed"});
    bench.begin(HostCommand());
    const std::vector<Bytes> reads = readPage(bench, 4096);
    ASSERT_EQ(reads.size(), 4U);
    EXPECT_EQ(reads[0].size(), 31U);
    EXPECT_EQ(reads[1].size(), 4096U);
    EXPECT_EQ(reads[2].size(), 6U * 1009U - 4096U);
    EXPECT_EQ(reads[3].size(), 9U);
}

TEST(Scanner, PageIsOverOnlyWithItsEndRecord)
{
    for (const char* transfers : {"block-transfers=packed", "block-transfers=separate"}) {
        Bench bench({"feeder.sheets=0", "block-size=6000", transfers});
        bench.begin(HostCommand());
        bench.read();
        EXPECT_EQ(bench.read(100000).size(), 6009U);
        bench.send(CommandId::Unlock);
        EXPECT_EQ(bench.complaints(), 1U) << transfers;
    }
}

TEST(Scanner, PacksTheSameBytesAsItSendsSeparately)
{
    Bench separate({"feeder.sheets=0"});
    Bench packed({"feeder.sheets=0", "block-transfers=packed"});
    Bytes all[2];
    int which = 0;
    for (Bench* bench : {&separate, &packed}) {
        bench->begin(HostCommand());
        for (const Bytes& read : readPage(*bench, 512)) {
            all[which].insert(all[which].end(), read.begin(), read.end());
        }
        ++which;
    }
    EXPECT_EQ(all[0], all[1]);
}

TEST(Scanner, CommandsHaveTheirOrder)
{
    HostCommand host;
    Bench start({"feeder.sheets=0"});
    start.send(host, CommandId::Start);
    EXPECT_EQ(start.complaints(), 2U);  // no lock, and so other parameters than it

    Bench differs({"feeder.sheets=0"});
    differs.send(host, CommandId::Lock);
    host.lines = 30;
    differs.send(host, CommandId::Start);
    EXPECT_EQ(differs.complaints(), 1U);

    Bench idle;
    idle.send(CommandId::Unlock);
    idle.send(CommandId::Cancel);
    EXPECT_EQ(idle.complaints(), 2U);

    Bench early({"feeder.sheets=0"});
    early.begin(HostCommand());
    early.send(CommandId::Unlock);
    EXPECT_EQ(early.complaints(), 1U);

    Bench again({"feeder.sheets=0"});
    again.begin(HostCommand());
    again.send(HostCommand(), CommandId::Start);
    EXPECT_EQ(again.complaints(), 1U);

    Bench left({"feeder.sheets=0"});
    left.begin(HostCommand());
    left.scanner->hostLeft();
    EXPECT_EQ(left.complaints(), 1U);
}

TEST(Scanner, WakeIsOfProtocol402Only)
{
    Bench old({"protocol=401"});
    old.send(CommandId::Wake);
    EXPECT_EQ(old.complaints(), 1U);
    Bench asleep({"protocol=402"});
    HostCommand host;
    host.protocol = 402;
    asleep.send(host, CommandId::Lock);
    EXPECT_EQ(asleep.complaints(), 1U);
    asleep.send(CommandId::Properties);
    EXPECT_EQ(asleep.complaints(), 2U);
}

TEST(Scanner, FeederTakesASheetForEveryPage)
{
    Bench bench({"protocol=401", "feeder.sheets=2"});
    for (int sheet = 0; sheet < 2; ++sheet) {
        bench.begin(feederScan());
        readPage(bench);
        bench.send(CommandId::Unlock);
        EXPECT_EQ(bench.read().at(7), sheet == 0 ? 2 : 1);
    }
    EXPECT_EQ(bench.complaints(), 0U);
    bench.send(feederScan(), CommandId::Lock);
    bench.read();
    bench.send(feederScan(), CommandId::Start);
    EXPECT_EQ(bench.read().at(6), 0x88);
    EXPECT_EQ(bench.complaints(), 1U);
    EXPECT_TRUE(bench.read().empty());
}

TEST(Scanner, SheetsLookDifferent)
{
    Bench bench({"protocol=401"});
    std::vector<Bytes> pages[2];
    for (std::vector<Bytes>& page : pages) {
        bench.begin(feederScan());
        page = readPage(bench);
        bench.send(CommandId::Unlock);
        bench.read();
    }
    EXPECT_NE(pages[0][1], pages[1][1]);
}

TEST(Scanner, ShortSheetEndsThePage)
{
    Bench bench({"protocol=401", "feeder.sheet-height=40"});  // ten lines at 75 dpi
    bench.begin(feederScan());
    const std::vector<Bytes> reads = readPage(bench);
    EXPECT_EQ(imageSize(reads), 31U + 3 * 10U + 10 * 300U + 10U);
}

TEST(Scanner, OldProtocolTakesTheFeederFirst)
{
    Bench bench({"feeder.sheets=1"});
    bench.begin(HostCommand());
    EXPECT_EQ(bench.scanner->sheets(), 0U);
    readPage(bench);
    bench.send(CommandId::Unlock);
    bench.read();
    bench.begin(HostCommand());
    EXPECT_EQ(bench.scanner->pagesStarted(), 2U);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Scanner, CancelDropsThePageAndSaysSo)
{
    Bench bench({"feeder.sheets=0"});
    bench.begin(HostCommand());
    bench.read();
    bench.read(100);
    bench.send(CommandId::Cancel);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x53, 0x02, 0, 1, 0, 0x80, 1, 3}));
    EXPECT_TRUE(bench.read().empty());
    bench.send(CommandId::Unlock);
    bench.read();
    bench.begin(HostCommand());
    EXPECT_EQ(bench.read().at(8), 9);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Scanner, CancelMayLetSomeBlocksPass)
{
    Bench bench({"feeder.sheets=0", "blocks-after-cancel=2"});
    bench.begin(HostCommand());
    bench.read();
    bench.send(CommandId::Cancel);
    const std::vector<Bytes> reads = readPage(bench);
    ASSERT_EQ(reads.size(), 3U);
    EXPECT_EQ(reads[1].size(), 1009U);
    EXPECT_EQ(reads[2].at(8), 3);
}

TEST(Scanner, CancelAfterTheEndIsAnswered)
{
    Bench bench({"feeder.sheets=0"});
    bench.begin(HostCommand());
    readPage(bench);
    bench.send(CommandId::Cancel);
    EXPECT_EQ(bench.read().at(8), 3);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Scanner, RepliesWaitForThePage)
{
    Bench bench({"feeder.sheets=0"});
    bench.begin(HostCommand());
    bench.send(CommandId::FeederStatus);
    const std::vector<Bytes> reads = readPage(bench);
    ASSERT_EQ(reads.size(), 9U);
    EXPECT_EQ(reads[7].at(8), 1);
    EXPECT_EQ(reads[8].at(2), 0x04);
}

TEST(Scanner, StatusesComeFromTheModel)
{
    Bench bench({"status.lock=136", "status.wake=0x84", "feeder.sheets=0"});
    bench.send(HostCommand(), CommandId::Lock);
    EXPECT_EQ(bench.read().at(6), 136);
    EXPECT_FALSE(bench.scanner->isLocked());
    Bench odd({"status.lock=135", "status.start=127", "feeder.sheets=0"});
    odd.begin(HostCommand());
    EXPECT_EQ(odd.read().at(8), 9);
}

TEST(Scanner, FlipFlagFollowsTheStartReply)
{
    Bench bench({"flipped=yes", "feeder.sheets=0"});
    bench.send(HostCommand(), CommandId::Lock);
    bench.read();
    bench.send(HostCommand(), CommandId::Start);
    EXPECT_EQ(bench.read(), (Bytes{0x1B, 0x53, 0x01, 0, 2, 0, 0x80, 1, 0, 1}));
}

TEST(Scanner, BlocksKeepTheirTime)
{
    Bench bench({"feeder.sheets=0", "block-delay-ms=100"});
    bench.scanner->setNow(5000);
    bench.begin(HostCommand());
    EXPECT_EQ(bench.read().at(8), 9);
    EXPECT_TRUE(bench.read().empty());
    EXPECT_EQ(bench.scanner->nextWake(), std::optional<std::uint64_t>(5100));
    bench.scanner->setNow(5100);
    EXPECT_EQ(bench.read().size(), 1009U);
    EXPECT_TRUE(bench.read().empty());
    EXPECT_EQ(bench.scanner->nextWake(), std::optional<std::uint64_t>(5200));
}

TEST(Scanner, RecordsThePageThatPeopleSee)
{
    TempFolder folder;
    Bench bench({"protocol=401", "feeder.mirrored=1", "colour-order=bgr", "stream=interleaved",
                 "interleave.offset-x=3", "interleave.trim=2"},
                folder.path("page-"));
    bench.begin(feederScan());
    readPage(bench);
    const std::string file = readAll(folder.path("page-001.pnm"));
    const std::string header = "P6\n100         20\n255\n";
    ASSERT_EQ(file.size(), header.size() + 100U * 20 * 3);
    EXPECT_EQ(file.substr(0, header.size()), header);

    Bench plain({"protocol=401"}, folder.path("plain-"));
    plain.begin(feederScan());
    readPage(plain);
    EXPECT_EQ(readAll(folder.path("plain-001.pnm")), file);
}

TEST(Scanner, RecordHoldsOnlyLinesThatWereSent)
{
    TempFolder folder;
    {
        Bench bench({"feeder.sheets=0"}, folder.path("cut-"));
        bench.begin(HostCommand());
        bench.read();
        bench.read();
        bench.send(CommandId::Cancel);
    }
    EXPECT_EQ(readAll(folder.path("cut-001.pnm")).substr(0, 15), "P6\n100         ");
    EXPECT_EQ(readAll(folder.path("cut-001.pnm")).size(), 22U + 3 * 300U);
}

}  // namespace scansim::test
