// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ImageData.h"
#include "Allocations.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <climits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<int> interleaveInfo(const ImageData& image)
{
    return {image.GetInterleave(),        image.GetInterleaveWidth(),   image.GetInterleaveHeight(),
            image.GetInterleaveOffsetX(), image.GetInterleaveOffsetY(), image.GetInterleaveTrim()};
}

// An image that holds bytes and interleave information of an earlier scan.
void use(ImageData& image)
{
    image.SetAttributes(4, 4, 12, RGB, FLIP_ON, COMPRESSION_ON, 9);
    image.SetInterleaveInfo(1, 2, 3, 4, 5);
    image.SetRawData(counting(20).data(), 20);
    image.SetProcessedDataSize(5);
}

TEST(ImageData, StartsEmpty)
{
    const ImageData image;
    EXPECT_EQ(image.GetWholeImageSize(), 2147483647L);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
    EXPECT_EQ(image.GetScanWidth(), 0);
    EXPECT_EQ(image.GetScanHeight(), 0);
    EXPECT_EQ(image.GetStride(), 0);
    EXPECT_EQ(image.GetNumOfChannels(), 0);
    EXPECT_EQ(image.GetTripletType(), UNKNOWN);
    EXPECT_EQ(image.GetSideFlip(), FLIP_OFF);
    EXPECT_EQ(image.GetCompressionMode(), COMPRESSION_OFF_RAW);
    EXPECT_EQ(image.GetCompressionLevel(), 0);
    EXPECT_EQ(image.GetInterleave(), 0);
}

TEST(ImageData, EnumeratorsHaveTheirNumbers)
{
    EXPECT_THAT((std::vector<int>{BGR, RGB, GRAY, UNKNOWN}), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT((std::vector<int>{COMPRESSION_OFF_RAW, COMPRESSION_ON, COMPRESSION_OFF_JPEG}),
                ElementsAre(0, 1, 2));
    EXPECT_THAT((std::vector<int>{FLIP_OFF, FLIP_ON}), ElementsAre(0, 1));
}

// ---- attributes ----------------------------------------------------------------------

TEST(ImageData, TakesAttributesAndStartsAnew)
{
    ImageData image;
    use(image);
    EXPECT_EQ(image.SetAttributes(100, 7, 304, BGR, FLIP_ON, COMPRESSION_ON, 5), 1);
    EXPECT_EQ(image.GetScanWidth(), 100);
    EXPECT_EQ(image.GetScanHeight(), 7);
    EXPECT_EQ(image.GetStride(), 304);
    EXPECT_EQ(image.GetTripletType(), BGR);
    EXPECT_EQ(image.GetSideFlip(), FLIP_ON);
    EXPECT_EQ(image.GetCompressionMode(), COMPRESSION_ON);
    EXPECT_EQ(image.GetCompressionLevel(), 5);
    EXPECT_EQ(image.GetWholeImageSize(), 7 * 304);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
    EXPECT_EQ(image.GetRawDataPtr(), nullptr);
    EXPECT_EQ(interleaveInfo(image), std::vector<int>(6, 0));
}

TEST(ImageData, HasOneChannelForGreyOnly)
{
    const std::pair<TripletTypeEnum, int> cases[] = {{BGR, 3}, {RGB, 3}, {GRAY, 1}, {UNKNOWN, 3}};
    for (const auto& [type, channels] : cases) {
        ImageData image;
        image.SetAttributes(1, 1, 3, type, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        EXPECT_EQ(image.GetNumOfChannels(), channels);
        EXPECT_EQ(image.GetTripletType(), type);
    }
}

TEST(ImageData, ShowsALevelOnlyWhileCompressed)
{
    const std::pair<CompressionModeEnum, int> cases[] = {
        {COMPRESSION_OFF_RAW, 0}, {COMPRESSION_ON, 8}, {COMPRESSION_OFF_JPEG, 0}};
    for (const auto& [mode, level] : cases) {
        ImageData image;
        image.SetAttributes(1, 1, 1, GRAY, FLIP_OFF, mode, 8);
        EXPECT_EQ(image.GetCompressionLevel(), level);
    }
}

TEST(ImageData, UpdatesTheGeometryOnly)
{
    ImageData image;
    use(image);
    image.UpdateAttributes(10, 20, 32);
    EXPECT_EQ(image.GetScanWidth(), 10);
    EXPECT_EQ(image.GetScanHeight(), 20);
    EXPECT_EQ(image.GetStride(), 32);
    EXPECT_EQ(image.GetWholeImageSize(), 640);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
    EXPECT_EQ(interleaveInfo(image), std::vector<int>(6, 0));
    EXPECT_EQ(image.GetTripletType(), RGB);
    EXPECT_EQ(image.GetNumOfChannels(), 3);
    EXPECT_EQ(image.GetSideFlip(), FLIP_ON);
    EXPECT_EQ(image.GetCompressionLevel(), 9);
}

TEST(ImageData, KeepsItsBlockOverScans)
{
    ImageData image;
    const Bytes page = counting(3000);
    const auto scan = [&] {
        image.SetAttributes(10, 100, 30, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        image.SetRawData(page.data(), sizeOf(page));
    };
    scan();
    const Allocations allocations;
    scan();
    EXPECT_EQ(allocations.count(), 0);
    EXPECT_EQ(allBytes(image), page);
}

TEST(ImageData, RecordsWhatTheDeviceReports)
{
    ImageData image;
    image.SetAttributes(10, 20, 30, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    image.RecordAttributes(8, 19);
    EXPECT_EQ(image.GetActualScanWidth(), 8);
    EXPECT_EQ(image.GetActualScanHeight(), 19);
    EXPECT_EQ(image.GetScanWidth(), 10);
    EXPECT_EQ(image.GetScanHeight(), 20);
    image.SetInterleaveInfo(1, 2, 3, 4, 5);
    EXPECT_THAT(interleaveInfo(image), ElementsAre(1, 1, 2, 3, 4, 5));
    EXPECT_EQ(image.GetWholeImageSize(), 600);
}

// ---- attributes of the option store ---------------------------------------------------

struct StoreCase {
    const char* name;
    std::vector<std::pair<const char*, int>> ints;
    int isAdf;
    TripletTypeEnum type;
    FlipEnum flip;
    CompressionModeEnum mode;
    int level;
};

class ImageDataStore : public testing::TestWithParam<StoreCase> {};

TEST_P(ImageDataStore, GivesTheAttributes)
{
    const StoreCase& param = GetParam();
    TestStore store;
    store.setWindow(100, 50);
    for (const auto& [key, value] : param.ints) {
        store.SetIntOption(key, value);
    }
    ImageData image;
    use(image);
    EXPECT_EQ(image.SetAttributes(&store, param.isAdf), 1);
    EXPECT_EQ(image.GetScanWidth(), 100);
    EXPECT_EQ(image.GetScanHeight(), 50);
    EXPECT_EQ(image.GetStride(), 100 * store.GetIntOption("COLORDEPTH"));
    EXPECT_EQ(image.GetWholeImageSize(), 5000L * store.GetIntOption("COLORDEPTH"));
    EXPECT_EQ(image.GetTripletType(), param.type);
    EXPECT_EQ(image.GetNumOfChannels(), param.type == GRAY ? 1 : 3);
    EXPECT_EQ(image.GetSideFlip(), param.flip);
    EXPECT_EQ(image.GetCompressionMode(), param.mode);
    EXPECT_EQ(image.GetCompressionLevel(), param.level);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    EXPECT_EQ(image.GetInterleave(), 0);
}

const StoreCase kStores[] = {
    {"Rgb", {{"COLORDEPTH", 3}}, 0, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0},
    {"Bgr", {{"COLORDEPTH", 3}, {"BGRTORGB", 1}}, 0, BGR, FLIP_OFF, COMPRESSION_OFF_RAW, 0},
    {"BgrByAnyValue",
     {{"COLORDEPTH", 3}, {"BGRTORGB", -2}},
     0,
     BGR,
     FLIP_OFF,
     COMPRESSION_OFF_RAW,
     0},
    {"Grey", {{"COLORDEPTH", 1}}, 0, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0},
    {"GreyWhateverTheOrder",
     {{"COLORDEPTH", 1}, {"BGRTORGB", 1}},
     0,
     GRAY,
     FLIP_OFF,
     COMPRESSION_OFF_RAW,
     0},
    {"OtherDepth", {{"COLORDEPTH", 24}}, 0, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0},
    {"FlatbedFlip",
     {{"COLORDEPTH", 1}, {"FLATBEDSIDEFLIP", 1}},
     0,
     GRAY,
     FLIP_ON,
     COMPRESSION_OFF_RAW,
     0},
    {"FlatbedIgnoresTheFeederFlip",
     {{"COLORDEPTH", 1}, {"ADFSIDEFLIP", 1}},
     0,
     GRAY,
     FLIP_OFF,
     COMPRESSION_OFF_RAW,
     0},
    {"FeederFlip",
     {{"COLORDEPTH", 1}, {"ADFSIDEFLIP", 2}},
     1,
     GRAY,
     FLIP_ON,
     COMPRESSION_OFF_RAW,
     0},
    {"FeederIgnoresTheFlatbedFlip",
     {{"COLORDEPTH", 1}, {"FLATBEDSIDEFLIP", 1}},
     7,
     GRAY,
     FLIP_OFF,
     COMPRESSION_OFF_RAW,
     0},
    {"Compressed",
     {{"COLORDEPTH", 1}, {"COMPRESSION", 1}, {"COMPRESSIONLEVEL", 6}},
     0,
     GRAY,
     FLIP_OFF,
     COMPRESSION_ON,
     6},
    {"CompressedByAnyValue",
     {{"COLORDEPTH", 1}, {"COMPRESSION", 2}, {"COMPRESSIONLEVEL", 6}},
     0,
     GRAY,
     FLIP_OFF,
     COMPRESSION_ON,
     6},
    {"LevelAlone",
     {{"COLORDEPTH", 1}, {"COMPRESSIONLEVEL", 6}},
     0,
     GRAY,
     FLIP_OFF,
     COMPRESSION_OFF_RAW,
     0},
};

INSTANTIATE_TEST_SUITE_P(Stores, ImageDataStore, testing::ValuesIn(kStores), CaseName());

// ---- storing ---------------------------------------------------------------------------

TEST(ImageData, StoresWhatThePageExpects)
{
    ImageData image;
    image.SetAttributes(5, 2, 5, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    EXPECT_EQ(image.SetRawData(counting(6).data(), 6), 1);
    EXPECT_EQ(image.GetWholeImageSize(), 4);
    EXPECT_EQ(image.SetRawData(counting(6, 6).data(), 6), 1);
    EXPECT_EQ(image.GetWholeImageSize(), 0);
    EXPECT_EQ(allBytes(image), counting(10));
    EXPECT_EQ(image.SetRawData(counting(6).data(), 6), 1);
    EXPECT_EQ(image.GetWholeImageSize(), 0);
    EXPECT_EQ(allBytes(image), counting(10));
    EXPECT_EQ(image.GetProcessedDataSize(), 0);
}

TEST(ImageData, StoresItsOwnBytes)
{
    ImageData image;
    image.SetAttributes(3000, 10, 3000, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    const Bytes line = counting(3000);
    image.SetRawData(line.data(), sizeOf(line));
    for (int i = 0; i < 3; ++i) {
        image.SetRawData(image.GetRawDataPtr(), image.GetRawDataSize());
    }
    EXPECT_EQ(allBytes(image), line + line + line + line + line + line + line + line);
}

TEST(ImageData, CountsOnlyWhatWasStored)
{
    ImageData image;
    image.SetAttributes(5, 2, 5, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    EXPECT_EQ(image.SetRawData(nullptr, 3), 1);
    EXPECT_EQ(image.SetRawData(counting(3).data(), 0), 1);
    EXPECT_EQ(image.SetRawData(counting(3).data(), -3), 1);
    EXPECT_EQ(image.GetAllDataSize(), 0);
    EXPECT_EQ(image.GetWholeImageSize(), 10);
    {
        const Allocations none(0);
        EXPECT_EQ(image.SetRawData(counting(0).data(), 3), 1);
    }
    EXPECT_EQ(image.GetAllDataSize(), 0);
}

TEST(ImageData, WithoutAttributesItTakesEverything)
{
    ImageData image;
    EXPECT_EQ(image.SetRawData(counting(6).data(), 6), 1);
    EXPECT_EQ(image.GetAllDataSize(), 6);
    EXPECT_EQ(image.GetWholeImageSize(), 2147483641L);
}

TEST(ImageData, TheBaseOperationIsNotLimited)
{
    ImageData image;
    image.SetAttributes(2, 1, 2, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    DataBuffer from;
    fill(from, counting(6));
    EXPECT_EQ(from.GetProcessedData(&image, 6), 6);
    EXPECT_EQ(allBytes(image), counting(6));
    EXPECT_EQ(image.GetWholeImageSize(), 2);
}

TEST(ImageData, GivesRoomForWhatThePageExpects)
{
    ImageData image;
    image.SetAttributes(5, 2, 5, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    int len = 6;
    ASSERT_NE(image.ExtendRawData(&len), nullptr);
    EXPECT_EQ(len, 6);
    EXPECT_EQ(image.GetWholeImageSize(), 4);
    ASSERT_NE(image.ExtendRawData(&len), nullptr);
    EXPECT_EQ(len, 4);
    EXPECT_EQ(image.GetAllDataSize(), 10);
    EXPECT_EQ(image.GetWholeImageSize(), 0);
    len = 1;
    EXPECT_EQ(image.ExtendRawData(&len), nullptr);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(image.GetAllDataSize(), 10);
}

TEST(ImageData, UnusualSizesStoreNothingBeyondThePage)
{
    // The size of a page is a product of 32 bits; below 0 nothing is expected.
    const std::pair<int, int> sizes[] = {{-1, 10}, {10, -1}, {0, 10}, {10, 0}, {INT_MIN, INT_MIN}};
    for (const auto& [height, stride] : sizes) {
        ImageData image;
        image.SetAttributes(10, height, stride, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        EXPECT_EQ(image.SetRawData(counting(6).data(), 6), 1) << height << " x " << stride;
        EXPECT_EQ(image.GetAllDataSize(), 0) << height << " x " << stride;
    }
    ImageData huge;
    huge.SetAttributes(10, INT_MAX, INT_MAX, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    EXPECT_EQ(huge.SetRawData(counting(6).data(), 6), 1);
    huge.UpdateAttributes(1, 1 << 16, 1 << 16);
}

// ---- ApplyAdjustments --------------------------------------------------------------------

struct TrimCase {
    const char* name;
    int width, height, stride, actualWidth, actualHeight;
    TripletTypeEnum type;
    int len;
};

Bytes trimmed(const TrimCase& c, const Bytes& data, int* resultLength)
{
    Bytes out(data.size(), 0);
    const int line = (c.type == GRAY ? 1 : 3) * c.actualWidth;
    int to = 0;
    for (int from = 0; from < c.len; from += c.stride) {
        for (int i = 0; i < std::min(line, c.len - from); ++i) {
            out[static_cast<std::size_t>(to++)] = data[static_cast<std::size_t>(from + i)];
        }
    }
    *resultLength = to;
    // What lies behind len is not the operation's.
    std::copy(data.begin() + c.len, data.end(), out.begin() + c.len);
    return out;
}

class ImageDataTrim : public testing::TestWithParam<TrimCase> {};

TEST_P(ImageDataTrim, CutsLinesToTheActualWidth)
{
    const TrimCase& c = GetParam();
    ImageData image;
    image.SetAttributes(c.width, c.height, c.stride, c.type, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    image.RecordAttributes(c.actualWidth, c.actualHeight);
    const Bytes data = counting(c.len + 4, 1);
    Bytes buffer = data;
    int length = 0;
    const Bytes expected = trimmed(c, data, &length);
    const LogCapture capture;
    EXPECT_EQ(image.ApplyAdjustments(buffer.data(), c.len, 99), length);
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(image.GetScanWidth(), c.width);

    Lines log = {"TRIMMING WIDTH", "data length: " + std::to_string(c.len) + "\n"};
    const int channels = c.type == GRAY ? 1 : 3;
    log.push_back("actual width: " + std::to_string(c.actualWidth) +
                  ", channels: " + std::to_string(channels) +
                  ", bytes per line: " + std::to_string(channels * c.actualWidth) + "\n");
    for (int from = 0, to = 0; from < c.len; from += c.stride) {
        const int n = std::min(channels * c.actualWidth, c.len - from);
        log.push_back("copy " + std::to_string(n) + " bytes at " + std::to_string(from) +
                      " from temp to " + std::to_string(to) + " of storage");
        to += n;
    }
    EXPECT_EQ(capture.plainMessages(), log);
}

INSTANTIATE_TEST_SUITE_P(Geometries, ImageDataTrim,
                         testing::Values(TrimCase{"Grey", 10, 4, 10, 7, 4, GRAY, 40},
                                         TrimCase{"Colour", 5, 4, 15, 3, 4, RGB, 60},
                                         TrimCase{"PaddedStride", 5, 4, 16, 3, 3, BGR, 64},
                                         TrimCase{"PartialLastLine", 10, 4, 10, 7, 4, GRAY, 33},
                                         TrimCase{"PartialBeyondTheCut", 10, 4, 10, 7, 4, GRAY, 39},
                                         TrimCase{"LessThanALine", 10, 4, 10, 7, 4, GRAY, 5},
                                         TrimCase{"NoPixels", 10, 4, 10, 0, 4, GRAY, 40},
                                         TrimCase{"NoBytes", 10, 4, 10, 7, 4, GRAY, 0}),
                         CaseName());

TEST(ImageData, LeavesOtherGeometriesAlone)
{
    const std::pair<int, int> actual[] = {{10, 4}, {10, 3}, {10, 5}, {11, 4}, {12, 2}};
    for (const auto& [width, height] : actual) {
        ImageData image;
        image.SetAttributes(10, 4, 10, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        image.RecordAttributes(width, height);
        Bytes buffer = counting(40);
        const LogCapture capture;
        EXPECT_EQ(image.ApplyAdjustments(buffer.data(), 40, 4), 40);
        EXPECT_EQ(buffer, counting(40));
        EXPECT_THAT(capture.plainMessages(), IsEmpty());
    }
}

// Strides and widths that a device may report; the lines then overlap, run backwards or
// do not advance at all.
TEST(ImageData, TrimmingStaysInsideItsBuffer)
{
    for (const int stride : {INT_MIN, -5, -1, 0, 1, 3, INT_MAX}) {
        for (const int actualWidth : {INT_MIN, -7, -1, 0, 5, 9, INT_MAX / 2}) {
            ImageData image;
            image.SetAttributes(INT_MAX, 4, stride, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
            image.RecordAttributes(actualWidth, 4);
            for (const int len : {-1, 0, 1, 10, 64}) {
                Bytes buffer = counting(std::max(len, 1));
                const int result = image.ApplyAdjustments(buffer.data(), len, 4);
                EXPECT_LE(result, len) << stride << " " << actualWidth;
                EXPECT_GE(result, std::min(len, 0)) << stride << " " << actualWidth;
            }
        }
    }
}

}  // namespace
