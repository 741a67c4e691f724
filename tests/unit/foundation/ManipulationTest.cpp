// SPDX-License-Identifier: LGPL-2.1-or-later
// The manipulations IMBGRtoRGB and IMSideFlip.
#include "IMBGRtoRGB.h"
#include "IMSideFlip.h"
#include "ImageData.h"

#include "TestSupport.h"

#include <algorithm>
#include <climits>

namespace {

struct Page {
    const char* name;
    TripletTypeEnum type;
    FlipEnum flip;
    int width;   // pixels
    int stride;  // bytes
    Bytes data;  // on the raw side
};

int channelsOf(const Page& page)
{
    return page.type == GRAY ? 1 : 3;
}

void prepare(ImageData& image, const Page& page)
{
    image.SetAttributes(page.width, 1 << 16, page.stride, page.type, page.flip, COMPRESSION_OFF_RAW,
                        0);
    append(image, page.data);
}

void swapBytes(Bytes& bytes, std::int64_t a, std::int64_t b)
{
    if (a >= 0 && b >= 0 && std::max(a, b) < sizeOf(bytes)) {
        std::swap(bytes[static_cast<std::size_t>(a)], bytes[static_cast<std::size_t>(b)]);
    }
}

// ---- the manipulations, byte by byte ------------------------------------------------------

int swapColours(const Page& page, int len, Bytes& data)
{
    if (len < 1 || page.type != BGR) {
        return 0;
    }
    const int lines = len / page.stride;
    for (int i = 1; i <= lines; ++i) {
        for (int j = (i - 1) * page.stride; j < i * page.width * 3; j += 3) {
            swapBytes(data, j, j + 2);
        }
    }
    const int rest = len % page.stride;
    for (int j = lines * page.stride; j + 2 < rest; j += 3) {
        swapBytes(data, j, j + 2);
    }
    return 1;
}

int mirror(const Page& page, int len, Bytes& data)
{
    if (len < 1 || page.flip != FLIP_ON) {
        return 0;
    }
    const int channels = channelsOf(page);
    for (int i = 0; i < len / page.stride; ++i) {
        for (int x = 0; x < page.width / 2; ++x) {
            for (int c = 0; c < channels; ++c) {
                swapBytes(data, i * page.stride + x * channels + c,
                          i * page.stride + (page.width - 1 - x) * channels + c);
            }
        }
    }
    return 1;
}

// ---- fixed pages ----------------------------------------------------------------------------

struct Expected {
    Page page;
    int len;
    int result;
    Bytes data;
};

template <typename Manipulation>
void expectPage(const Expected& expected)
{
    ImageData image;
    prepare(image, expected.page);
    Manipulation manipulation;
    EXPECT_EQ(manipulation.Perform(&image, expected.len), expected.result) << expected.page.name;
    EXPECT_EQ(rawBytes(image), expected.data) << expected.page.name;
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
}

TEST(IMBGRtoRGB, SwapsPixels)
{
    const Bytes two = counting(12, 1);
    const Bytes swapped = {3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10};
    const Expected cases[] = {
        {{"Lines", BGR, FLIP_OFF, 2, 6, two}, 12, 1, swapped},
        {{"OneLine", BGR, FLIP_OFF, 4, 12, two}, 12, 1, swapped},
        {{"FirstLineOnly", BGR, FLIP_OFF, 2, 6, two},
         6,
         1,
         slice(swapped, 0, 6) + slice(two, 6, 12)},
        {{"Rgb", RGB, FLIP_OFF, 2, 6, two}, 12, 0, two},
        {{"Grey", GRAY, FLIP_OFF, 6, 6, two}, 12, 0, two},
        {{"Unknown", UNKNOWN, FLIP_OFF, 2, 6, two}, 12, 0, two},
        {{"Nothing", BGR, FLIP_OFF, 2, 6, two}, 0, 0, two},
        {{"LessThanNothing", BGR, FLIP_OFF, 2, 6, two}, -6, 0, two},
        // The bound of a line counts from the first one without the padding: the second
        // line, from byte 8, is swapped up to byte 12 only.
        {{"Padded", BGR, FLIP_OFF, 2, 8, counting(16, 1)},
         16,
         1,
         {3, 2, 1, 6, 5, 4, 7, 8, 11, 10, 9, 14, 13, 12, 15, 16}},
        // Behind whole lines, positions are compared with the remainder.
        {{"Remainder", BGR, FLIP_OFF, 4, 12, two}, 7, 1, slice(swapped, 0, 6) + slice(two, 6, 12)},
        {{"RemainderBehindALine", BGR, FLIP_OFF, 1, 3, counting(5, 1)}, 5, 1, {3, 2, 1, 4, 5}},
    };
    for (const Expected& expected : cases) {
        expectPage<IMBGRtoRGB>(expected);
    }
}

TEST(IMSideFlip, MirrorsLines)
{
    const Bytes data = counting(12, 1);
    const Expected cases[] = {
        {{"Grey", GRAY, FLIP_ON, 6, 6, data}, 12, 1, {6, 5, 4, 3, 2, 1, 12, 11, 10, 9, 8, 7}},
        {{"OddGrey", GRAY, FLIP_ON, 3, 3, counting(6, 1)}, 6, 1, {3, 2, 1, 6, 5, 4}},
        {{"PaddedGrey", GRAY, FLIP_ON, 4, 6, data}, 12, 1, {4, 3, 2, 1, 5, 6, 10, 9, 8, 7, 11, 12}},
        {{"Colour", RGB, FLIP_ON, 2, 6, data}, 12, 1, {4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9}},
        {{"OddColour", BGR, FLIP_ON, 3, 9, counting(9, 1)}, 9, 1, {7, 8, 9, 4, 5, 6, 1, 2, 3}},
        {{"PaddedColour", RGB, FLIP_ON, 1, 4, counting(8, 1)}, 8, 1, counting(8, 1)},
        {{"PaddedColourPair", RGB, FLIP_ON, 2, 8, counting(8, 1)}, 8, 1, {4, 5, 6, 1, 2, 3, 7, 8}},
        {{"PartialLineStays", GRAY, FLIP_ON, 6, 6, data},
         11,
         1,
         {6, 5, 4, 3, 2, 1, 7, 8, 9, 10, 11, 12}},
        {{"Off", GRAY, FLIP_OFF, 6, 6, data}, 12, 0, data},
        {{"Nothing", GRAY, FLIP_ON, 6, 6, data}, 0, 0, data},
        {{"LessThanNothing", GRAY, FLIP_ON, 6, 6, data}, -1, 0, data},
    };
    for (const Expected& expected : cases) {
        expectPage<IMSideFlip>(expected);
    }
}

TEST(IManipulation, PerformStandsBehindTheDestructor)
{
    EXPECT_EQ(virtualSlot(&IManipulation::Perform), 2);
}

// Only the raw side is worked on.
TEST(IManipulation, ProcessedBytesStay)
{
    ImageData image;
    prepare(image, {"", BGR, FLIP_ON, 2, 6, counting(12, 1)});
    image.SetProcessedDataSize(6);
    IMBGRtoRGB().Perform(&image, 6);
    EXPECT_EQ(allBytes(image), counting(6, 1) + Bytes({9, 8, 7, 12, 11, 10}));
    IMSideFlip().Perform(&image, 6);
    EXPECT_EQ(allBytes(image), counting(6, 1) + Bytes({12, 11, 10, 9, 8, 7}));
}

// ---- random pages ----------------------------------------------------------------------------

template <typename Manipulation>
void expectModel(int (*model)(const Page&, int, Bytes&), unsigned seed, bool narrowStrides)
{
    Random random(seed);
    for (int round = 0; round < 600; ++round) {
        Page page = {"",
                     static_cast<TripletTypeEnum>(random.pick(0, 3)),
                     static_cast<FlipEnum>(random.pick(0, 4) != 0),
                     random.pick(1, 12),
                     0,
                     {}};
        const int pixels = page.width * channelsOf(page);
        page.stride = pixels + (random.pick(0, 1) == 0 ? 0 : random.pick(0, 9));
        if (narrowStrides && random.pick(0, 3) == 0) {
            page.stride = random.pick(1, pixels);
        }
        page.data = random.bytes(random.pick(1, 200));
        const int len = random.pick(0, sizeOf(page.data));
        ImageData image;
        prepare(image, page);
        Bytes expected = page.data;
        const int result = model(page, len, expected);
        Manipulation manipulation;
        ASSERT_EQ(manipulation.Perform(&image, len), result);
        ASSERT_EQ(rawBytes(image), expected)
            << page.type << " " << page.width << " " << page.stride << " " << len;
    }
}

TEST(IMBGRtoRGB, FollowsTheModel)
{
    expectModel<IMBGRtoRGB>(swapColours, 81, true);
}

TEST(IMSideFlip, FollowsTheModel)
{
    expectModel<IMSideFlip>(mirror, 82, false);
}

// ---- geometries that make no sense --------------------------------------------------------------

template <typename Manipulation>
void expectHarmless(TripletTypeEnum type)
{
    for (const int stride : {INT_MIN, -7, -1, 0, 1, 5, INT_MAX}) {
        for (const int width : {INT_MIN, -5, 0, 1, 700000000, INT_MAX}) {
            for (const int len : {INT_MIN, 1, 64, 100, INT_MAX}) {
                const Bytes data = counting(64);
                ImageData image;
                prepare(image, {"", type, FLIP_ON, width, stride, data});
                Manipulation manipulation;
                const int result = manipulation.Perform(&image, len);
                EXPECT_TRUE(result == 0 || result == 1);
                // Bytes move, none is lost.
                Bytes after = rawBytes(image);
                std::sort(after.begin(), after.end());
                EXPECT_EQ(after, data) << stride << " " << width << " " << len;
            }
        }
    }
    ImageData empty;
    empty.SetAttributes(4, 4, 12, type, FLIP_ON, COMPRESSION_OFF_RAW, 0);
    Manipulation manipulation;
    manipulation.Perform(&empty, 12);
    EXPECT_EQ(empty.GetAllDataSize(), 0);
}

TEST(IMBGRtoRGB, UnusualGeometriesAreHarmless)
{
    expectHarmless<IMBGRtoRGB>(BGR);
}

TEST(IMSideFlip, UnusualGeometriesAreHarmless)
{
    expectHarmless<IMSideFlip>(GRAY);
    expectHarmless<IMSideFlip>(RGB);
}

}  // namespace
