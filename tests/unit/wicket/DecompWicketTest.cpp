// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Allocations.h"
#include "LogCapture.h"
#include "Samples.h"
#include "foundation/TestSupport.h"

#include "DeCompHandler.h"
#include "wicket/DecompWicket.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <random>

#include <sys/stat.h>
#include <unistd.h>

using samples::BitWriter;
using samples::Image;
using samples::Pattern;
using testing::Each;
using testing::ElementsAre;
using testing::Not;

namespace {

class Chunks : public testing::Test {
protected:
    void start(int width, int channels, int lines = 32)
    {
        decoder.StartDecomp(width, lines, channels, 24);
    }

    // Decodes one chunk into room bytes that held fill, with a guard behind them.
    int decode(const Bytes& in, int room, unsigned char fill = 0xEE)
    {
        Bytes input = in;
        out.assign(static_cast<std::size_t>(room), fill);
        out.resize(static_cast<std::size_t>(room) + 64, 0xEE);
        converted = generated = -7;
        const int status =
            decoder.Decomp(input.data(), sizeOf(input), &converted, out.data(), room, &generated);
        EXPECT_TRUE(std::all_of(out.end() - 64, out.end(), [](int b) { return b == 0xEE; }));
        out.resize(static_cast<std::size_t>(room));
        return status;
    }

    CDecompWicket decoder{1};
    Bytes out;
    int converted = 0;
    int generated = 0;
};

TEST_F(Chunks, HeaderFieldsAreBigEndian)
{
    const Bytes bytes = samples::header(0x01020304, 0x05060708, 0x090A0B0C, 0xFFFFFFFE);
    EXPECT_EQ(CDecompWicket::GetChunkSize(bytes.data()), 0x01020304);
    EXPECT_EQ(CDecompWicket::GetChunkHeight(bytes.data()), 0x05060708);
    EXPECT_EQ(CDecompWicket::GetChunkWidth(bytes.data()), 0x090A0B0C);
    EXPECT_EQ(CDecompWicket::GetChunkQualityFactor(bytes.data()), -2);
}

TEST_F(Chunks, PadBytes)
{
    const std::tuple<int, int, int, int> cases[] = {{1, 100, 1, 4},
                                                    {1, 100, 3, 12},
                                                    {1, 104, 1, 0},
                                                    {1, 97, 3, 21},
                                                    {1, 0, 3, 0},
                                                    {0, 100, 1, 44},
                                                    {0, 100, 3, 36},
                                                    {0, 48, 1, 0},
                                                    {0, 16, 3, 0},
                                                    {0, 17, 3, 45},
                                                    {7, 100, 3, 12},
                                                    {0, INT_MAX, 3, 3},
                                                    {1, INT_MAX, INT_MAX, INT_MAX}};
    for (const auto& [stuffing, width, channels, pad] : cases) {
        CDecompWicket other(stuffing);
        EXPECT_EQ(other.GetNumPadBytesPerLine(), 0);
        other.StartDecomp(width, 10, channels, 8);
        EXPECT_EQ(other.GetNumPadBytesPerLine(), pad) << stuffing << " " << width;
        other.EndDecomp();
        EXPECT_EQ(other.GetMaxLinesPerBand(), 32);
    }
}

TEST_F(Chunks, AChunkBecomesPaddedLines)
{
    for (const int channels : {1, 3}) {
        start(100, channels);
        const Image image = samples::page(Pattern::photo, 100, 12, channels);
        const Bytes chunk = samples::chunkOf(image, 90);
        const LogCapture capture;
        ASSERT_EQ(decode(chunk, 104 * 16 * channels), CDecomp::DECOMP_LINE_COMPLETED);
        EXPECT_EQ(converted, sizeOf(chunk));
        EXPECT_EQ(generated, 100 * 12 * channels);
        std::vector<std::string> expected = {
            "after getchunksize else",  "dwChunkSize = " + std::to_string(chunk.size()),
            "else pbBufferToSend",      "GetChunkQualityFactor = 90",
            "after qualityfactor",      "after getchunkwidth = 100",
            "after getchunkheight = 12"};
        if (channels == 1) {
            expected.push_back("after oneplane");
        }
        EXPECT_EQ(capture.plainMessages(), expected);
        long sum = 0;
        for (std::size_t y = 0; y < 12; ++y) {
            for (std::size_t x = 0; x < 100U * static_cast<std::size_t>(channels); ++x) {
                const std::size_t line = static_cast<std::size_t>(channels);
                sum += std::abs(out[y * 104 * line + x] - image.pixels[y * 100 * line + x]);
            }
        }
        EXPECT_LT(sum, 100 * 12 * channels * 5);
    }
}

TEST_F(Chunks, EveryChunkHasItsQuality)
{
    start(8, 1);
    decoder.SetQualityFactor(3);
    const Bytes body = BitWriter().dc(8, 0).endOfBlock(0).finish();
    for (const auto& [quality, level] :
         {std::pair(100, 129), std::pair(50, 144), std::pair(0, 255), std::pair(-5, 255)}) {
        decode(samples::chunkWith(body, 8, 8, quality), 64);
        EXPECT_THAT(out, Each(level)) << quality;
    }
}

TEST_F(Chunks, NothingToDecode)
{
    start(8, 1);
    const Bytes body = BitWriter().dc(8, 0).endOfBlock(0).finish();
    for (const Bytes& chunk :
         {samples::chunkWith(body, 8, 0, 50), samples::header(0, 8, 8, 50),
          samples::chunkWith(body, 8, INT_MIN, 50), samples::chunkWith(body, 8, -1, 50)}) {
        EXPECT_EQ(decode(chunk, 64), CDecomp::DECOMP_LINE_COMPLETED);
        EXPECT_EQ(converted, -7);
        EXPECT_EQ(generated, -7);
        EXPECT_THAT(out, Each(0xEE));
    }
}

TEST_F(Chunks, NoLinesAreNoError)
{
    start(8, 3);
    EXPECT_EQ(decode(samples::header(16, 0, 8, 50), 0), CDecomp::DECOMP_LINE_COMPLETED);
    EXPECT_EQ(converted, 16);
    EXPECT_EQ(generated, 0);
}

// The fields are read from the ring, whatever the size says; what it is too short for is zero.
TEST_F(Chunks, ShorterThanTheirHeader)
{
    for (const int channels : {1, 3}) {
        for (int size = 1; size < 16; ++size) {
            const Bytes whole = samples::header(static_cast<std::uint32_t>(size), 8, 8, 50);
            for (const int room : {size, 16, 46}) {
                if (room < 4) {
                    continue;  // not even a size
                }
                Bytes ring = whole + Bytes(30, 0x55);
                ring.resize(static_cast<std::size_t>(room));
                start(8, channels);
                decode({0}, 0);  // a smaller ring: back to its start
                const int status = decode(ring, 64 * channels);
                if (room < 12) {  // no width
                    EXPECT_EQ(status, CDecomp::DECOMP_LINE_COMPLETED);
                    EXPECT_EQ(converted, -7);
                    EXPECT_EQ(generated, -7);
                } else {
                    EXPECT_EQ(status, channels == 1 ? CDecomp::DECOMP_LINE_COMPLETED : 513);
                    EXPECT_EQ(converted, size);
                    EXPECT_EQ(generated, 64 * channels);
                    EXPECT_EQ(out[0], channels == 1 ? 128 : 0);
                }
            }
        }
    }
}

TEST_F(Chunks, StatusesOfTheDecoder)
{
    start(8, 3);
    BitWriter tooMany;
    tooMany.dc(1, 0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0);
    EXPECT_EQ(decode(samples::chunkWith(tooMany.finish(), 8, 8, 50), 192), CDecomp::DECOMP_ERROR);
    EXPECT_EQ(generated, 192);
    EXPECT_THAT(out, Each(0));
    const Bytes invalid = BitWriter().bits(0xFFFF, 16).finish();
    EXPECT_EQ(decode(samples::chunkWith(invalid, 8, 8, 50), 192), 261);
    EXPECT_EQ(decode(samples::chunkWith({}, 8, 8, 50), 192), 513);
    EXPECT_EQ(converted, 16);
    start(8, 1);
    EXPECT_EQ(decode(samples::chunkWith({}, 8, 8, 50), 64), CDecomp::DECOMP_LINE_COMPLETED);
    EXPECT_THAT(out, Each(128));
}

TEST_F(Chunks, LinesThatDoNotFitAreRefused)
{
    const Bytes body(40, 0x28);
    const std::tuple<int, int, int, int> cases[] = {{8, 8, 1, 63},
                                                    {9, 8, 1, 127},
                                                    {8, 9, 1, 127},
                                                    {8, 8, 3, 191},
                                                    {INT_MAX, 8, 1, 5000},
                                                    {8, INT_MAX, 1, 5000},
                                                    {INT_MAX, INT_MAX, 3, 5000},
                                                    {8, -1, 1, 5000},
                                                    {8, INT_MIN, 3, 5000},
                                                    {65536, 65536, 1, 5000},
                                                    {65536, 32768, 3, 5000},
                                                    {1, 1, 1, 0},
                                                    {1, 1, 3, -1},
                                                    {INT_MAX - 7, 1, 1, 5000}};
    for (const auto& [width, height, channels, room] : cases) {
        start(8, channels);
        const int size = std::max(room, 0);
        Bytes input = samples::chunkWith(body, height, width, 50);
        Bytes lines(static_cast<std::size_t>(size) + 1, 0xEE);
        EXPECT_EQ(
            decoder.Decomp(input.data(), sizeOf(input), &converted, lines.data(), room, &generated),
            CDecomp::DECOMP_ERROR)
            << width << " " << height;
        EXPECT_THAT(lines, Each(0xEE));
        EXPECT_EQ(generated, 0);
        EXPECT_EQ(converted, 56);
    }
}

// Without stuffing, lines are filled up to 48 bytes.
TEST_F(Chunks, LinesWithoutStuffing)
{
    for (const int channels : {1, 3}) {
        const int room = 48 * 8;
        CDecompWicket plain(0);
        plain.StartDecomp(10, 8, channels, 8 * channels);
        BitWriter writer;
        for (int block = 0; block < 6; ++block) {
            const int component = channels == 1 ? 0 : block % 3;
            writer.dc(component == 0 && block < 3 ? 8 : 0, component).endOfBlock(component);
        }
        Bytes input = samples::chunkWith(writer.finish(), 8, 10, 100);
        out.assign(static_cast<std::size_t>(room), 0xEE);
        EXPECT_EQ(
            plain.Decomp(input.data(), sizeOf(input), &converted, out.data(), room - 1, &generated),
            CDecomp::DECOMP_ERROR);
        EXPECT_EQ(
            plain.Decomp(input.data(), sizeOf(input), &converted, out.data(), room, &generated),
            CDecomp::DECOMP_LINE_COMPLETED);
        EXPECT_EQ(generated, 10 * 8 * channels);
        EXPECT_EQ(out.front(), 129);
        EXPECT_EQ(out.back(), channels == 1 ? 131 : 129);
    }
}

TEST_F(Chunks, ScansOfOddGeometry)
{
    const Bytes chunk = samples::chunkWith(BitWriter().dc(8, 0).endOfBlock(0).finish(), 8, 8, 100);
    start(20, 1);  // wider than the chunk: the rest is zero
    EXPECT_EQ(decode(chunk, 400), CDecomp::DECOMP_LINE_COMPLETED);
    EXPECT_EQ(generated, 160);
    for (std::size_t i = 0; i < 400; ++i) {
        ASSERT_EQ(out[i], i < 64 ? 129 : i < 8 * 24 ? 0 : 0xEE) << i;
    }
    // Lines may be announced that out does not hold, but nothing is written behind it.
    EXPECT_EQ(decode(chunk, 64), CDecomp::DECOMP_LINE_COMPLETED);
    EXPECT_EQ(generated, 160);
    EXPECT_EQ(decode(chunk, 63), CDecomp::DECOMP_ERROR);
    EXPECT_EQ(generated, 0);
    for (const auto& [width, channels] :
         {std::pair(INT_MAX, 1), std::pair(INT_MAX, INT_MAX), std::pair(-8, 1), std::pair(8, -1)}) {
        start(width, channels);
        EXPECT_EQ(decode(chunk, 400), CDecomp::DECOMP_ERROR) << width;
        EXPECT_EQ(generated, 0);
    }
    start(8, 0);
    decode(chunk, 400);
    EXPECT_EQ(generated, 0);
}

TEST_F(Chunks, NullPointersAreLogged)
{
    start(8, 1);
    Bytes chunk = samples::chunkWith(BitWriter().dc(8, 0).endOfBlock(0).finish(), 8, 8, 100);
    Bytes lines(64, 0xEE);
    const int size = sizeOf(chunk);
    {
        const LogCapture capture;
        EXPECT_EQ(decoder.Decomp(nullptr, size, &converted, lines.data(), 64, &generated), -1);
        EXPECT_THAT(capture.plainMessages(), ElementsAre("Null pointer passed!"));
    }
    const LogCapture capture;
    generated = 5;
    EXPECT_EQ(decoder.Decomp(chunk.data(), size, &converted, nullptr, 64, &generated), -1);
    EXPECT_EQ(converted, size);
    EXPECT_EQ(generated, 0);
    EXPECT_EQ(decoder.Decomp(chunk.data(), size, nullptr, lines.data(), 64, nullptr), 2);
    EXPECT_THAT(lines, Each(129));
    EXPECT_EQ(capture.count("Null pointer passed!"), 2);
    converted = generated = 5;
    EXPECT_EQ(decoder.Decomp(chunk.data(), 0, &converted, lines.data(), 64, &generated), 2);
    EXPECT_EQ(converted, 5);
    EXPECT_EQ(generated, 5);
    EXPECT_EQ(decoder.Decomp(chunk.data(), -5, &converted, lines.data(), 64, &generated), -1);
}

TEST_F(Chunks, SizesBeyondTheInputAreRefused)
{
    start(8, 1);
    for (const std::uint32_t size : {57U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(decode(samples::header(size, 8, 8, 50) + Bytes(40, 0), 64), -1);
        EXPECT_THAT(out, Each(0xEE));
        EXPECT_EQ(converted, -7);
    }
}

// Chunks that lie across the end of a ring, at every position.
TEST_F(Chunks, ARingIsFollowedAround)
{
    const Bytes chunk = samples::chunkOf(samples::page(Pattern::photo, 24, 8, 1), 60);
    start(24, 1);
    decode(chunk, 192);
    const Bytes expected = out;
    for (int extra = 0; extra < 40; ++extra) {
        CDecompWicket ring(1);
        ring.StartDecomp(24, 8, 1, 8);
        const int len = sizeOf(chunk) + extra;
        int position = 0;
        for (int round = 0; round < 60; ++round) {
            Bytes input(static_cast<std::size_t>(len), 0xAB);
            for (int i = 0; i < sizeOf(chunk); ++i) {
                input[static_cast<std::size_t>((position + i) % len)] =
                    chunk[static_cast<std::size_t>(i)];
            }
            Bytes lines(192, 0xEE);
            int taken = 0;
            int made = 0;
            ASSERT_EQ(ring.Decomp(input.data(), len, &taken, lines.data(), 192, &made),
                      CDecomp::DECOMP_LINE_COMPLETED);
            ASSERT_EQ(lines, expected);
            ASSERT_EQ(taken, sizeOf(chunk));
            position = (position + sizeOf(chunk)) % len;
        }
    }
}

TEST_F(Chunks, AChunkAcrossTheEndWithoutMemory)
{
    start(24, 1);
    Bytes ring = samples::chunkOf(samples::page(Pattern::photo, 24, 8, 1), 60);
    const Bytes chunk = ring;
    ring = ring + Bytes(20, 0);
    decode(ring, 192);
    std::copy(chunk.begin() + 20, chunk.end(), ring.begin());
    std::copy(chunk.begin(), chunk.begin() + 20, ring.end() - 20);
    Bytes lines(192, 0xEE);
    for (const bool isShort : {true, false}) {
        int status = 0;
        {
            const Allocations granted(isShort ? 0 : 1);
            status = decoder.Decomp(ring.data(), sizeOf(ring), &converted, lines.data(), 192,
                                    &generated);
        }
        EXPECT_EQ(status, isShort ? CDecomp::DECOMP_ERROR : CDecomp::DECOMP_LINE_COMPLETED);
        EXPECT_EQ(lines == Bytes(192, 0xEE), isShort);
    }
    EXPECT_EQ(lines, out);
}

TEST_F(Chunks, ADumpHoldsTheChunk)
{
    const std::string name = "/tmp/dump" + std::to_string(getpid() + 1000) + ".dat";
    const Bytes chunk = samples::chunkOf(samples::page(Pattern::photo, 24, 8, 1), 60);
    decoder.DumpCompressedData(chunk.data(), getpid() + 1000);
    std::ifstream file(name, std::ios::binary);
    const Bytes content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(content, chunk);
    unlink(name.c_str());
    // A link is not followed.
    const std::string target = name + ".target";
    ASSERT_EQ(symlink(target.c_str(), name.c_str()), 0);
    decoder.DumpCompressedData(chunk.data(), getpid() + 1000);
    EXPECT_NE(access(target.c_str(), F_OK), 0);
    unlink(name.c_str());
    // Nor is a reader waited for.
    ASSERT_EQ(mkfifo(name.c_str(), S_IRUSR | S_IWUSR), 0);
    alarm(10);
    decoder.DumpCompressedData(chunk.data(), getpid() + 1000);
    alarm(0);
    unlink(name.c_str());
}

// ---- nothing of what the output held before ---------------------------------------------------

int toBlocks(int value)
{
    return (value + 7) / 8 * 8;
}

// The first blocks of a body, all of them good.
BitWriter goodBlocks(int count, int channels)
{
    BitWriter writer;
    for (int block = 0; block < count; ++block) {
        for (int component = 0; component < channels; ++component) {
            writer.dc(block % 3 + 1, component).endOfBlock(component);
        }
    }
    return writer;
}

BitWriter& badCode(BitWriter& writer)
{
    return writer.bits(0xFFFF, 16);
}

BitWriter& tooMany(BitWriter& writer)
{
    writer.dc(1, 0);
    return writer.sixteenZeros(0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0);
}

// A band of 16 lines with share per cent of its blocks good.
BitWriter begun(int share, int width, int channels)
{
    return goodBlocks(toBlocks(width) / 8 * 2 * share / 100, channels);
}

struct Filled {
    const char* name;
    std::function<Bytes(int width, int channels)> chunk;
    int lines;
    int status;  // for colour; grey goes on behind what cannot be decoded
    friend void PrintTo(const Filled& c, std::ostream* to) { *to << c.name; }
};

Bytes bandOf(int width, int lines, int channels)
{
    return samples::chunkOf(samples::page(Pattern::noise, width, lines, channels), 80);
}

Bytes bandWith(const Bytes& body, int width, int lines = 16)
{
    return samples::chunkWith(body, lines, width, 80);
}

class FilledBlock : public Chunks,
                    public testing::WithParamInterface<std::tuple<Filled, int, int>> {
protected:
    static const Filled& given() { return std::get<0>(GetParam()); }
    static int width() { return std::get<1>(GetParam()); }
    static int channels() { return std::get<2>(GetParam()); }
    static int step() { return toBlocks(width()) * channels(); }

    // The announced lines with their pad bytes.
    Bytes decodeInto(unsigned char fill, int room)
    {
        start(width(), channels());
        const int status = decode(given().chunk(width(), channels()), room, fill);
        EXPECT_EQ(status, channels() == 1 ? CDecomp::DECOMP_LINE_COMPLETED : given().status);
        EXPECT_EQ(generated, width() * channels() * given().lines);
        return slice(out, 0, std::min(step() * given().lines, room));
    }
    void expectSame(int room)
    {
        const Bytes lines = decodeInto(0, room);
        EXPECT_TRUE(decodeInto(0xEE, room) == lines) << room;
        EXPECT_TRUE(decodeInto(0x11, room) == lines) << room;
    }
};

TEST_P(FilledBlock, IsWrittenThroughout)
{
    // A block as the stage gives it; and one without a byte too many.
    const int chunk = sizeOf(given().chunk(width(), channels()));
    expectSame(std::max((chunk + 21) * 32 * 5, toBlocks(width() * 2 + 5) * 16 * channels()));
    if (std::string(given().name) != "Wider") {
        expectSame(step() * toBlocks(given().lines));
    }
}

// The block may be too small for the lines and all of their pad bytes.
TEST_F(Chunks, ABlockWithoutRoomForThePadBytes)
{
    for (const int channels : {1, 3}) {
        const Bytes narrow = bandOf(8, 16, channels);
        const int room = 77 * 16 * channels;
        Bytes lines[2];
        for (const int fill : {0xEE, 0x11}) {
            start(77, channels);
            EXPECT_EQ(decode(narrow, room, static_cast<unsigned char>(fill)),
                      CDecomp::DECOMP_LINE_COMPLETED);
            EXPECT_EQ(generated, room);
            lines[fill == 0x11] = out;
        }
        EXPECT_EQ(lines[0], lines[1]);
    }
}

constexpr int kGood = CDecomp::DECOMP_LINE_COMPLETED;

constexpr auto kByChunkAndGeometry = [](const auto& info) {
    return std::string(std::get<0>(info.param).name) + std::to_string(std::get<1>(info.param)) +
           (std::get<2>(info.param) == 1 ? "Grey" : "Colour");
};

INSTANTIATE_TEST_SUITE_P(All, FilledBlock,
                         testing::Combine(testing::Values(Filled{"Good",
                                                                 [](int w, int c) {
                                                                     return bandOf(w, 16, c);
                                                                 },
                                                                 16, kGood},
                                                          Filled{"MostLines",
                                                                 [](int w, int c) {
                                                                     return bandOf(w, 32, c);
                                                                 },
                                                                 32, kGood},
                                                          Filled{"OddHeight",
                                                                 [](int w, int c) {
                                                                     return bandOf(w, 13, c);
                                                                 },
                                                                 13, kGood},
                                                          Filled{"OneLine",
                                                                 [](int w, int c) {
                                                                     return bandOf(w, 1, c);
                                                                 },
                                                                 1, kGood},
                                                          Filled{"NoLines",
                                                                 [](int w, int) {
                                                                     return bandWith(Bytes(9, 0x28),
                                                                                     w, 0);
                                                                 },
                                                                 0, kGood},
                                                          Filled{"Narrower",
                                                                 [](int w, int c) {
                                                                     return bandOf((w + 2) / 3, 16,
                                                                                   c);
                                                                 },
                                                                 16, kGood},
                                                          Filled{"Wider",
                                                                 [](int w, int c) {
                                                                     return bandOf(w * 2 + 5, 16,
                                                                                   c);
                                                                 },
                                                                 16, kGood},
                                                          Filled{"BadCodeAtOnce",
                                                                 [](int w, int c) {
                                                                     BitWriter writer =
                                                                         begun(0, w, c);
                                                                     return bandWith(
                                                                         badCode(writer).finish(),
                                                                         w);
                                                                 },
                                                                 16, 261},
                                                          Filled{"BadCodeInTheMiddle",
                                                                 [](int w, int c) {
                                                                     BitWriter writer =
                                                                         begun(50, w, c);
                                                                     return bandWith(
                                                                         badCode(writer).finish(),
                                                                         w);
                                                                 },
                                                                 16, 261},
                                                          Filled{
                                                              "NarrowerWithABadCode",
                                                              [](int w, int c) {
                                                                  BitWriter writer =
                                                                      begun(20, w, c);
                                                                  return bandWith(
                                                                      badCode(writer).finish(),
                                                                      (w + 2) / 3);
                                                              },
                                                              16, 261},
                                                          Filled{
                                                              "NoBody",
                                                              [](int w,
                                                                 int) { return bandWith({}, w); },
                                                              16, 513},
                                                          Filled{"EndsInTheMiddle",
                                                                 [](int w, int c) {
                                                                     return bandWith(
                                                                         begun(50, w, c).finish(0),
                                                                         w);
                                                                 },
                                                                 16, 513},
                                                          Filled{"TooManyCoefficients",
                                                                 [](int w, int c) {
                                                                     BitWriter writer =
                                                                         begun(0, w, c);
                                                                     return bandWith(
                                                                         tooMany(writer).finish(),
                                                                         w);
                                                                 },
                                                                 16, CDecomp::DECOMP_ERROR},
                                                          Filled{"TooManyCoefficientsInTheMiddle",
                                                                 [](int w, int c) {
                                                                     BitWriter writer =
                                                                         begun(50, w, c);
                                                                     return bandWith(
                                                                         tooMany(writer).finish(),
                                                                         w);
                                                                 },
                                                                 16, CDecomp::DECOMP_ERROR}),
                                          testing::Values(1, 8, 9, 77, 104, 335),
                                          testing::Values(1, 3)),
                         kByChunkAndGeometry);

// ---- through the stage -----------------------------------------------------------------------

class Stage : public testing::Test {
protected:
    struct Scan {
        Bytes stream;
        Bytes lines;
    };

    // Bands of all kinds, an odd one last.
    static Scan scanOf(int width, int channels)
    {
        Scan scan;
        CDecompWicket decoder(1);
        decoder.StartDecomp(width, 100, channels, channels * 8);
        int quality = 60;
        for (const int lines : {32, 8, 16, 32, 3}) {
            const Pattern pattern = lines == 16 ? Pattern::blank : Pattern::photo;
            const Bytes chunk =
                samples::chunkOf(samples::page(pattern, width, lines, channels), quality += 5);
            scan.stream = scan.stream + chunk;
            const int step = (width + 7) / 8 * 8 * channels;
            Bytes out(static_cast<std::size_t>(step) * 32);
            Bytes input = chunk;
            int converted = 0;
            int generated = 0;
            EXPECT_EQ(decoder.Decomp(input.data(), sizeOf(input), &converted, out.data(),
                                     sizeOf(out), &generated),
                      CDecomp::DECOMP_LINE_COMPLETED);
            for (int y = 0; y < lines; ++y) {
                scan.lines = scan.lines + slice(out, y * step, y * step + width * channels);
            }
        }
        return scan;
    }

    void start(int width, int channels)
    {
        store.SetIntOption("COLORDEPTH", channels);
        store.setWindow(width, 91);
        handler = std::make_unique<DeCompHandler>();
        ASSERT_EQ(handler->Initialize(&store), 1);
        ASSERT_EQ(store.GetIntOption("BYTES_PER_LINE"), width * channels);
    }

    // Hands the stream over in the given pieces; chunks are decoded while there is progress.
    Bytes receive(const Bytes& stream, const std::function<int()>& pieceSize)
    {
        Bytes lines;
        DataBuffer in;
        for (int at = 0; at < sizeOf(stream);) {
            const int end = std::min(at + pieceSize(), sizeOf(stream));
            append(in, slice(stream, at, end));
            at = end;
            int before = -1;
            while (in.GetRawDataSize() > 0 && in.GetRawDataSize() != before) {
                before = in.GetRawDataSize();
                handler->Decompress(&in, &image);
            }
            lines = lines + processedBytes(in);
            in.DiscardProcessedData(in.GetProcessedDataSize());
        }
        EXPECT_EQ(in.GetRawDataSize(), 0);
        return lines;
    }

    TestStore store{{"COMPRESSION", 1}, {"COMPRESSIONTECH", 2}, {"COMPRESSIONLEVEL", 7}};
    ImageData image;
    std::unique_ptr<DeCompHandler> handler;
};

TEST_F(Stage, CutsDoNotMatter)
{
    std::mt19937 random(11);
    for (const auto& [width, channels] :
         {std::pair(104, 1), std::pair(101, 1), std::pair(56, 3), std::pair(61, 3)}) {
        const Scan scan = scanOf(width, channels);
        start(width, channels);
        EXPECT_EQ(receive(scan.stream, [] { return INT_MAX / 2; }), scan.lines);
        EXPECT_EQ(receive(scan.stream, [] { return 1; }), scan.lines);
        for (const unsigned largest : {20U, 600U, 5000U}) {
            for (int round = 0; round < 20; ++round) {
                ASSERT_EQ(
                    receive(scan.stream, [&] { return 1 + static_cast<int>(random() % largest); }),
                    scan.lines);
            }
        }
    }
}

TEST_F(Stage, BlankBandsOfFullWidthFit)
{
    for (const int channels : {1, 3}) {
        start(4960, channels);
        const Image blank = samples::page(Pattern::blank, 4960, 32, channels);
        const Bytes chunk = samples::chunkOf(blank, 75);
        EXPECT_LT(sizeOf(chunk), channels * 2100);
        const Bytes lines = receive(chunk + chunk, [] { return 512; });
        EXPECT_EQ(sizeOf(lines), 2 * 4960 * 32 * channels);
        EXPECT_THAT(lines, Each(255));
    }
}

// The chunks of a page share an output block.
TEST_F(Stage, ACorruptChunkShowsNoEarlierLines)
{
    const int width = 77;
    const int lines = 16;
    for (const int channels : {1, 3}) {
        const Bytes good = bandOf(width, lines, channels);
        BitWriter spoilt = begun(50, width, channels);
        const Bytes half = bandWith(badCode(spoilt).finish(), width);
        const Bytes none = bandWith({}, width);
        const Bytes narrow = bandOf(16, lines, channels);
        const auto all = [](const Bytes& stream) { return sizeOf(stream); };
        for (const Bytes& corrupt : {half, none, narrow}) {
            start(width, channels);
            const Bytes alone = receive(corrupt, [&] { return all(corrupt); });
            start(width, channels);
            const Bytes behind = receive(good + corrupt, [&] { return all(good + corrupt); });
            const int page = width * lines * channels;
            ASSERT_EQ(sizeOf(alone), page);
            ASSERT_EQ(sizeOf(behind), 2 * page);
            EXPECT_TRUE(slice(behind, page, 2 * page) == alone);
        }
        start(width, channels);
        const Bytes behind = receive(good + none, [&] { return all(good + none); });
        const int page = width * lines * channels;
        EXPECT_THAT(slice(behind, page, 2 * page), Each(channels == 1 ? 128 : 0));
        start(width, channels);
        const Bytes cut = receive(good + half, [&] { return all(good + half); });
        if (channels == 3) {  // its lower row of blocks is the half that is missing
            EXPECT_THAT(slice(cut, page + page / 2, 2 * page), Each(0));
            EXPECT_THAT(slice(cut, page, page + page / 2), Not(testing::Contains(0)));
        }
    }
}

TEST_F(Stage, ChunksThatCannotBeDecodedAreConsumed)
{
    start(8, 3);
    const Bytes tooLarge = samples::header(16, 100000, 100000, 50);
    const Bytes corrupt = samples::chunkWith(Bytes(20, 0xEF), 8, 8, 50);
    const Bytes good = samples::chunkOf(samples::page(Pattern::blank, 8, 8, 3), 50);
    EXPECT_EQ(receive(tooLarge + corrupt + good, [] { return 7; }),
              Bytes(192, 0) + Bytes(192, 255));
}

}  // namespace
