// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Allocations.h"
#include "DeCompHandler.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>
#include <memory>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

// What the fake decompressor was asked, and what it shall do.
struct Script {
    int bytesGen = 0;
    int converted = -2;  // -2: the whole chunk, -3: leave *bytesConverted alone
    int pad = 0;
    int linesPerBand = 32;
    int result = CDecomp::DECOMP_LINE_COMPLETED;

    Lines calls;
    Bytes chunk;
    int outLen = 0;
    Bytes outStart;  // of the block as it was given
    bool wasOutGiven = false;
    int written = -1;  // bytes of the output; -1: somewhat more than bytesGen
    int created = 0;
    int destroyed = 0;
};

// Fills its output with bytes that count up from 1 over a whole block.
class FakeDecomp : public CDecomp {
public:
    explicit FakeDecomp(Script& s) : script(s) { ++script.created; }
    ~FakeDecomp() override { ++script.destroyed; }

    void StartDecomp(int width, int height, int channels, int bitsPerPixel) override
    {
        script.calls.push_back("start " + std::to_string(width) + " " + std::to_string(height) +
                               " " + std::to_string(channels) + " " + std::to_string(bitsPerPixel));
    }
    void EndDecomp() override {}
    int Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out, int outLen,
               int* bytesGen) override
    {
        EXPECT_EQ(*bytesConverted, 0);
        EXPECT_EQ(*bytesGen, 0);
        script.calls.push_back("decomp");
        script.chunk.assign(in, in + inLen);
        script.outLen = outLen;
        script.wasOutGiven = out != nullptr;
        if (out != nullptr) {
            script.outStart.assign(out, out + std::min(outLen, 10));
        }
        const int written = script.written >= 0 ? script.written : script.bytesGen + 100;
        for (int i = 0; out != nullptr && i < std::min(written, outLen); ++i) {
            out[i] = static_cast<unsigned char>(i + 1);
        }
        *bytesGen = script.bytesGen;
        if (script.converted != -3) {
            *bytesConverted = script.converted == -2 ? inLen : script.converted;
        }
        return script.result;
    }
    void SetQualityFactor(int quality) override
    {
        script.calls.push_back("quality " + std::to_string(quality));
    }
    int GetMaxLinesPerBand() override { return script.linesPerBand; }
    int GetNumPadBytesPerLine() override { return script.pad; }

private:
    Script& script;
};

class Handler : public DeCompHandler {
public:
    explicit Handler(Script& s) : script(s) {}
    ~Handler() override = default;

protected:
    std::unique_ptr<CDecomp> createDecompressor(int technology) override
    {
        if (technology != 2) {
            return nullptr;
        }
        return std::make_unique<FakeDecomp>(script);
    }

private:
    Script& script;
};

// A chunk of the given size: its size first, in network order, then what counts up.
Bytes chunk(int size, int announced = -1)
{
    const auto value = static_cast<unsigned>(announced < 0 ? size : announced);
    Bytes bytes = counting(size, 100);
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    }
    return bytes;
}

// The scan of the tests: ten grey pixels a line, compressed in technology 2.
class DeComp : public testing::Test {
protected:
    DeComp()
        : store({{"COMPRESSION", 1},
                 {"COMPRESSIONTECH", 2},
                 {"COMPRESSIONLEVEL", 7},
                 {"COLORDEPTH", 1}})
    {
        store.setWindow(10, 20);
        image.SetAttributes(10, 20, 10, GRAY, FLIP_OFF, COMPRESSION_ON, 7);
    }
    void start() { EXPECT_EQ(handler.Initialize(&store), 1); }
    // One line as the decoder makes it.
    Bytes line(int n) const { return counting(10, 1 + n * (10 + script.pad)); }
    Bytes lines(int from, int to) const
    {
        Bytes bytes;
        for (int n = from; n < to; ++n) {
            bytes = bytes + line(n);
        }
        return bytes;
    }
    void expect(const Bytes& processed, const Bytes& raw)
    {
        EXPECT_EQ(processedBytes(in), processed);
        EXPECT_EQ(rawBytes(in), raw);
    }

    Script script;
    TestStore store;
    ImageData image;
    DataBuffer in;
    Handler handler{script};
};

// ---- Initialize --------------------------------------------------------------------------

TEST_F(DeComp, BytesOfOtherTechnologiesStayAsTheyAre)
{
    for (const int technology : {0, 1, 3}) {
        store.SetIntOption("COMPRESSIONTECH", technology);
        DeCompHandler real;
        EXPECT_EQ(real.Initialize(&store), 1);
        DataBuffer bytes;
        bytes.SetRawData(counting(30, 1).data(), 30);
        EXPECT_EQ(real.Decompress(&bytes, &image), 1);
        EXPECT_EQ(bytes.GetProcessedDataSize(), 30);
    }
}

TEST_F(DeComp, InitializeStartsTheDecompressor)
{
    store.SetIntOption("COLORDEPTH", 3);
    const LogCapture capture;
    start();
    EXPECT_THAT(script.calls, ElementsAre("quality 7", "start 10 20 3 24"));
    EXPECT_THAT(
        capture.plainMessages(),
        testing::IsSupersetOf({"DeCompHandler Initialize called", "Compression is on",
                               "Type is Wicket4", "width = 10", "height = 20", "channels = 3"}));
}

TEST_F(DeComp, OnlyCompressionOneInTechnologyTwoIsCompressed)
{
    const std::pair<int, int> cases[] = {{0, 2}, {2, 2}, {-1, 2}, {1, 0}, {1, 1}, {1, 3}};
    for (const auto& [compression, technology] : cases) {
        Script other;
        Handler plain(other);
        store.SetIntOption("COMPRESSION", compression);
        store.SetIntOption("COMPRESSIONTECH", technology);
        const LogCapture capture;
        EXPECT_EQ(plain.Initialize(&store), 1);
        EXPECT_EQ(other.created, 0);
        EXPECT_EQ(capture.contains("Compression is on"), compression == 1);
        EXPECT_FALSE(capture.contains("Type is Wicket4"));
        EXPECT_FALSE(capture.contains("width = "));
        DataBuffer buffer;
        fill(buffer, {1}, {2, 3});
        const LogCapture more;
        EXPECT_EQ(plain.Decompress(&buffer, &image), 1);
        EXPECT_EQ(processedBytes(buffer), (Bytes{1, 2, 3}));
        EXPECT_THAT(more.plainMessages(), ElementsAre("Decompression is not needed."));
    }
}

TEST_F(DeComp, EveryScanGetsANewDecompressor)
{
    start();
    start();
    EXPECT_EQ(script.created, 2);
    EXPECT_EQ(script.destroyed, 1);
}

TEST_F(DeComp, TheDecompressorEndsWithItsHandler)
{
    {
        Handler other(script);
        other.Initialize(&store);
    }
    EXPECT_EQ(script.created, 1);
    EXPECT_EQ(script.destroyed, 1);
}

// The decompressor of an earlier scan stays in use.
TEST_F(DeComp, AnEarlierDecompressorStays)
{
    start();
    script.calls.clear();
    store.SetIntOption("COMPRESSION", 0);
    store.setWindow(12, 8);
    start();
    EXPECT_EQ(script.created, 1);
    EXPECT_THAT(script.calls, ElementsAre("quality 7", "start 12 8 1 8"));
    script.bytesGen = 12;
    append(in, chunk(20));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    expect(counting(12, 1), {});

    // Of another technology, all that is there is the chunk.
    store.SetIntOption("COMPRESSIONTECH", 1);
    start();
    append(in, counting(30, 50));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.chunk, counting(30, 50));
}

// ---- Decompress --------------------------------------------------------------------------

TEST_F(DeComp, BeforeInitializeDataPasses)
{
    fill(in, {1}, {2});
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    expect({1, 2}, {});
}

TEST_F(DeComp, InterleavedDataPasses)
{
    start();
    script.calls.clear();
    image.SetInterleaveInfo(1, 1, 0, 0, 0);
    fill(in, {1}, chunk(20));
    const LogCapture capture;
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    expect(Bytes{1} + chunk(20), {});
    EXPECT_THAT(script.calls, IsEmpty());
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre("Data needs interleaving so no decompression needed."));
}

TEST_F(DeComp, NothingIsNothing)
{
    start();
    fill(in, {1, 2});
    const LogCapture capture;
    EXPECT_EQ(handler.Decompress(&in, &image), 0);
    EXPECT_THAT(capture.plainMessages(), ElementsAre("There's nothing to decompress."));
    expect({1, 2}, {});
}

TEST_F(DeComp, AChunkBecomesLines)
{
    start();
    script.bytesGen = 30;
    fill(in, {77, 78}, chunk(20));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.chunk, chunk(20));
    expect(Bytes{77, 78} + lines(0, 3), {});
}

TEST_F(DeComp, PadBytesAreSkipped)
{
    for (const int pad : {1, 6, 40}) {
        script = Script();
        script.pad = pad;
        start();
        script.bytesGen = 30;
        in.Reset();
        append(in, chunk(20));
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        expect(lines(0, 3), {});
    }
}

TEST_F(DeComp, TheRemainderBehindTheLastLineIsDropped)
{
    start();
    for (const auto& [bytesGen, count] : {std::pair(39, 3), std::pair(9, 0), std::pair(11, 1)}) {
        script.bytesGen = bytesGen;
        in.Reset();
        append(in, chunk(20));
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        expect(lines(0, count), {});
    }
}

TEST_F(DeComp, APartialChunkWaits)
{
    start();
    script.bytesGen = 10;
    const Bytes whole = chunk(20);
    for (int size = 1; size < 20; ++size) {
        script.calls.clear();
        in.Reset();
        fill(in, {1}, slice(whole, 0, size));
        const LogCapture capture;
        EXPECT_EQ(handler.Decompress(&in, &image), 0);
        expect({1}, slice(whole, 0, size));
        EXPECT_THAT(script.calls, IsEmpty());
        EXPECT_THAT(capture.plainMessages(), ElementsAre("cannot decompress ... not enough data"))
            << size;
        append(in, slice(whole, size, 20));
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        EXPECT_EQ(script.chunk, whole);
        expect(Bytes{1} + line(0), {});
    }
}

// Bytes behind the last one that are left from earlier chunks do not count.
TEST_F(DeComp, TheChunkSizeIsReadOnceItIsThere)
{
    start();
    for (int size = 1; size < 4; ++size) {
        in.Reset();
        fill(in, {0, 0, 0, 1});
        in.DiscardProcessedData(4);
        append(in, Bytes(static_cast<std::size_t>(size), 0));
        EXPECT_EQ(handler.Decompress(&in, &image), 0) << size;
        EXPECT_EQ(in.GetRawDataSize(), size);
    }
}

TEST_F(DeComp, OneChunkACall)
{
    start();
    script.bytesGen = 20;
    append(in, chunk(20) + chunk(30) + slice(chunk(20), 0, 10));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.chunk, chunk(20));
    expect(lines(0, 2), chunk(30) + slice(chunk(20), 0, 10));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.chunk, chunk(30));
    expect(lines(0, 2) + lines(0, 2), slice(chunk(20), 0, 10));
    EXPECT_EQ(handler.Decompress(&in, &image), 0);
    expect(lines(0, 2) + lines(0, 2), slice(chunk(20), 0, 10));
}

TEST_F(DeComp, NegativeChunkSizesAreRefused)
{
    start();
    script.calls.clear();
    for (const int top : {0x80, 0xFF}) {
        in.Reset();
        Bytes bytes = chunk(20, 5);
        bytes[0] = static_cast<unsigned char>(top);
        append(in, bytes);
        const LogCapture capture;
        EXPECT_EQ(handler.Decompress(&in, &image), 0);
        EXPECT_THAT(
            capture.plainMessages(),
            ElementsAre("CHUNKSIZE = " + std::to_string(top == 0x80 ? INT_MIN + 5 : -16777211)));
        expect({}, bytes);
    }
    EXPECT_THAT(script.calls, IsEmpty());
}

TEST_F(DeComp, TheOutputBlockIsSizedByTheChunk)
{
    script.pad = 6;
    start();
    script.bytesGen = 10;
    append(in, chunk(20));
    const LogCapture capture;
    handler.Decompress(&in, &image);
    EXPECT_GE(script.outLen, (6 + 20) * 32 * 5);
    EXPECT_THAT(
        capture.plainMessages(),
        testing::IsSupersetOf(
            {"GetNumPadBytesPerLine = 6", "GetMaxLinesPerBand = 32", "OutBufferSize = 4160",
             "After malloc", "After Decomp", "BytesGen = 10", "BytesConverted = 20",
             " 1  2  3  4  5  6  7  8  9  A", "LinesPerBand = 1", "Decompression successful!"}));
}

TEST_F(DeComp, LogsTheLinesStillToGo)
{
    start();
    script.bytesGen = 30;
    append(in, chunk(20));
    const LogCapture capture;
    handler.Decompress(&in, &image);
    Lines counts;
    for (const std::string& message : capture.plainMessages()) {
        if (message.rfind("LinesPerBand", 0) == 0) {
            counts.push_back(message);
        }
    }
    EXPECT_THAT(counts, ElementsAre("LinesPerBand = 3", "LinesPerBand = 2", "LinesPerBand = 1"));
}

TEST_F(DeComp, BytesThatTheDecoderDidNotConsumeStayRaw)
{
    start();
    script.bytesGen = 10;
    for (const auto& [converted, consumed] : {std::pair(5, 5), std::pair(0, 0), std::pair(-1, 0),
                                              std::pair(20, 20), std::pair(24, 20)}) {
        script.converted = converted;
        in.Reset();
        const Bytes raw = chunk(20) + chunk(30);
        fill(in, {1}, raw);
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        expect(Bytes{1} + line(0), slice(raw, consumed, 50));
    }
}

TEST_F(DeComp, ADecoderThatMadeNothingLeavesNoLines)
{
    start();
    script.result = CDecomp::DECOMP_ERROR;
    append(in, chunk(20));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    expect({}, {});
}

// ---- the output block ----------------------------------------------------------------------

// The log shows the first bytes of the block, whatever the decoder writes.
TEST_F(DeComp, NoEarlierBytesAreLogged)
{
    start();
    script.bytesGen = 30;
    append(in, chunk(20) + chunk(20));
    handler.Decompress(&in, &image);
    script.bytesGen = -100;
    const LogCapture capture;
    handler.Decompress(&in, &image);
    EXPECT_EQ(script.outStart, Bytes(10, 0));
    EXPECT_THAT(capture.plainMessages(), Contains(" 0  0  0  0  0  0  0  0  0  0"));
}

// A chunk that is narrower than the page announces lines that its own block does not hold.
TEST_F(DeComp, LinesBehindTheBlockOfASmallChunkAreZero)
{
    store.setWindow(1000, 100);
    script.pad = 6;
    start();
    script.bytesGen = 32000;
    append(in, chunk(400) + chunk(4));
    handler.Decompress(&in, &image);
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.outLen, (4 + 6) * 32 * 5);
    const Bytes made = processedBytes(in);
    ASSERT_EQ(sizeOf(made), 64000);
    const Bytes second = slice(made, 32000, 64000);
    EXPECT_EQ(slice(second, 0, 1000), counting(1000, 1));
    EXPECT_EQ(slice(second, 1000, 1594), counting(594, 1 + 1006));
    EXPECT_EQ(slice(second, 1594, 32000), Bytes(32000 - 1594, 0));
}

TEST_F(DeComp, AChunkOfNothingHasABlock)
{
    script.written = 0;
    start();
    append(in, Bytes(4));
    const LogCapture capture;
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_THAT(capture.plainMessages(),
                testing::AllOf(Contains("OutBufferSize = 0"), Not(Contains("malloc failed")),
                               Contains(" 0  0  0  0  0  0  0  0  0  0")));
}

// Lines that are wider than what the decompressor makes of them.
TEST_F(DeComp, OtherStridesShowNoEarlierLines)
{
    TestStore odd({{"COMPRESSION", 1},
                   {"COMPRESSIONTECH", 2},
                   {"COLORDEPTH", 1},
                   {"PIXELS_PER_LINE", 10},
                   {"BYTES_PER_LINE", 50}});
    handler.Initialize(&odd);
    script.bytesGen = 100;
    append(in, chunk(20) + chunk(20));
    handler.Decompress(&in, &image);
    script.written = 10;
    handler.Decompress(&in, &image);
    EXPECT_EQ(processedBytes(in), counting(100, 1) + counting(10, 1) + Bytes(90, 0));
}

TEST_F(DeComp, OneBlockServesAPage)
{
    start();
    script.bytesGen = 10;
    script.calls.reserve(100);
    append(in, chunk(200) + chunk(20) + chunk(200) + chunk(201) + chunk(30));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    {
        const Allocations none(0);
        for (const int size : {20, 200}) {
            EXPECT_EQ(handler.Decompress(&in, &image), 1);
            // What the decoder may fill does not depend on the chunks before.
            EXPECT_EQ(script.outLen, size * 32 * 5);
            EXPECT_TRUE(script.wasOutGiven);
        }
        EXPECT_EQ(none.count(), 0);
    }
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_EQ(script.outLen, 201 * 32 * 5);
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    expect(lines(0, 1) + lines(0, 1) + lines(0, 1) + lines(0, 1) + lines(0, 1), {});
}

TEST_F(DeComp, TheBlockDoesNotOutliveItsPage)
{
    start();
    append(in, chunk(200) + chunk(20));
    handler.Decompress(&in, &image);
    start();
    script.calls.reserve(100);
    const Allocations some;
    handler.Decompress(&in, &image);
    EXPECT_EQ(some.count(), 1);
}

TEST_F(DeComp, WithoutMemoryTheDecoderGetsNoBlock)
{
    start();
    script.bytesGen = 10;
    script.calls.reserve(100);
    append(in, chunk(20) + chunk(30) + chunk(20));
    script.chunk.reserve(100);
    const LogCapture capture;
    handler.Decompress(&in, &image);
    {
        const Allocations none(0);
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        EXPECT_TRUE(none.refused());
    }
    EXPECT_FALSE(script.wasOutGiven);
    EXPECT_EQ(script.outLen, 0);
    EXPECT_TRUE(capture.contains("malloc failed"));
    expect(line(0), chunk(20));
    // Not the block from before: that one is gone.
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_TRUE(script.wasOutGiven);
    expect(line(0) + line(0), {});
}

// ---- pages that cannot be decompressed to their end -----------------------------------------

TEST_F(DeComp, NothingIsDroppedFromAGoodPage)
{
    start();
    script.bytesGen = 10;
    fill(in, {1}, chunk(20) + slice(chunk(30), 0, 3));
    for (int call = 0; call < 3; ++call) {
        handler.DropHidden(&in);
        handler.Decompress(&in, &image);
    }
    handler.DropHidden(&in);
    expect(Bytes{1} + line(0), slice(chunk(30), 0, 3));
    append(in, slice(chunk(30), 3, 12));
    handler.Decompress(&in, &image);
    handler.DropHidden(&in);
    expect(Bytes{1} + line(0), slice(chunk(30), 0, 12));
}

// Sizes of which no chunk is ever there: the block for its lines is no int any more.
TEST_F(DeComp, ImpossibleSizesHideTheRest)
{
    const int largest = INT_MAX / (32 * 5);
    for (const auto& [size, isHidden] :
         {std::pair(INT_MAX, true), std::pair(largest + 1, true), std::pair(largest, false),
          std::pair(100000, false), std::pair(0, true)}) {
        start();
        script.converted = 0;
        in.Reset();
        const Bytes bytes = chunk(20, size);
        fill(in, {1, 2}, bytes);
        EXPECT_EQ(handler.Decompress(&in, &image), size == 0 ? 1 : 0);
        expect({1, 2}, bytes);
        handler.DropHidden(&in);
        expect({1, 2}, isHidden ? Bytes() : bytes);
        append(in, chunk(20));
        handler.DropHidden(&in);
        expect({1, 2}, isHidden ? Bytes() : bytes + chunk(20));
    }
}

TEST_F(DeComp, NegativeSizesHideTheRest)
{
    for (const int top : {0x80, 0xFF}) {
        start();
        in.Reset();
        Bytes bytes = chunk(20, 5);
        bytes[0] = static_cast<unsigned char>(top);
        fill(in, {7}, bytes);
        handler.DropHidden(&in);
        expect({7}, bytes);
        handler.Decompress(&in, &image);
        handler.DropHidden(&in);
        expect({7}, {});
    }
}

// It does not matter whether the chunk has arrived.
TEST_F(DeComp, AChunkWithoutABlockHidesTheRest)
{
    script.pad = INT_MAX / (32 * 5) - 20;
    start();
    append(in, chunk(21) + chunk(20));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    EXPECT_FALSE(script.wasOutGiven);
    expect({}, chunk(20));
    handler.DropHidden(&in);
    expect({}, {});
}

TEST_F(DeComp, ChunksThatAreNotConsumedHideTheRest)
{
    for (const int converted : {-3, -1, 0, 1}) {
        start();
        script.converted = converted;
        in.Reset();
        fill(in, {7}, chunk(20) + chunk(30));
        handler.DropHidden(&in);
        expect({7}, chunk(20) + chunk(30));
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        const Bytes left = slice(chunk(20) + chunk(30), std::max(converted, 0), 50);
        expect({7}, left);
        handler.DropHidden(&in);
        expect({7}, converted == 1 ? left : Bytes());
        append(in, {1, 2, 3});
        handler.DropHidden(&in);
        expect({7}, converted == 1 ? left + Bytes{1, 2, 3} : Bytes());
        EXPECT_EQ(handler.Finish(&in), false);
    }
    start();
    in.Reset();
    append(in, chunk(20));
    handler.DropHidden(&in);
    expect({}, chunk(20));
}

TEST_F(DeComp, ZerosBehindAShortPageArePadding)
{
    for (const bool hasData : {false, true}) {
        const unsigned char last = hasData ? 1 : 0;
        for (const int drops : {0, 1, 2}) {
            start();
            in.Reset();
            append(in, Bytes(100));
            handler.Decompress(&in, &image);
            for (int i = 0; i < drops; ++i) {
                handler.DropHidden(&in);
                append(in, Bytes(50) + Bytes{last});
            }
            append(in, {last});
            EXPECT_EQ(handler.Finish(&in), !hasData) << drops;
        }
    }
}

// One chunk of a page of 20 lines, and what is left behind it.
struct PageEnd {
    const char* name;
    int bytesGen;
    int result;
    int converted;
    int left;
    bool isWhole;
    friend void PrintTo(const PageEnd& c, std::ostream* out) { *out << c.name; }
};

class PageEndTest : public DeComp, public testing::WithParamInterface<PageEnd> {
protected:
    void decompress()
    {
        in.Reset();
        append(in, chunk(20) + Bytes(static_cast<std::size_t>(GetParam().left), 9));
        handler.Decompress(&in, &image);
    }
};

TEST_P(PageEndTest, Finish)
{
    script.bytesGen = GetParam().bytesGen;
    script.result = GetParam().result;
    script.converted = GetParam().converted;
    start();
    decompress();
    LogCapture capture;
    EXPECT_EQ(handler.Finish(&in), GetParam().isWhole);
    EXPECT_EQ(capture.contains("[ERROR]"), !GetParam().isWhole);
    // The bytes may have been dropped meanwhile.
    if (GetParam().left == 0 || GetParam().converted == 0) {
        handler.DropHidden(&in);
        EXPECT_EQ(handler.Finish(&in), GetParam().isWhole);
    }
}

TEST_P(PageEndTest, EveryPageIsItsOwn)
{
    script.bytesGen = GetParam().bytesGen;
    script.result = GetParam().result;
    script.converted = GetParam().converted;
    start();
    decompress();
    start();
    in.Reset();
    EXPECT_TRUE(handler.Finish(&in));
    append(in, {1});
    EXPECT_FALSE(handler.Finish(&in)) << "lines of the page before do not count";
    handler.DropHidden(&in);
    expect({}, {1});
}

constexpr int kGood = CDecomp::DECOMP_LINE_COMPLETED;
constexpr int kError = CDecomp::DECOMP_ERROR;

INSTANTIATE_TEST_SUITE_P(Ends, PageEndTest,
                         testing::Values(PageEnd{"Complete", 200, kGood, -2, 0, true},
                                         PageEnd{"CompleteWithPadding", 200, kGood, -2, 5, true},
                                         PageEnd{"MoreThanComplete", 300, kGood, -2, 5, true},
                                         PageEnd{"CompleteButNotConsumed", 200, kGood, 0, 5, true},
                                         PageEnd{"CompleteWithAnError", 200, kError, -2, 5, true},
                                         PageEnd{"Short", 199, kGood, -2, 0, true},
                                         PageEnd{"ShortWithARest", 199, kGood, -2, 1, false},
                                         PageEnd{"ShortWithAnError", 190, kError, -2, 0, true},
                                         PageEnd{"ShortWithAStatus", 190, 261, -2, 0, true},
                                         PageEnd{"NoLinesAnnounced", 0, kGood, -2, 0, true},
                                         PageEnd{"NothingButAStatus", 0, 513, -2, 0, true},
                                         PageEnd{"LinesLost", 0, kError, -2, 0, false},
                                         PageEnd{"NegativeLines", -1, kError, -2, 0, false},
                                         PageEnd{"NotConsumed", 0, kGood, 0, 0, false},
                                         PageEnd{"NotConsumedWithAnError", 0, kError, 0, 0, false}),
                         CaseName());

TEST_F(DeComp, LinesOfAllChunksCount)
{
    start();
    script.result = CDecomp::DECOMP_ERROR;
    append(in, chunk(20));
    handler.Decompress(&in, &image);
    EXPECT_FALSE(handler.Finish(&in));
    script.result = CDecomp::DECOMP_LINE_COMPLETED;
    for (int lines = 1; lines <= 20; ++lines) {
        script.bytesGen = 10;
        append(in, chunk(20));
        handler.Decompress(&in, &image);
        EXPECT_EQ(handler.Finish(&in), lines == 20) << lines;
    }
}

TEST_F(DeComp, LinesThatTheBlockCutsOffAreLost)
{
    for (const int announced : {320, 321}) {
        store.setWindow(10, 500);
        start();
        in.Reset();
        script.bytesGen = announced * 10;
        append(in, chunk(20));
        handler.Decompress(&in, &image);
        EXPECT_EQ(in.GetProcessedDataSize(), 3200);
        EXPECT_EQ(handler.Finish(&in), announced == 320);
    }
}

TEST_F(DeComp, UncompressedPagesAreWhole)
{
    EXPECT_TRUE(handler.Finish(&in));
    store.SetIntOption("COMPRESSION", 0);
    start();
    fill(in, {1}, {0, 0, 0, 0});
    handler.DropHidden(&in);
    expect({1}, {0, 0, 0, 0});
    handler.Decompress(&in, &image);
    EXPECT_TRUE(handler.Finish(&in));

    store.SetIntOption("COMPRESSION", 1);
    start();
    image.SetInterleaveInfo(1, 1, 0, 0, 0);
    append(in, {0, 0, 0, 0});
    handler.Decompress(&in, &image);
    handler.DropHidden(&in);
    EXPECT_TRUE(handler.Finish(&in));
    expect({1, 0, 0, 0, 0, 0, 0, 0, 0}, {});
}

// A chunk that could not be put into the buffer is still there, and counts once.
TEST_F(DeComp, AChunkThatFindsNoMemoryStays)
{
    start();
    script.bytesGen = 200;
    script.calls.reserve(100);
    script.chunk.reserve(4096);
    script.outStart.reserve(10);
    const Bytes bytes = chunk(4096 - 20);
    append(in, chunk(20) + bytes);
    handler.Decompress(&in, &image);
    start();
    append(in, Bytes(5000, 1));
    script.bytesGen = 20 * 160 * 32;
    {
        const Allocations one(1);  // for the output block, none for the lines
        EXPECT_EQ(handler.Decompress(&in, &image), 0);
        EXPECT_TRUE(one.refused());
    }
    EXPECT_TRUE(script.wasOutGiven);
    EXPECT_FALSE(handler.Finish(&in)) << "no line has come out";
    expect(lines(0, 20), bytes + Bytes(5000, 1));
    handler.DropHidden(&in);
    expect(lines(0, 20), bytes + Bytes(5000, 1));
}

// ---- decoders and settings that make no sense ---------------------------------------------

TEST_F(DeComp, UnusualResultsStayInsideTheBuffers)
{
    for (const int bytesGen : {INT_MIN, -1, 0, 3200, 3300, 1000000}) {
        for (const int converted : {INT_MIN, -1, 0, 19, 21, 1000, INT_MAX}) {
            script = Script();
            start();
            script.bytesGen = bytesGen;
            script.converted = converted;
            in.Reset();
            fill(in, {1}, chunk(20) + Bytes{5});
            const int result = handler.Decompress(&in, &image);
            EXPECT_TRUE(result == 0 || result == 1);
            EXPECT_EQ(processedBytes(in)[0], 1);
            // Never more than the lines announced.
            EXPECT_LE(in.GetProcessedDataSize(), 1 + std::max(bytesGen, 0) + 21);
            const int left = 21 - std::clamp(converted, 0, 20);
            EXPECT_EQ(in.GetRawDataSize(), left) << bytesGen << " " << converted;
        }
    }
}

TEST_F(DeComp, LinesBeyondTheOutputBlockAreNotTheHeaps)
{
    start();
    script.bytesGen = 3500;
    append(in, chunk(20));
    EXPECT_EQ(handler.Decompress(&in, &image), 1);
    const Bytes made = processedBytes(in);
    ASSERT_GE(sizeOf(made), 3200);
    const int room = std::min(script.outLen, sizeOf(made));
    for (int i = 0; i < sizeOf(made); ++i) {
        const bool isWritten = i < room && i < 3500 + 100;
        ASSERT_EQ(made[static_cast<std::size_t>(i)], isWritten ? (i + 1) % 256 : 0) << i;
    }
}

TEST_F(DeComp, NoStrideEnds)
{
    store.SetIntOption("COLORDEPTH", 0);
    start();
    script.bytesGen = 30;
    append(in, chunk(20));
    const int result = handler.Decompress(&in, &image);
    EXPECT_TRUE(result == 0 || result == 1);
    EXPECT_EQ(in.GetProcessedDataSize(), 0);
}

TEST_F(DeComp, ABlockThatDoesNotFitIsRefused)
{
    for (const auto& [pad, lines] :
         {std::pair(INT_MAX, 32), std::pair(0, INT_MAX), std::pair(INT_MIN, 32),
          std::pair(-100, 32), std::pair(0, -1)}) {
        script = Script();
        script.pad = pad;
        script.linesPerBand = lines;
        start();
        script.bytesGen = 0;
        in.Reset();
        append(in, chunk(20));
        const LogCapture capture;
        EXPECT_EQ(handler.Decompress(&in, &image), 1);
        EXPECT_FALSE(script.wasOutGiven);
        EXPECT_EQ(script.outLen, 0);
        EXPECT_TRUE(capture.contains("malloc failed"));
        EXPECT_EQ(in.GetAllDataSize(), 0);
    }
}

TEST(CDecomp, HasItsDefaults)
{
    EXPECT_EQ(CDecomp::DECOMP_ERROR, -1);
    EXPECT_EQ(CDecomp::DECOMP_DONE, 1);
    EXPECT_EQ(CDecomp::DECOMP_LINE_COMPLETED, 2);
    EXPECT_EQ(CDecomp::DECOMP_ERROR_MORE_DATA, 3);
    EXPECT_THAT(
        (std::vector<int>{virtualSlot(&CDecomp::StartDecomp), virtualSlot(&CDecomp::EndDecomp),
                          virtualSlot(&CDecomp::Decomp), virtualSlot(&CDecomp::SetQualityFactor),
                          virtualSlot(&CDecomp::GetMaxLinesPerBand),
                          virtualSlot(&CDecomp::GetNumPadBytesPerLine)}),
        ElementsAre(2, 3, 4, 5, 6, 7));
}

}  // namespace
