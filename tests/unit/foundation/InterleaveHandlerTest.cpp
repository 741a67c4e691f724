// SPDX-License-Identifier: LGPL-2.1-or-later
#include "InterleaveHandler.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>
#include <cstdint>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Geometry {
    const char* name;
    TripletTypeEnum type;
    int fullWidth;  // pixels of both half-lines
    int stride;     // bytes kept of a line
    int offset;     // pixels cut off at the left
    int trim;       // pixels skipped in each half-line
};

int channelsOf(const Geometry& g)
{
    return g.type == GRAY ? 1 : 3;
}

void prepare(ImageData& image, const Geometry& g, int lines = 1000)
{
    image.SetAttributes(g.stride / channelsOf(g), lines, g.stride, g.type, FLIP_OFF,
                        COMPRESSION_OFF_RAW, 0);
    image.SetInterleaveInfo(g.fullWidth, lines, g.offset, 0, g.trim);
}

// One line as the device's two half-lines make it; what lies beyond them is zero.
Bytes merged(const Bytes& in, const Geometry& g)
{
    const int channel = channelsOf(g);
    const int length = g.fullWidth * channel;
    const int half = length / 2;
    const auto at = [&](int base, int position) -> unsigned char {
        const bool isInside = position >= 0 && position < half && base + position < sizeOf(in);
        return isInside ? in[static_cast<std::size_t>(base + position)] : 0;
    };
    Bytes line(static_cast<std::size_t>(length), 0);
    int a = g.trim * channel;
    int b = g.trim * channel;
    for (int p = 0; p < length; p += channel) {
        int& position = p % 2 == 0 ? a : b;
        for (int i = 0; i < channel && p + i < length; ++i) {
            line[static_cast<std::size_t>(p + i)] = at(p % 2 == 0 ? 0 : half, position + i);
        }
        position += channel;
    }
    Bytes kept;
    for (int i = 0; i < g.stride; ++i) {
        const int from = g.offset * channel + i;
        kept.push_back(from >= 0 && from < length ? line[static_cast<std::size_t>(from)] : 0);
    }
    return kept;
}

class Interleaved : public testing::TestWithParam<Geometry> {};

TEST_P(Interleaved, LinesAreMerged)
{
    const Geometry& g = GetParam();
    Random random(71);
    const int length = g.fullWidth * channelsOf(g);
    ImageData image;
    prepare(image, g);
    DataBuffer in;
    const Bytes tail = random.bytes(length - 1);
    Bytes expected;
    for (int i = 0; i < 5; ++i) {
        const Bytes line = random.bytes(length);
        append(in, line);
        expected = expected + merged(line, g);
    }
    append(in, tail);
    in.SetProcessedDataSize(INT_MAX);
    append(in, {1, 2, 3});
    InterleaveHandler handler;
    EXPECT_EQ(handler.DoInterleave(&in, &image), 1);
    EXPECT_EQ(rawBytes(image), expected);
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
    EXPECT_EQ(processedBytes(in), tail);
    EXPECT_EQ(rawBytes(in), (Bytes{1, 2, 3}));
}

TEST_P(Interleaved, OneLineIsEnoughAndOneByteLessIsNot)
{
    const Geometry& g = GetParam();
    const int length = g.fullWidth * channelsOf(g);
    const Bytes line = counting(length, 1);
    ImageData image;
    prepare(image, g);
    DataBuffer in;
    InterleaveHandler handler;
    fill(in, slice(line, 0, length - 1));
    // Raw bytes do not count.
    append(in, slice(line, length - 1, length));
    EXPECT_EQ(handler.DoInterleave(&in, &image), -1);
    EXPECT_EQ(allBytes(in), line);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    in.SetProcessedDataSize(1);
    EXPECT_EQ(handler.DoInterleave(&in, &image), 1);
    EXPECT_EQ(allBytes(image), merged(line, g));
    EXPECT_EQ(in.GetAllDataSize(), 0);
}

const Geometry kGeometries[] = {
    {"Colour", RGB, 8, 24, 0, 0},
    {"Grey", GRAY, 16, 16, 0, 0},
    {"Cropped", RGB, 20, 30, 4, 0},
    {"CroppedGrey", GRAY, 20, 9, 3, 0},
    {"Trimmed", RGB, 12, 36, 0, 2},
    {"TrimmedGrey", GRAY, 12, 12, 0, 3},
    {"OddWidth", RGB, 7, 21, 0, 0},
    {"OddGreyWidth", GRAY, 7, 7, 0, 1},
    {"All", RGB, 30, 60, 5, 1},
    {"StrideBeyondTheLine", RGB, 4, 20, 0, 0},
    {"OffsetAtTheEnd", GRAY, 10, 6, 8, 0},
    {"OffsetBeyondTheLine", GRAY, 10, 4, 30, 0},
    {"TrimBeyondTheLine", RGB, 10, 30, 0, 50},
    {"NegativeTrim", RGB, 30, 90, 0, -2},
    {"NegativeGreyTrim", GRAY, 90, 90, 0, -3},
};

INSTANTIATE_TEST_SUITE_P(Geometries, Interleaved, testing::ValuesIn(kGeometries), CaseName());

TEST(InterleaveHandler, PixelsAlternate)
{
    const std::pair<TripletTypeEnum, Bytes> cases[] = {
        {RGB, {0, 1, 2, 6, 7, 8, 3, 4, 5, 9, 10, 11}},
        {GRAY, {0, 6, 1, 7, 2, 8, 3, 9, 4, 10, 5, 11}},
    };
    for (const auto& [type, expected] : cases) {
        ImageData image;
        prepare(image, {"", type, type == GRAY ? 12 : 4, 12, 0, 0});
        DataBuffer in;
        fill(in, counting(12));
        InterleaveHandler().InterleaveLine(&in, &image);
        EXPECT_EQ(rawBytes(image), expected);
        EXPECT_EQ(in.GetAllDataSize(), 0);
    }
}

TEST(InterleaveHandler, ThePageTakesNoMoreThanItExpects)
{
    ImageData image;
    prepare(image, {"", GRAY, 4, 4, 0, 0}, 2);
    DataBuffer in;
    fill(in, counting(16));
    InterleaveHandler handler;
    EXPECT_EQ(handler.DoInterleave(&in, &image), 1);
    EXPECT_EQ(rawBytes(image), (Bytes{0, 2, 1, 3, 4, 6, 5, 7}));
    EXPECT_EQ(image.GetWholeImageSize(), 0);
    EXPECT_EQ(in.GetAllDataSize(), 0);
}

TEST(InterleaveHandler, PlainDataMovesAsItIs)
{
    ImageData image;
    image.SetAttributes(2, 1, 2, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    image.SetRawData(counting(1, 50).data(), 1);
    DataBuffer in;
    fill(in, counting(10), {99});
    const LogCapture capture;
    InterleaveHandler handler;
    EXPECT_EQ(handler.DoInterleave(&in, &image), 0);
    // The page's size does not cut on this path.
    EXPECT_EQ(rawBytes(image), Bytes{50} + counting(10));
    EXPECT_EQ(image.GetWholeImageSize(), 1);
    EXPECT_EQ(rawBytes(in), Bytes{99});
    EXPECT_EQ(in.GetProcessedDataSize(), 0);
    EXPECT_THAT(capture.plainMessages(), ElementsAre("Interleaving is not needed."));
    EXPECT_EQ(handler.DoInterleave(&in, &image), 0);
    EXPECT_EQ(image.GetAllDataSize(), 11);
}

TEST(InterleaveHandler, LogsItsSteps)
{
    ImageData image;
    prepare(image, {"", RGB, 4, 9, 1, 0});
    DataBuffer in;
    fill(in, counting(11));
    InterleaveHandler handler;
    const LogCapture capture;
    handler.DoInterleave(&in, &image);
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre("InterleaveStride = 12",
                            "Cannot perform interleaving since data is not enough!"));
    append(in, {11});
    in.SetProcessedDataSize(1);
    const LogCapture more;
    handler.DoInterleave(&in, &image);
    EXPECT_THAT(
        more.plainMessages(),
        ElementsAre("InterleaveStride = 12", "ScanData->GetProcessedDataSize = 12", "fullWidth = 4",
                    "channel = 3", "croppedWidth = 9", "horizontalOffset = 1", "trimmedPixel = 0"));
}

TEST(InterleaveHandler, FollowsTheModelOverRandomGeometries)
{
    Random random(72);
    for (int round = 0; round < 400; ++round) {
        const bool isGrey = random.pick(0, 1) == 0;
        const int channel = isGrey ? 1 : 3;
        const int width = random.pick(1, 40);
        const Geometry g = {"",
                            isGrey ? GRAY : BGR,
                            width,
                            channel * random.pick(1, 50),
                            random.pick(-60, 45),
                            random.pick(0, 3) == 0 ? random.pick(-3, 45) : 0};
        const int lines = random.pick(1, 6);
        ImageData image;
        prepare(image, g);
        DataBuffer in;
        Bytes expected;
        Bytes stream;
        for (int i = 0; i < lines; ++i) {
            const Bytes line = random.bytes(width * channel);
            stream = stream + line;
            expected = expected + merged(line, g);
        }
        InterleaveHandler handler;
        for (int from = 0; from < sizeOf(stream);) {
            const int n = std::min(random.pick(1, 150), sizeOf(stream) - from);
            append(in, slice(stream, from, from + n));
            in.SetProcessedDataSize(n);
            from += n;
            const int before = in.GetProcessedDataSize();
            ASSERT_EQ(handler.DoInterleave(&in, &image), before >= width * channel ? 1 : -1);
        }
        ASSERT_EQ(rawBytes(image), expected)
            << width << " " << g.stride << " " << g.offset << " " << g.trim;
        EXPECT_EQ(in.GetAllDataSize(), 0);
    }
}

// The buffer grows by doubling, so that its end is that of the tenth line.
TEST(InterleaveHandler, LinesInFrontOfTheFirstPixelAreEmpty)
{
    for (const int offset : {-300, -301, -302, -303, -2001, -100000001, INT_MIN + 1}) {
        const Geometry g = {"", RGB, 300, 900, offset, 0};
        ImageData image;
        prepare(image, g);
        DataBuffer in;
        fill(in, Bytes(9000, 0xAB));
        InterleaveHandler handler;
        EXPECT_EQ(handler.DoInterleave(&in, &image), 1);
        EXPECT_EQ(rawBytes(image), Bytes(9000, 0)) << offset;
    }
}

TEST(InterleaveHandler, TheRestOfALineIsFilledWithZero)
{
    const Geometry g = {"", RGB, 6, 18, 0, 0};
    for (int size = 1; size < 18; ++size) {
        ImageData image;
        prepare(image, g);
        DataBuffer in;
        fill(in, counting(size, 1));
        InterleaveHandler handler;
        EXPECT_TRUE(handler.Finish(&in, &image));
        EXPECT_EQ(rawBytes(image), merged(counting(size, 1), g)) << size;
        EXPECT_EQ(in.GetProcessedDataSize(), 0);
        handler.Finish(&in, &image);
        EXPECT_EQ(image.GetAllDataSize(), 18) << "nothing is left for a second line";
    }
}

// Geometries that a device may report by mistake or in malice.
TEST(InterleaveHandler, UnusualGeometriesEnd)
{
    const int values[] = {INT_MIN, -1000000, -1, 0, 1, 1000000, INT_MAX};
    for (const int width : values) {
        for (const int offset : values) {
            for (const int trim : values) {
                for (const int stride : {-1, 0, 6}) {
                    ImageData image;
                    prepare(image, {"", RGB, width, stride, offset, trim}, 10);
                    DataBuffer in;
                    fill(in, counting(100));
                    InterleaveHandler handler;
                    const int result = handler.DoInterleave(&in, &image);
                    EXPECT_TRUE(result == -1 || result == 1 || result == 0);
                    if (width > 1000) {
                        EXPECT_EQ(result, -1);
                        EXPECT_EQ(in.GetProcessedDataSize(), 100);
                    }
                    EXPECT_LE(image.GetAllDataSize(), 60 + 100);
                }
            }
        }
    }
}

TEST(InterleaveHandler, BytesThatBelongToNoLineAreNotPassedOver)
{
    for (const int width : {0, -1, INT_MIN}) {
        ImageData image;
        prepare(image, {"", RGB, width, 18, 0, 0});
        DataBuffer in;
        InterleaveHandler handler;
        EXPECT_TRUE(handler.Finish(&in, &image)) << "an empty page lacks nothing";
        fill(in, counting(36));
        EXPECT_FALSE(handler.Finish(&in, &image));
    }
}

// Before the attributes of a scan are set there are no channels.
TEST(InterleaveHandler, NoChannelsEnd)
{
    ImageData image;
    image.SetInterleaveInfo(10, 1, 0, 0, 0);
    DataBuffer in;
    fill(in, counting(100));
    InterleaveHandler handler;
    EXPECT_LE(handler.DoInterleave(&in, &image), 1);
    handler.InterleaveLine(&in, &image);
    handler.Finish(&in, &image);
    EXPECT_LE(image.GetAllDataSize(), 100);
}

}  // namespace
