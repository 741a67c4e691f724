// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <numeric>

#include "ChunkDamage.h"
#include "ChunkEncoder.h"
#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

constexpr std::size_t kMarkerSize = 31;
constexpr std::size_t kHeaderSize = 9;

struct Page {
    Bytes marker;
    Bytes stream;                    // the blocks without their headers
    std::vector<std::size_t> sizes;  // of the blocks
    Bytes end;
};

HostCommand compressedScan()
{
    HostCommand host;
    host.compression = 1;
    host.level = 6;
    host.lines = 45;
    host.pixels = 99;
    return host;
}

std::vector<std::string> with(const std::vector<std::string>& settings)
{
    std::vector<std::string> all = {"feeder.sheets=0", "stream=compressed", "compression-level=6"};
    all.insert(all.end(), settings.begin(), settings.end());
    return all;
}

Page readPage(Bench& bench, const HostCommand& host = compressedScan())
{
    Page page;
    bench.begin(host);
    page.marker = bench.read();
    for (;;) {
        const Bytes read = bench.read(65536);
        if (read.size() <= kHeaderSize) {
            page.end = read;
            return page;
        }
        page.sizes.push_back(read.size() - kHeaderSize);
        page.stream.insert(page.stream.end(), read.begin() + kHeaderSize, read.end());
    }
}

std::vector<Bytes> chunksOf(const Bytes& stream)
{
    std::vector<Bytes> chunks;
    for (std::size_t at = 0; at + 16 <= stream.size();) {
        const std::size_t size = std::max<std::size_t>(be32(&stream[at]), 16);
        const std::size_t end = std::min(at + size, stream.size());
        chunks.emplace_back(stream.begin() + static_cast<long>(at),
                            stream.begin() + static_cast<long>(end));
        at = end;
    }
    return chunks;
}

std::vector<std::uint32_t> fieldOf(const std::vector<Bytes>& chunks, std::size_t at)
{
    std::vector<std::uint32_t> values;
    for (const Bytes& chunk : chunks) {
        values.push_back(be32(&chunk[at]));
    }
    return values;
}

Bytes streamWith(const std::vector<std::string>& settings)
{
    Bench bench(with(settings));
    Page page = readPage(bench);
    EXPECT_EQ(page.end.at(8), 1);
    EXPECT_EQ(bench.complaints(), 0U);
    return page.stream;
}

int differentBits(const Bytes& a, const Bytes& b)
{
    int count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (int bits = a[i] ^ b[i]; bits != 0; bits &= bits - 1) {
            ++count;
        }
    }
    return count;
}

}  // namespace

TEST(CompressedPage, MarkerAnnouncesThePixels)
{
    Bench bench(with({}));
    const Page page = readPage(bench);
    EXPECT_EQ(page.marker.size(), kMarkerSize);
    EXPECT_EQ(page.marker.at(10), 0);
    EXPECT_EQ(le32(&page.marker[11]), 99U);
    EXPECT_EQ(le32(&page.marker[15]), 45U);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(CompressedPage, BandsWithAnOddLastOne)
{
    using Lines = std::vector<std::uint32_t>;
    EXPECT_EQ(fieldOf(chunksOf(streamWith({"band-lines=32"})), 4), (Lines{32, 13}));
    EXPECT_EQ(fieldOf(chunksOf(streamWith({"band-lines=16"})), 4), (Lines{16, 16, 13}));
    EXPECT_EQ(fieldOf(chunksOf(streamWith({"band-lines=8"})), 4), (Lines{8, 8, 8, 8, 8, 5}));
    EXPECT_EQ(fieldOf(chunksOf(streamWith({})), 8), (Lines{99, 99}));
}

TEST(CompressedPage, QualitiesTakeTurns)
{
    EXPECT_EQ(fieldOf(chunksOf(streamWith({"band-lines=8", "quality=90 0 -1"})), 12),
              (std::vector<std::uint32_t>{90, 0, 0xFFFFFFFF, 90, 0, 0xFFFFFFFF}));
}

TEST(CompressedPage, ColoursMakeThreeChannels)
{
    Bench colour(with({}));
    Bench grey(with({}));
    HostCommand host = compressedScan();
    const Bytes coloured = readPage(colour, host).stream;
    host.colour = 2;
    const Bytes uncoloured = readPage(grey, host).stream;
    EXPECT_EQ(grey.complaints(), 0U);
    EXPECT_EQ(fieldOf(chunksOf(uncoloured), 4), fieldOf(chunksOf(coloured), 4));
    EXPECT_LT(uncoloured.size(), coloured.size());
}

TEST(CompressedPage, BlocksDoNotDependOnChunks)
{
    const Bytes whole = streamWith({"band-lines=8", "block-size=65000"});
    for (const std::uint32_t size : {1U, 512U, 1000U, 4096U}) {
        Bench bench(with({"band-lines=8", "block-size=" + std::to_string(size)}));
        const Page page = readPage(bench);
        EXPECT_TRUE(page.stream == whole) << size;
        for (std::size_t i = 0; i + 1 < page.sizes.size(); ++i) {
            EXPECT_EQ(page.sizes[i], size);
        }
        EXPECT_EQ(page.end.at(8), 1);
    }
}

TEST(CompressedPage, PackedBlocksShareTransfers)
{
    Bench bench(with({"block-size=512", "block-transfers=packed"}));
    bench.begin(compressedScan());
    bench.read();
    EXPECT_EQ(bench.read(3 * 521).size(), 3U * 521);
}

TEST(CompressedPage, HostHasToAskForCompression)
{
    Bench bench(with({}));
    HostCommand host;
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.read().at(6), 0x81);
    EXPECT_EQ(bench.complaints(), 2U);
}

TEST(CompressedPage, PropertiesNameTheTechnique)
{
    Bench bench(with({}));
    bench.send(CommandId::Properties);
    EXPECT_EQ(bench.read(512).at(8 + 3), 2);
}

TEST(CompressedPage, LayoutOfLinesComesFirst)
{
    const Bytes plain = streamWith({});
    const Bytes swapped = streamWith({"colour-order=bgr"});
    const Bytes mirrored = streamWith({"flatbed.mirrored=1"});
    EXPECT_FALSE(plain == swapped);
    EXPECT_FALSE(plain == mirrored);
}

TEST(CompressedPage, RecordsChunksAndTheirSource)
{
    TempFolder folder;
    Bench bench(with({"band-lines=16"}), folder.path("page-"));
    const Page page = readPage(bench);
    const std::string chunks = readAll(folder.path("page-001.wck"));
    EXPECT_TRUE(Bytes(chunks.begin(), chunks.end()) == page.stream);

    Bench raw({"feeder.sheets=0"}, folder.path("raw-"));
    HostCommand host = compressedScan();
    host.compression = 0;
    host.level = 0;
    readPage(raw, host);
    EXPECT_TRUE(readAll(folder.path("page-001.pnm")) == readAll(folder.path("raw-001.pnm")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("raw-001.wck")));
}

TEST(CompressedPage, RecordHoldsOnlyBandsThatWereSent)
{
    TempFolder folder;
    const std::size_t first = chunksOf(streamWith({"band-lines=8"})).at(0).size();
    {
        Bench bench(with({"band-lines=8", "block-size=" + std::to_string(first + 1)}),
                    folder.path("cut-"));
        bench.begin(compressedScan());
        bench.read();
        bench.read(65536);
        bench.send(CommandId::Cancel);
    }
    EXPECT_EQ(readAll(folder.path("cut-001.pnm")).substr(0, 16), "P6\n99          8");
    EXPECT_EQ(readAll(folder.path("cut-001.wck")).size(), first + 1);
}

TEST(CompressedPage, CutsBytesAtTheEnd)
{
    const Bytes whole = streamWith({});
    for (const std::size_t cut : {std::size_t{1}, std::size_t{700}, whole.size() - 1}) {
        const Bytes rest = streamWith({"fault=page: cut " + std::to_string(cut)});
        ASSERT_EQ(rest.size(), whole.size() - cut);
        EXPECT_TRUE(std::equal(rest.begin(), rest.end(), whole.begin()));
    }
    EXPECT_TRUE(streamWith({"fault=page: cut 1000000"}).empty());
}

TEST(ChunkFault, FlipsBitsOfOneChunk)
{
    const std::vector<Bytes> good = chunksOf(streamWith({"band-lines=16"}));
    for (const int bits : {1, 7, 100}) {
        const std::vector<Bytes> bad = chunksOf(
            streamWith({"band-lines=16", "fault=chunk 2: flip-bits " + std::to_string(bits)}));
        ASSERT_EQ(bad.size(), good.size());
        EXPECT_EQ(bad[0], good[0]);
        EXPECT_EQ(bad[2], good[2]);
        EXPECT_TRUE(std::equal(bad[1].begin(), bad[1].begin() + 16, good[1].begin()));
        EXPECT_EQ(differentBits(bad[1], good[1]), bits);
    }
}

TEST(ChunkFault, SpreadsTheBits)
{
    Bytes chunk(18);
    damageChunk(chunk, {FaultAction::FlipBits, 2});
    EXPECT_EQ(chunk, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0x08}));
}

TEST(ChunkFault, MoreBitsThanThereAreFlipsAll)
{
    Bytes chunk(20);
    damageChunk(chunk, {FaultAction::FlipBits, 1000});
    EXPECT_EQ(chunk, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255}));
}

TEST(ChunkFault, TruncatedChunkKeepsItsSizeField)
{
    const std::vector<Bytes> good = chunksOf(streamWith({"band-lines=16"}));
    const Bytes stream = streamWith({"band-lines=16", "fault=chunk: truncate 40"});
    EXPECT_EQ(be32(&stream[0]), good[0].size());
    EXPECT_EQ(be32(&stream[40]), good[1].size());
    EXPECT_EQ(stream.size(), 40 + good[1].size() + good[2].size());
}

TEST(ChunkFault, ChunksMayBeCutToNothing)
{
    TempFolder folder;
    Bench bench(with({"band-lines=16", "fault=chunk always: truncate 0"}), folder.path("none-"));
    const Page page = readPage(bench);
    EXPECT_TRUE(page.stream.empty());
    EXPECT_EQ(page.end.at(8), 1);
    EXPECT_EQ(readAll(folder.path("none-001.pnm")).substr(0, 16), "P6\n99         45");
}

TEST(ChunkFault, ShortenedChunkSaysSo)
{
    const Bytes good = chunksOf(streamWith({})).at(0);
    const Bytes bad = chunksOf(streamWith({"fault=chunk: shorten 10"})).at(0);
    EXPECT_EQ(bad.size(), good.size() - 10);
    EXPECT_EQ(be32(&bad[0]), bad.size());
    const Bytes none = chunksOf(streamWith({"fault=chunk: shorten 1000000"})).at(0);
    EXPECT_EQ(none.size(), 16U);
}

TEST(ChunkFault, HeaderFields)
{
    const auto size = static_cast<std::uint32_t>(chunksOf(streamWith({})).at(0).size());
    const struct {
        const char* action;
        std::size_t at;
        std::uint32_t value;
    } cases[] = {
        {"size 0", 0, 0},
        {"size 15", 0, 15},
        {"size 0xFFFFFFFF", 0, 0xFFFFFFFF},
        {"oversize 3", 0, size + 3},
        {"undersize", 0, size - 1},
        {"lines 0", 4, 0},
        {"lines 0x80000000", 4, 0x80000000},
        {"pixels", 8, 0},
        {"pixels 100000", 8, 100000},
        {"quality 0xFFFFFFFF", 12, 0xFFFFFFFF},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.action);
        const Bytes good = streamWith({});
        Bytes bad = streamWith({std::string("fault=chunk: ") + one.action});
        EXPECT_EQ(be32(&bad[one.at]), one.value);
        std::copy_n(good.begin() + static_cast<long>(one.at), 4,
                    bad.begin() + static_cast<long>(one.at));
        EXPECT_TRUE(bad == good);
    }
}

TEST(ChunkFault, CountsChunksOfAllPages)
{
    Bench bench(with({"fault=chunk 3: lines 9"}));
    EXPECT_EQ(be32(&readPage(bench).stream[4]), 32U);
    bench.send(CommandId::Unlock);
    bench.read();
    EXPECT_EQ(be32(&readPage(bench).stream[4]), 9U);
}

TEST(ChunkFault, ExcusesUnusualHosts)
{
    Bench bench(with({"fault=chunk: size 0"}));
    bench.begin(compressedScan());
    bench.read();
    bench.read();
    bench.send(CommandId::Unlock);
    EXPECT_EQ(bench.complaints(), 0U);
}

}  // namespace scansim::test
