// SPDX-License-Identifier: LGPL-2.1-or-later
// Compressed pages from the transport to the caller: whole ones however they are cut, and broken
// ones with the end that they deserve.
#include "TestEngine.h"
#include "wicket/Samples.h"
#include "wicket/ScalarPage.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <random>

using samples::BitWriter;
using samples::Pattern;
using testing::Combine;
using testing::IsEmpty;
using testing::TestWithParam;
using testing::Values;

namespace {

using Chunks = std::vector<Bytes>;

constexpr int kEof = 5;
constexpr int kIoError = 9;
constexpr int kDpi = 75;
constexpr std::size_t kOneBlock = SIZE_MAX / 2;

struct Band {
    Pattern pattern;
    int lines;
    int quality;
};

struct Page {
    int width;
    int channels;
    int lines;
    Chunks chunks;
};

Bytes join(const Chunks& chunks)
{
    Bytes stream;
    for (const Bytes& chunk : chunks) {
        stream.insert(stream.end(), chunk.begin(), chunk.end());
    }
    return stream;
}

Page pageOf(int width, int channels, const std::vector<Band>& bands)
{
    Page page = {width, channels, 0, {}};
    for (const Band& band : bands) {
        page.chunks.push_back(samples::chunkOf(
            samples::page(band.pattern, width, band.lines, channels), band.quality));
        page.lines += band.lines;
    }
    return page;
}

Bytes pixelsOf(const Page& page, const Bytes& stream)
{
    return samples::scalarPage(stream, page.width, page.channels);
}

int linesIn(const Page& page, const Bytes& pixels)
{
    const int stride = page.width * page.channels;
    EXPECT_EQ(static_cast<int>(pixels.size()) % stride, 0) << "a part of a line";
    return static_cast<int>(pixels.size()) / stride;
}

// Half a dot keeps the truncation away from the next lower number.
double millimetres(int dots)
{
    return (dots + 0.5) * 25.4 / kDpi;
}

class CompressedEngine : public TestEngine {
public:
    explicit CompressedEngine(const Page& page)
    {
        set("COMPRESSION", 1);
        set("COMPRESSIONTECH", 2);
        set("COLORDEPTH", page.channels);
        set("CURRENTDPI", kDpi);
        set("CURRENTBRX", millimetres(page.width));
        set("CURRENTBRY", millimetres(page.lines));
    }

    // Starts a frame and reads it to its end.
    Got scan(const std::deque<Step>& steps, int size)
    {
        startFrame();
        transport->steps = steps;
        return acquireAll(*this, size);
    }
};

// ---- whole pages -----------------------------------------------------------------------------

// Bands of all kinds; small blank ones come many at a time, an odd one is last.
std::vector<Band> manyBands()
{
    std::vector<Band> bands = {{Pattern::photo, 32, 75}, {Pattern::text, 16, 90}};
    for (int i = 0; i < 6; i++) {
        bands.push_back({Pattern::blank, 8, 50});
    }
    bands.push_back({Pattern::noise, 32, 95});
    bands.push_back({Pattern::gradient, 5, 0});
    return bands;
}

const Page& wholePage(std::size_t number)
{
    static const std::vector<Page> pages = {pageOf(80, 1, manyBands()), pageOf(83, 1, manyBands()),
                                            pageOf(80, 3, manyBands()), pageOf(77, 3, manyBands())};
    return pages.at(number % pages.size());
}

enum class Cut { bytes, small, medium, large, chunks, everything };

struct Cutting {
    const char* name;
    Cut cut;
    friend void PrintTo(const Cutting& c, std::ostream* out) { *out << c.name; }
};

class WholeCompressedPageTest : public TestWithParam<Cutting> {
protected:
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    // Blocks that end with a chunk, some with several of them.
    std::deque<Step> wholeChunks(const Chunks& chunks)
    {
        std::deque<Step> steps;
        for (std::size_t at = 0; at < chunks.size();) {
            const std::size_t count =
                std::min(chunks.size() - at, static_cast<std::size_t>(pick(1, 4)));
            const auto first = chunks.begin() + static_cast<std::ptrdiff_t>(at);
            steps.push_back({0, join({first, first + static_cast<std::ptrdiff_t>(count)})});
            at += count;
        }
        return steps;
    }

    std::deque<Step> pieces(const Bytes& stream)
    {
        const int largest[] = {1, 20, 600, 5000};
        const int limit = largest[static_cast<int>(GetParam().cut)];
        std::deque<Step> steps;
        for (auto at = stream.begin(); at != stream.end();) {
            const auto size = std::min<std::ptrdiff_t>(pick(1, limit), stream.end() - at);
            steps.push_back({0, Bytes(at, at + size)});
            at += size;
        }
        return steps;
    }

    // The end comes behind the last block or with it, and then there may be waiting, in that
    // block, what would have been several.
    void end(std::deque<Step>& steps)
    {
        const int style = pick(0, 2);
        const int merged = style == 2 ? pick(1, 300) : 0;
        for (int i = 0; i < merged && steps.size() > 1; i++) {
            const Bytes last = steps.back().bytes;
            steps.pop_back();
            steps.back().bytes = steps.back().bytes + last;
        }
        if (style > 0) {
            steps.back().result = 1;
        }
    }

    // No data yet, records, empty blocks.
    void addPauses(std::deque<Step>& steps)
    {
        const int results[] = {18, 9, 0};
        for (int i = pick(0, 5); i > 0; i--) {
            const auto at = steps.begin() + pick(0, static_cast<int>(steps.size()) - 1);
            steps.insert(at, {results[pick(0, 2)]});
        }
    }

    std::deque<Step> cut(const Page& page)
    {
        std::deque<Step> steps = GetParam().cut == Cut::chunks ? wholeChunks(page.chunks)
                                 : GetParam().cut == Cut::everything
                                     ? stepsOf(join(page.chunks), kOneBlock)
                                     : pieces(join(page.chunks));
        end(steps);
        addPauses(steps);
        return steps;
    }

    std::mt19937 random;
};

INSTANTIATE_TEST_SUITE_P(Cuts, WholeCompressedPageTest,
                         Values(Cutting{"Bytes", Cut::bytes}, Cutting{"Small", Cut::small},
                                Cutting{"Medium", Cut::medium}, Cutting{"Large", Cut::large},
                                Cutting{"Chunks", Cut::chunks},
                                Cutting{"Everything", Cut::everything}),
                         kByName);

TEST_P(WholeCompressedPageTest, ArrivesAsTheScalarDecoderMakesIt)
{
    for (unsigned seed = 0; seed < 48; seed++) {
        random.seed(seed * 6 + static_cast<unsigned>(GetParam().cut));
        const Page& page = wholePage(seed);
        const int sizes[] = {1, 7, 131, 8188, 32768, 1 << 20};
        const int size = sizes[pick(0, 5)];
        CompressedEngine engine(page);
        const Got got = engine.scan(cut(page), size);
        EXPECT_EQ(got.status, kEof) << seed;
        EXPECT_EQ(linesIn(page, got.bytes), page.lines) << seed;
        ASSERT_TRUE(got.bytes == pixelsOf(page, join(page.chunks)))
            << seed << ", reads of " << size;
        EXPECT_EQ(engine.count("command 5"), 1);
        engine.calls().clear();
        EXPECT_EQ(acquire(engine, size).status, kEof);
        EXPECT_THAT(engine.calls(), IsEmpty());
    }
}

// ---- broken pages ----------------------------------------------------------------------------

constexpr int kBandLines = 16;
constexpr std::size_t kSizeAt = 0;
constexpr std::size_t kLinesAt = 4;
constexpr std::size_t kWidthAt = 8;

void put(Bytes& chunk, std::size_t offset, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; i++) {
        chunk.at(offset + i) = static_cast<unsigned char>(value >> (24 - 8 * i));
    }
}

std::uint32_t sizeOf(const Bytes& chunk)
{
    return static_cast<std::uint32_t>(chunk.size());
}

// Five bands of 16 lines.
const Page& bandedPage(int channels)
{
    const auto make = [](int width, int count) {
        return pageOf(width, count, std::vector<Band>(5, {Pattern::noise, kBandLines, 90}));
    };
    static const Page grey = make(77, 1);
    static const Page colour = make(83, 3);
    return channels == 1 ? grey : colour;
}

Bytes chunkWithBody(const Bytes& chunk, const Bytes& body)
{
    Bytes other(chunk.begin(), chunk.begin() + 16);
    other = other + body;
    put(other, kSizeAt, sizeOf(other));
    return other;
}

struct Broken {
    const char* name;
    std::function<void(Chunks&)> spoil;
    int status;
    int lines;  // delivered
    friend void PrintTo(const Broken& c, std::ostream* out) { *out << c.name; }
};

// Sets a field of the chunk in the middle of the page, of which 32 lines come before.
std::function<void(Chunks&)> field(std::size_t offset, std::uint32_t value)
{
    return [=](Chunks& chunks) { put(chunks[2], offset, value); };
}

std::function<void(Chunks&)> sizeOffBy(int bytes)
{
    return [=](Chunks& chunks) {
        put(chunks[2], kSizeAt, sizeOf(chunks[2]) + static_cast<std::uint32_t>(bytes));
    };
}

// Only that much of the last chunk comes, or something else in its place.
std::function<void(Chunks&)> endAfter(std::size_t bytes)
{
    return [=](Chunks& chunks) { chunks[4].resize(std::min(bytes, chunks[4].size() - 1)); };
}

std::function<void(Chunks&)> endWith(const Bytes& padding)
{
    return [padding](Chunks& chunks) {
        chunks.pop_back();
        chunks.push_back(padding);
    };
}

std::function<void(Chunks&)> body(const Bytes& bytes)
{
    return [=](Chunks& chunks) { chunks[2] = chunkWithBody(chunks[2], bytes); };
}

std::function<void(Chunks&)> behind(const Bytes& bytes)
{
    return [=](Chunks& chunks) { chunks.push_back(bytes); };
}

Bytes tooManyCoefficients()
{
    BitWriter writer;
    writer.dc(1, 0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0);
    return writer.finish();
}

class BrokenPageTest : public TestWithParam<std::tuple<Broken, int>> {
protected:
    BrokenPageTest() : page(bandedPage(std::get<1>(GetParam())))
    {
        Chunks chunks = page.chunks;
        broken().spoil(chunks);
        stream = join(chunks);
    }
    static const Broken& broken() { return std::get<0>(GetParam()); }

    void expectEnd(CompressedEngine& engine, const std::deque<Step>& steps, int size)
    {
        const Bytes expected = pixelsOf(page, stream);
        EXPECT_EQ(linesIn(page, expected), broken().lines);
        const Got got = engine.scan(steps, size);
        EXPECT_EQ(got.status, broken().status);
        EXPECT_EQ(linesIn(page, got.bytes), broken().lines);
        EXPECT_TRUE(got.bytes == expected);
        EXPECT_EQ(engine.AcquireImageStatus, broken().status);
        EXPECT_EQ(engine.ScanInProgress, 0);
        EXPECT_EQ(engine.count("command 5"), 1);
        EXPECT_TRUE(engine.transport->steps.empty()) << "the device is not read to its end";

        engine.calls().clear();
        EXPECT_EQ(acquire(engine, size).status, broken().status);
        EXPECT_THAT(engine.calls(), IsEmpty());
    }

    void expectWholePage(CompressedEngine& engine, const std::deque<Step>& steps, int size)
    {
        const Got got = engine.scan(steps, size);
        EXPECT_EQ(got.status, kEof);
        EXPECT_TRUE(got.bytes == pixelsOf(page, join(page.chunks)));
    }

    const Page& page;
    Bytes stream;
};

TEST_P(BrokenPageTest, EndsWithItsStatus)
{
    CompressedEngine engine(page);
    for (const std::size_t block : {std::size_t{1}, std::size_t{37}, std::size_t{500}, kOneBlock}) {
        for (const int size : {131, 1 << 20}) {
            expectEnd(engine, stepsOf(stream, block), size);
            expectWholePage(engine, stepsOf(join(page.chunks), block), size);
        }
    }
}

// The end comes with the last bytes, so that more is held then than the caller takes at once.
TEST_P(BrokenPageTest, HandsOutAllGoodLinesBeforeItsStatus)
{
    CompressedEngine engine(page);
    for (const std::size_t block : {std::size_t{500}, kOneBlock}) {
        std::deque<Step> steps = stepsOf(stream, block);
        if (!steps.empty()) {
            steps.back().result = 1;
            expectEnd(engine, steps, 131);
            expectWholePage(engine, stepsOf(join(page.chunks), block), 131);
        }
    }
}

constexpr auto kByNameAndColour = [](const auto& info) {
    return std::string(std::get<0>(info.param).name) +
           (std::get<1>(info.param) == 1 ? "Grey" : "Colour");
};

INSTANTIATE_TEST_SUITE_P(
    Hidden, BrokenPageTest,
    Combine(Values(Broken{"Size0", field(kSizeAt, 0), kIoError, 32},
                   Broken{"Size1", field(kSizeAt, 1), kIoError, 32},
                   Broken{"Size11", field(kSizeAt, 11), kIoError, 32},
                   Broken{"SizeNegative", field(kSizeAt, 0x80000000), kIoError, 32},
                   Broken{"SizeMinusOne", field(kSizeAt, 0xFFFFFFFF), kIoError, 32},
                   Broken{"SizeHuge", field(kSizeAt, 0x7FFFFFFF), kIoError, 32},
                   Broken{"SizeOfNoBlock", field(kSizeAt, INT_MAX / 160 + 1), kIoError, 32},
                   Broken{"Width0", field(kWidthAt, 0), kIoError, 32},
                   Broken{"WidthNegative", field(kWidthAt, 0xFFFFFFFF), kIoError, 32}),
            Values(1, 3)),
    kByNameAndColour);

INSTANTIATE_TEST_SUITE_P(OutOfStep, BrokenPageTest,
                         Combine(Values(Broken{"Size12", field(kSizeAt, 12), kIoError, 48},
                                        Broken{"Size15", field(kSizeAt, 15), kIoError, 48},
                                        Broken{"Size16", field(kSizeAt, 16), kIoError, 48},
                                        Broken{"SizeBeyondTheEnd", field(kSizeAt, 1000000),
                                               kIoError, 32},
                                        Broken{"SizeTooLarge", sizeOffBy(1), kIoError, 48},
                                        Broken{"SizeMuchTooLarge", sizeOffBy(100), kIoError, 48},
                                        Broken{"SizeTooSmall", sizeOffBy(-1), kIoError, 48},
                                        Broken{"SizeMuchTooSmall", sizeOffBy(-100), kIoError, 48}),
                                 Values(1, 3)),
                         kByNameAndColour);

INSTANTIATE_TEST_SUITE_P(
    Lost, BrokenPageTest,
    Combine(Values(Broken{"WidthTooLarge", field(kWidthAt, 100000), kIoError, 64},
                   Broken{"WidthHuge", field(kWidthAt, 0x7FFFFFF9), kIoError, 64},
                   Broken{"LinesTooMany", field(kLinesAt, 100000), kIoError, 64},
                   Broken{"LinesHuge", field(kLinesAt, 0x7FFFFFFF), kIoError, 64},
                   Broken{"LinesNegative", field(kLinesAt, 0xFFFFFFFF), kIoError, 64},
                   Broken{"EndsInASizeField", endAfter(3), kIoError, 64},
                   Broken{"EndsBehindASizeField", endAfter(4), kIoError, 64},
                   Broken{"EndsInAHeader", endAfter(15), kIoError, 64},
                   Broken{"EndsInABody", endAfter(100), kIoError, 64},
                   Broken{"EndsOneByteEarly", endAfter(SIZE_MAX), kIoError, 64},
                   Broken{"ShortWithMoreThanZeros", endWith(Bytes(5000) + Bytes{1}), kIoError, 64}),
            Values(1, 3)),
    kByNameAndColour);

// What is wrong with these costs no lines.
INSTANTIATE_TEST_SUITE_P(
    Complete, BrokenPageTest,
    Combine(
        Values(Broken{"Short", endAfter(0), kEof, 64},
               Broken{"ShortWithZeros", endWith(Bytes(5000)), kEof, 64},
               Broken{"NothingAtAll", [](Chunks& chunks) { chunks.clear(); }, kEof, 0},
               Broken{"NoLinesInAChunk", field(kLinesAt, 0), kEof, 64},
               Broken{"OneLineInAChunk", field(kLinesAt, 1), kEof, 65},
               Broken{"NarrowChunk", field(kWidthAt, 1), kEof, 80},
               Broken{"InvalidCode", body(BitWriter().bits(0xFFFF, 16).finish()), kEof, 80},
               Broken{"NoBody", body({}), kEof, 80}, Broken{"ZeroBody", body(Bytes(300)), kEof, 80},
               Broken{"TooManyCoefficients", body(tooManyCoefficients()), kEof, 80},
               Broken{"PaddedByZeros", behind(Bytes(2)), kEof, 80},
               Broken{"PaddedByManyZeros", behind(Bytes(10000)), kEof, 80},
               Broken{"PaddedByOnes", behind(Bytes(100, 0xFF)), kEof, 80},
               Broken{"PaddedByPartOfAChunk", behind(samples::header(5000, 16, 80, 75)), kEof, 80},
               Broken{"PaddedByAChunkThatDoesNotFit", behind(samples::header(16, 100000, 80, 75)),
                      kEof, 80},
               Broken{"OneChunkMore", [](Chunks& chunks) { chunks.push_back(chunks[0]); }, kEof,
                      96}),
        Values(1, 3)),
    kByNameAndColour);

// A body of wrong bits is no broken page, wherever the bits are.
TEST(CompressedPageTest, WrongBitsCostNoLines)
{
    for (unsigned seed = 0; seed < 60; seed++) {
        std::mt19937 random(seed);
        const Page& page = bandedPage(seed % 2 == 0 ? 1 : 3);
        Chunks chunks = page.chunks;
        for (Bytes& chunk : chunks) {
            for (unsigned i = 0; i <= seed / 10; i++) {
                chunk[16 + random() % (chunk.size() - 16)] ^= static_cast<unsigned char>(random());
            }
        }
        CompressedEngine engine(page);
        const Got got = engine.scan(stepsOf(join(chunks), 1 + random() % 3000), 8188);
        EXPECT_EQ(got.status, kEof) << seed;
        EXPECT_EQ(linesIn(page, got.bytes), page.lines) << seed;
        EXPECT_TRUE(got.bytes == pixelsOf(page, join(chunks))) << seed;
    }
}

// ---- what a broken page costs ------------------------------------------------------------------

// What comes behind a chunk that hides the rest is read, and not kept.
TEST(CompressedPageTest, NothingPilesUpBehindAChunkThatHidesTheRest)
{
    constexpr int kBlock = 65536;
    constexpr int kBlocks = 1024;  // 64 MB
    const Page& page = bandedPage(3);
    for (const auto& spoil : {field(kSizeAt, 0), field(kSizeAt, 5), field(kSizeAt, 0x80000000),
                              field(kSizeAt, 0x7FFFFFFF), field(kWidthAt, 0)}) {
        Chunks chunks = page.chunks;
        spoil(chunks);
        CompressedEngine engine(page);
        engine.startFrame();
        engine.transport->steps = {{0, join(chunks)}};
        int reads = 0;
        int most = 0;
        engine.transport->lastStep = {0, Bytes(kBlock, 0x11), [&](ImageData*) {
                                          most = std::max({most, engine.Buffer->GetAllDataSize(),
                                                           engine.Image->GetAllDataSize()});
                                          if (++reads == kBlocks) {
                                              engine.transport->lastStep = {1};
                                          }
                                      }};
        const Got got = acquireAll(engine, 32768);
        EXPECT_EQ(got.status, kIoError);
        EXPECT_EQ(linesIn(page, got.bytes), 32);
        EXPECT_EQ(reads, kBlocks);
        EXPECT_LE(most, kBlock);
    }
}

// ---- cancelled pages ---------------------------------------------------------------------------

// The remains of a cancelled job are nobody's lost lines.
TEST(CompressedPageTest, ACancelledPageIsNotBroken)
{
    for (const std::uint32_t size : {0U, 5000U, 0x80000000U}) {
        const Page& page = bandedPage(1);
        Chunks chunks = page.chunks;
        put(chunks[2], kSizeAt, size);
        CompressedEngine engine(page);
        engine.startFrame();
        engine.transport->steps = stepsOf(join(chunks), 100);
        EXPECT_EQ(acquire(engine, 100).status, 0);
        EXPECT_EQ(engine.CancelAndFlush(), 0);
        EXPECT_TRUE(engine.transport->steps.empty());
        EXPECT_EQ(engine.AcquireImageStatus, kEof);
        EXPECT_EQ(acquire(engine, 100).status, kEof);
    }
}

TEST(CompressedPageTest, ACancelBehindAStuckChunkIsACancel)
{
    const Page& page = bandedPage(1);
    Chunks chunks = page.chunks;
    put(chunks[0], kSizeAt, 0);
    CompressedEngine engine(page);
    engine.startFrame();
    std::deque<Step> steps = stepsOf(join(chunks), 10);
    steps.at(20).during = [&](ImageData*) { engine.Interrupt(); };
    engine.transport->steps = steps;
    const ScanLib::Operation operation(engine);
    EXPECT_EQ(acquire(engine, 100).status, 2);
    EXPECT_EQ(acquire(engine, 100).status, 2);
    EXPECT_EQ(engine.count("command 0"), 1);
}

// A cancel of the next start leaves nothing of the page before to read.
TEST(CompressedPageTest, ACancelledStartForgetsThePageBefore)
{
    const Page& page = bandedPage(1);
    CompressedEngine engine(page);
    engine.set("COMMANDVERSION", 402);
    engine.startFrame();
    engine.transport->steps = {{1, join(page.chunks)}};
    EXPECT_EQ(acquire(engine, 77).status, 0);
    EXPECT_EQ(engine.AcquireImageStatus, kEof);
    engine.transport->onCommand = [&](int id) {
        if (id == 6) {
            engine.transport->writeResults[6] = 9;
            engine.Interrupt();
        }
    };
    const ScanLib::Operation operation(engine);
    EXPECT_EQ(engine.Start(), 2);
    const Got got = acquire(engine, 77);
    EXPECT_EQ(got.status, 2);
    EXPECT_THAT(got.bytes, IsEmpty());
}

}  // namespace
