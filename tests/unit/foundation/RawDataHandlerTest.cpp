// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RawDataHandler.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kColourTable = "/usr/qilinkjet/qil08/etc/qldnSCc0.bin";

void setImage(ImageData& image, TripletTypeEnum type, FlipEnum flip, int width, int stride,
              const Bytes& data)
{
    image.SetAttributes(width, 1000, stride, type, flip, COMPRESSION_OFF_RAW, 0);
    append(image, data);
}

// ---- the chain --------------------------------------------------------------------------------

struct ChainCase {
    const char* name;
    std::vector<std::pair<const char*, int>> ints;
    Lines log;
};

class Chain : public testing::TestWithParam<ChainCase> {};

TEST_P(Chain, IsBuiltFromTheStore)
{
    TestStore store;
    for (const auto& [key, value] : GetParam().ints) {
        store.SetIntOption(key, value);
    }
    RawDataHandler handler;
    const LogCapture capture;
    handler.SetUp(&store);
    Lines expected = {"RawDataHandler Constructor"};
    expected.insert(expected.end(), GetParam().log.begin(), GetParam().log.end());
    EXPECT_EQ(capture.plainMessages(), expected);
    // With a chain a part of a line waits.
    ImageData image;
    setImage(image, RGB, FLIP_OFF, 2, 6, counting(5));
    EXPECT_EQ(handler.Perform(&image), GetParam().log.empty() ? 1 : 0);
    EXPECT_EQ(image.GetProcessedDataSize(), GetParam().log.empty() ? 5 : 0);
}

const char* const kSwap = "BGR to RGB object created.";
const char* const kFlip = "SideFlip object created.";

INSTANTIATE_TEST_SUITE_P(
    Stores, Chain,
    testing::Values(
        ChainCase{"Nothing", {{"SCANBARID", 3}}, {}}, ChainCase{"Swap", {{"BGRTORGB", 1}}, {kSwap}},
        ChainCase{"SwapByAnyValue", {{"BGRTORGB", -1}}, {kSwap}},
        ChainCase{"FlatbedFlip", {{"FLATBEDSIDEFLIP", 1}}, {kFlip}},
        ChainCase{"FeederFlip", {{"ADFSIDEFLIP", 1}}, {kFlip}},
        ChainCase{"OneFlipForBoth", {{"ADFSIDEFLIP", 1}, {"FLATBEDSIDEFLIP", 1}}, {kFlip}},
        ChainCase{"InOrder", {{"FLATBEDSIDEFLIP", 1}, {"BGRTORGB", 1}}, {kSwap, kFlip}}),
    CaseName());

class RawData : public testing::Test {
protected:
    RawData()
    {
        store.SetIntOption("COLORCORRECT", 1);
        store.SetStringOption("SCLIB", CORRECTION_LIBRARY);
        store.SetStringOption("SCFUNC", "Fail");
        store.SetStringOption("COLORLUT", colour.c_str());
        store.SetStringOption("GRAYLUT", grey.c_str());
    }

    TempFolder folder;
    std::string colour = folder.file("c0.bin", "\x05");
    std::string grey = folder.file("g0.bin", "\x07");
    TestStore store;
    ImageData image;
};

TEST_F(RawData, CorrectionIsLogged)
{
    RawDataHandler handler;
    const LogCapture capture;
    handler.SetUp(&store);
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre("RawDataHandler Constructor",
                            std::string("SCLib = ") + CORRECTION_LIBRARY + "\n", "SCFunc = Fail\n",
                            "ColorLUT = " + colour + "\n", "GrayLUT = " + grey + "\n",
                            "Color Correct object created."));
}

// The correction comes last: the byte that it spoils stays in front.
TEST_F(RawData, CorrectionFollowsTheOthers)
{
    store.SetIntOption("BGRTORGB", 1);
    store.SetIntOption("FLATBEDSIDEFLIP", 1);
    RawDataHandler handler;
    handler.SetUp(&store);
    setImage(image, BGR, FLIP_ON, 2, 6, counting(6, 1));
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{0xEE, 5, 4, 3, 2, 1}));
}

TEST_F(RawData, TheScanBarChoosesTheTables)
{
    const std::string colourTwo = folder.file("c2.bin", "\x06");
    folder.file("g2.bin", "\x08");
    store.SetIntOption("SCANBARID", 2);
    store.SetStringOption("SCFUNC", "AddFirst");
    RawDataHandler handler;
    handler.SetUp(&store);
    EXPECT_EQ(store.GetStringOption("COLORLUT"), colourTwo);
    setImage(image, RGB, FLIP_OFF, 1, 3, {10, 10, 10});
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{16, 16, 16}));
}

TEST_F(RawData, CorrectionWithoutItsPartsIsHarmless)
{
    TestStore bare{{"COLORCORRECT", 1}, {"SCANBARID", 2}};
    RawDataHandler handler;
    handler.SetUp(&bare);
    setImage(image, RGB, FLIP_OFF, 1, 3, {10, 11, 12});
    const LogCapture capture;
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{10, 11, 12}));
    EXPECT_TRUE(capture.contains("Scan Correct failed."));
}

// With padded lines the order shows: the swap leaves the end of the second line out, the
// flip then moves that to the front.
TEST(RawDataHandler, SwapsBeforeItFlips)
{
    TestStore store{{"BGRTORGB", 1}, {"ADFSIDEFLIP", 1}};
    RawDataHandler handler;
    handler.SetUp(&store);
    ImageData image;
    setImage(image, BGR, FLIP_ON, 3, 12, counting(24, 1));
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{9,  8,  7,  6,  5,  4,  3,  2,  1,  10, 11, 12,
                                            19, 20, 21, 18, 17, 16, 15, 14, 13, 22, 23, 24}));
}

TEST(RawDataHandler, TheImageDecidesWhatActs)
{
    TestStore store{{"BGRTORGB", 1}, {"ADFSIDEFLIP", 1}};
    RawDataHandler handler;
    handler.SetUp(&store);
    ImageData image;
    setImage(image, RGB, FLIP_OFF, 2, 6, counting(6));
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), counting(6));
}

// ---- Perform -----------------------------------------------------------------------------------

TEST(RawDataHandler, WithoutAChainEverythingPasses)
{
    RawDataHandler handler;
    ImageData image;
    EXPECT_EQ(handler.Perform(&image), 1);
    setImage(image, RGB, FLIP_ON, 2, 6, counting(8));
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), counting(8));
    EXPECT_EQ(image.GetRawDataSize(), 0);
}

TEST(RawDataHandler, WorksOnWholeLines)
{
    TestStore store{{"FLATBEDSIDEFLIP", 1}};
    RawDataHandler handler;
    handler.SetUp(&store);
    ImageData image;
    setImage(image, GRAY, FLIP_ON, 4, 4, counting(3));
    EXPECT_EQ(handler.Perform(&image), 0);
    EXPECT_EQ(rawBytes(image), counting(3));
    append(image, counting(7, 3));
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{3, 2, 1, 0, 7, 6, 5, 4}));
    EXPECT_EQ(rawBytes(image), (Bytes{8, 9}));
    EXPECT_EQ(handler.Perform(&image), 0);
    // Lines that are done are not touched again.
    append(image, {10, 11});
    EXPECT_EQ(handler.Perform(&image), 1);
    EXPECT_EQ(processedBytes(image), (Bytes{3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8}));
}

TEST(RawDataHandler, LinesCutAtRandomComeOutTheSame)
{
    Random random(91);
    for (int round = 0; round < 100; ++round) {
        TestStore store{{"FLATBEDSIDEFLIP", 1}, {"BGRTORGB", 1}};
        RawDataHandler handler;
        handler.SetUp(&store);
        const int width = random.pick(1, 20);
        const int lines = random.pick(1, 20);
        const Bytes data = random.bytes(3 * width * lines);
        // Both together turn a line around byte by byte.
        Bytes expected;
        for (int i = 0; i < lines; ++i) {
            Bytes line = slice(data, 3 * width * i, 3 * width * (i + 1));
            std::reverse(line.begin(), line.end());
            expected = expected + line;
        }
        ImageData image;
        setImage(image, BGR, FLIP_ON, width, 3 * width, {});
        Bytes received;
        for (int from = 0; from < sizeOf(data);) {
            const int n = std::min(random.pick(1, 100), sizeOf(data) - from);
            image.SetRawData(data.data() + from, n);
            from += n;
            const bool isLine = image.GetRawDataSize() >= 3 * width;
            ASSERT_EQ(handler.Perform(&image), isLine ? 1 : 0);
            Bytes out(static_cast<std::size_t>(random.pick(1, 200)));
            const int taken = image.GetProcessedData(out.data(), sizeOf(out));
            received = received + slice(out, 0, taken);
        }
        EXPECT_EQ(received + processedBytes(image), expected);
        EXPECT_EQ(image.GetRawDataSize(), 0);
    }
}

TEST(RawDataHandler, TheRestOfALinePassesAtTheEnd)
{
    TestStore store{{"FLATBEDSIDEFLIP", 1}};
    RawDataHandler handler;
    handler.SetUp(&store);
    ImageData image;
    setImage(image, GRAY, FLIP_ON, 4, 4, counting(6));
    handler.Finish(&image);
    EXPECT_EQ(image.GetRawDataSize(), 0);
    EXPECT_EQ(slice(processedBytes(image), 0, 4), (Bytes{3, 2, 1, 0}));
    EXPECT_EQ(processedBytes(image).size(), 6U);
    handler.Finish(&image);
    EXPECT_EQ(image.GetProcessedDataSize(), 6);
}

TEST(RawDataHandler, UnusualStridesEnd)
{
    for (const int stride : {INT_MIN, -1, 0, INT_MAX}) {
        TestStore store{{"FLATBEDSIDEFLIP", 1}, {"BGRTORGB", 1}, {"COLORCORRECT", 1}};
        RawDataHandler handler;
        handler.SetUp(&store);
        ImageData image;
        setImage(image, BGR, FLIP_ON, 4, stride, counting(20));
        // Without lines there are none to wait for.
        EXPECT_EQ(handler.Perform(&image), stride < 1 ? 1 : 0);
        EXPECT_EQ(image.GetProcessedDataSize(), stride < 1 ? 20 : 0);
        EXPECT_EQ(processedBytes(image).size(), stride < 1 ? 20U : 0U);
        handler.Finish(&image);
        EXPECT_EQ(image.GetProcessedDataSize(), 20) << stride;
    }
}

// ---- CheckForMultipleScanbars
// ----------------------------------------------------------------------

struct ScanBarCase {
    const char* name;
    int id;
    const char* table;
    const char* expected;
};

class ScanBar : public testing::TestWithParam<ScanBarCase> {};

TEST_P(ScanBar, IsPutIntoTheNames)
{
    const ScanBarCase& param = GetParam();
    TestStore store{{"SCANBARID", param.id}};
    store.SetStringOption("COLORLUT", param.table);
    store.SetStringOption("GRAYLUT", "/grey/g7.bin");
    RawDataHandler handler;
    const LogCapture capture;
    EXPECT_EQ(handler.CheckForMultipleScanbars(&store), 0);
    EXPECT_STREQ(store.GetStringOption("COLORLUT"), param.expected);
    if (param.id == 0) {
        EXPECT_STREQ(store.GetStringOption("GRAYLUT"), "/grey/g7.bin");
        EXPECT_THAT(capture.plainMessages(), IsEmpty());
        return;
    }
    const std::string digit = std::to_string(param.id).substr(0, 1);
    const std::string grey = "/grey/g" + digit + ".bin";
    EXPECT_EQ(store.GetStringOption("GRAYLUT"), grey);
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre("CheckForMultipleScanbars", "ScanBarNum = " + digit,
                            std::string("Color = ") + param.expected, "Gray = " + grey));
}

INSTANTIATE_TEST_SUITE_P(
    Ids, ScanBar,
    testing::Values(ScanBarCase{"None", 0, kColourTable, kColourTable},
                    ScanBarCase{"Two", 2, kColourTable, "/usr/qilinkjet/qil08/etc/qldnSCc2.bin"},
                    ScanBarCase{"FirstDigit", 35, kColourTable,
                                "/usr/qilinkjet/qil08/etc/qldnSCc3.bin"},
                    ScanBarCase{"Sign", -4, kColourTable, "/usr/qilinkjet/qil08/etc/qldnSCc-.bin"},
                    ScanBarCase{"FiveCharacters", 2, "0.bin", "2.bin"},
                    ScanBarCase{"FourCharacters", 2, ".bin", ".bin"},
                    ScanBarCase{"Empty", 2, "", ""},
                    ScanBarCase{"OtherEnding", 2, "table.lookup", "table.l2okup"}),
    CaseName());

TEST(RawDataHandler, AbsentTableNamesStayAbsent)
{
    TestStore store{{"SCANBARID", 2}};
    store.SetStringOption("GRAYLUT", "g0.bin");
    EXPECT_EQ(RawDataHandler().CheckForMultipleScanbars(&store), 0);
    EXPECT_EQ(store.GetStringOption("COLORLUT"), nullptr);
    EXPECT_STREQ(store.GetStringOption("GRAYLUT"), "g2.bin");
}

}  // namespace
