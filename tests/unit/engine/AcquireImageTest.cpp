// SPDX-License-Identifier: LGPL-2.1-or-later
// Image data from the transport to the caller.
#include "Allocations.h"
#include "LogCapture.h"
#include "Sandbox.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include <unistd.h>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::TestWithParam;

namespace {

// ---- how much is asked for -----------------------------------------------------------

struct Need {
    const char* name;
    bool hasChain;             // only whole lines are handed on then
    int block;                 // bytes in each read from the device
    std::vector<int> sizes;    // of the caller's reads
    std::vector<int> reads;    // from the device, for each
    std::vector<int> lengths;  // that the caller gets
    friend void PrintTo(const Need& c, std::ostream* out) { *out << c.name; }
};

class NeedTest : public TestWithParam<Need> {};

// Lines of 10 bytes. After each read from the device, all bytes that wait for the end of
// the call count against the need once more, so that small blocks end it early.
TEST_P(NeedTest, ReadsFromTheDevice)
{
    const Need& given = GetParam();
    TestEngine engine;
    if (given.hasChain) {
        engine.set("FLATBEDSIDEFLIP", 1);
        engine.setUpManipulations();
    }
    engine.startFrame();
    engine.transport->lastStep = {0, ramp(given.block)};
    for (std::size_t i = 0; i < given.sizes.size(); i++) {
        engine.calls().clear();
        const Got got = acquire(engine, given.sizes[i]);
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(static_cast<int>(got.bytes.size()), given.lengths[i]) << "read " << i;
        EXPECT_EQ(engine.count("read"), given.reads[i]) << "read " << i;
        EXPECT_THAT(engine.calls(), Each("read"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Amounts, NeedTest,
    testing::Values(Need{"OneLine", false, 10, {10}, {1}, {10}},
                    Need{"OneLineInParts", false, 5, {10}, {2}, {10}},
                    Need{"WholeLinesForPartOfOne", false, 5, {15}, {3}, {15}},
                    Need{"WholeLinesOnly", false, 10, {25}, {2}, {20}},
                    Need{"MoreThanAsked", false, 30, {25, 25, 4}, {1, 1, 0}, {25, 25, 4}},
                    Need{"LessThanALine", false, 4, {4, 4}, {2, 0}, {4, 4}},
                    Need{"SingleBytes", false, 1, {9}, {4}, {4}},
                    Need{"PartialLineWaits", true, 3, {10, 10}, {3, 1}, {0, 10}},
                    Need{"WaitingBytesCount", true, 3, {10, 30}, {3, 2}, {0, 10}},
                    Need{"PartialLineCounts", true, 9, {10, 10}, {1 + 1, 1}, {10, 10}},
                    Need{"LineFromTheRest", true, 15, {3, 3, 3, 3}, {1, 0, 0, 1}, {3, 3, 3, 3}},
                    Need{"NoRoom", false, 10, {0, -1}, {0, 0}, {0, 0}}),
    kByName);

// Callers with the oddest numbers, on a page of 30 bytes in blocks of 3.
TEST(AcquireImageTest, ExtremesOfSizeAndLine)
{
    struct Case {
        int size;
        int stride;
        int length;
        int reads;
    };
    constexpr int kToTheEnd = 11;
    const Case cases[] = {
        {INT_MIN, 10, 0, 0},
        {INT_MIN, INT_MAX, 0, 0},
        {INT_MAX, 0, 30, kToTheEnd},
        {INT_MAX, 7, 30, kToTheEnd},
        {INT_MAX, INT_MAX, 30, kToTheEnd},
        {INT_MAX - 1, INT_MAX, 30, kToTheEnd},
        {1, INT_MAX, 1, kToTheEnd},
        {1, 0, 1, 1},
        {9, 0, 6, 2},  // the first block counts twice
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << " bytes of lines of " << c.stride);
        TestEngine engine;
        engine.startFrame();
        engine.Image->UpdateAttributes(10, 3, c.stride);
        engine.transport->steps = stepsOf(ramp(30), 3);
        Bytes data(30);
        int length = -1;
        EXPECT_EQ(engine.AcquireImage(data.data(), c.size, &length), 0);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(engine.count("read"), c.reads);
        EXPECT_EQ(Bytes(data.begin(), data.begin() + length), ramp(length));
    }
}

TEST(AcquireImageTest, Log)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{0, ramp(10)}};
    LogCapture log;
    acquire(engine, 10);
    for (const char* line :
         {"image stride(bytes per scan line of the image data): 10", "after ReadImage. return: 0",
          "max_length = 10", "length = 10", "retstatus = 0"}) {
        EXPECT_THAT(log.plainMessages(), Contains(line));
    }
}

// A device may be silent for long, and a read may take many transfers.
TEST(AcquireImageTest, TheLogIsSwitchedInTheMiddleOfARead)
{
    for (const bool isOn : {true, false}) {
        TestEngine engine;
        engine.startFrame();
        LogCapture log;
        const auto turn = [](bool on) { setenv("ENABLE_SL_LOG", on ? "1" : "0", 1); };
        turn(!isOn);
        engine.transport->steps = {{0, ramp(10)}, {0, ramp(10), [=](ImageData*) { turn(isOn); }}};
        EXPECT_EQ(acquire(engine, 25).bytes.size(), 20u);
        const std::vector<std::string> lines = log.plainMessages();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "after ReadImage. return: 0"), 1) << isOn;
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "length = 20"), isOn ? 1 : 0);
    }
}

TEST(AcquireImageTest, OtherOverloadDoesNothing)
{
    TestEngine engine;
    engine.startFrame();
    unsigned char byte = 5;
    int length = 6;
    EXPECT_EQ(engine.AcquireImage(&byte, &length), 0);
    EXPECT_EQ(length, 6);
    EXPECT_THAT(engine.calls(), IsEmpty());
}

// ---- results of the transport --------------------------------------------------------

struct Result {
    const char* name;
    int transport;
    int status;
    bool isUnlocked;
    bool isKept;  // later reads give it again without the device
    friend void PrintTo(const Result& c, std::ostream* out) { *out << c.name; }
};

class ResultTest : public TestWithParam<Result> {};

TEST_P(ResultTest, EndsTheFrame)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{GetParam().transport}};
    const Got got = acquire(engine, 10);
    EXPECT_EQ(got.status, GetParam().status);
    EXPECT_THAT(got.bytes, IsEmpty());
    EXPECT_EQ(engine.ScanInProgress, 0);
    EXPECT_EQ(engine.calls(),
              GetParam().isUnlocked ? Journal({"read", "command 5"}) : Journal({"read"}));
    engine.calls().clear();
    LogCapture log;
    if (GetParam().isKept) {
        EXPECT_EQ(acquire(engine, 10).status, GetParam().status);
        EXPECT_THAT(engine.calls(), IsEmpty());
        EXPECT_THAT(log.plainMessages(),
                    Contains("AcquireImageStatus = " + std::to_string(GetParam().status)));
    } else {
        engine.transport->steps = {{0, ramp(10)}};
        EXPECT_EQ(acquire(engine, 10).status, 0);
        EXPECT_EQ(engine.count("read"), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Codes, ResultTest,
    testing::Values(Result{"End", 1, 5, true, true}, Result{"NoMemory", 2, 10, true, true},
                    Result{"Stopped", 3, 2, true, true}, Result{"Cancelled", 4, 2, true, true},
                    Result{"Jam", 5, 6, true, true}, Result{"Failure", 15, 9, false, false}),
    kByName);

struct Read {
    int status;
    int length;
};

// What two reads give when 28 bytes come first, then the step, then 40 more.
struct Interruption {
    const char* name;
    Step step;
    std::vector<Read> plain;
    std::vector<Read> manipulated;  // where 8 of the 28 bytes wait for the rest of their line
    int kept;                       // AcquireImageStatus behind the first read
    int inProgress;
    Journal commands;  // of the first read
    friend void PrintTo(const Interruption& c, std::ostream* out) { *out << c.name; }
};

class InterruptionTest : public TestWithParam<Interruption> {
protected:
    static void expectReads(TestEngine& engine, const std::vector<Read>& reads)
    {
        engine.startFrame();
        Bytes expected = ramp(28) + GetParam().step.bytes + ramp(40, 0x80);
        engine.transport->steps = stepsOf(ramp(28), 14);
        engine.transport->steps.push_back(GetParam().step);
        for (const Step& step : stepsOf(ramp(40, 0x80), 20)) {
            engine.transport->steps.push_back(step);
        }
        expectRead(engine, 100, reads[0], &expected);
        EXPECT_EQ(engine.AcquireImageStatus, GetParam().kept);
        EXPECT_EQ(engine.ScanInProgress, GetParam().inProgress);
        Journal commands = engine.calls();
        commands.erase(std::remove(commands.begin(), commands.end(), "read"), commands.end());
        EXPECT_EQ(commands, GetParam().commands);
        expectRead(engine, 40, reads[1], &expected);
    }

private:
    // The bytes are those that were sent, in their order.
    static void expectRead(TestEngine& engine, int size, const Read& expected, Bytes* sent)
    {
        const Got got = acquire(engine, size);
        EXPECT_EQ(got.status, expected.status);
        ASSERT_EQ(static_cast<int>(got.bytes.size()), expected.length);
        EXPECT_EQ(got.bytes, Bytes(sent->begin(), sent->begin() + expected.length));
        sent->erase(sent->begin(), sent->begin() + expected.length);
    }
};

TEST_P(InterruptionTest, AsItComes)
{
    TestEngine engine;
    expectReads(engine, GetParam().plain);
}

// Colours of a grey page are not swapped, but it goes line by line all the same.
TEST_P(InterruptionTest, LineByLine)
{
    TestEngine engine;
    engine.set("BGRTORGB", 1);
    engine.setUpManipulations();
    expectReads(engine, GetParam().manipulated);
}

const Step kBrokenEnd = {1, {}, nullptr, true};

INSTANTIATE_TEST_SUITE_P(
    Codes, InterruptionTest,
    testing::Values(
        Interruption{"End", {1}, {{0, 28}, {5, 0}}, {{0, 28}, {5, 0}}, 5, 0, {"command 5"}},
        Interruption{"EndWithBytes",
                     {1, ramp(7)},
                     {{0, 35}, {5, 0}},
                     {{0, 35}, {5, 0}},
                     5,
                     0,
                     {"command 5"}},
        Interruption{"BrokenEnd", kBrokenEnd, {{9, 28}, {0, 40}}, {{9, 20}, {0, 40}}, 0, 1, {}},
        Interruption{
            "NoMemory", {2}, {{10, 28}, {10, 0}}, {{10, 20}, {10, 0}}, 10, 0, {"command 5"}},
        Interruption{"Stopped", {3}, {{2, 28}, {2, 0}}, {{2, 20}, {2, 0}}, 2, 0, {"command 5"}},
        Interruption{"Cancelled", {4}, {{2, 28}, {2, 0}}, {{2, 20}, {2, 0}}, 2, 0, {"command 5"}},
        Interruption{"Jam", {5}, {{6, 28}, {6, 0}}, {{6, 20}, {6, 0}}, 6, 0, {"command 5"}},
        Interruption{"Failure", {15}, {{9, 28}, {0, 40}}, {{9, 20}, {0, 40}}, 0, 0, {}},
        Interruption{
            "FailureWithBytes", {15, ramp(7)}, {{9, 28}, {0, 40}}, {{9, 20}, {0, 30}}, 0, 0, {}},
        Interruption{
            "NoDataYetWithBytes", {18, ramp(7)}, {{0, 75}, {5, 0}}, {{0, 70}, {0, 5}}, 0, 1, {}},
        // No page goes on behind a gap: the device is got out of its job.
        Interruption{"BytesLost",
                     {TRANSPORT_NO_MEMORY},
                     {{10, 0}, {10, 0}},
                     {{10, 0}, {10, 0}},
                     10,
                     0,
                     {"command 0", "command 5", "close"}}),
    kByName);

// The connection is lost in mid-page: not a page that passes for whole.
TEST(AcquireImageTest, PageThatBreaksOff)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{0, ramp(20)}, {1, {}, nullptr, true}};
    EXPECT_EQ(acquire(engine, 20).bytes, ramp(20));
    EXPECT_EQ(acquire(engine, 20).status, 9);
    EXPECT_EQ(engine.count("command 5"), 0);
    EXPECT_EQ(engine.ScanInProgress, 1) << "what is left of the job can be cancelled";
    engine.transport->steps = {{1, {}, nullptr, true}, {1}};
    EXPECT_EQ(acquire(engine, 20).status, 9);
    EXPECT_EQ(acquire(engine, 20).status, 5) << "while a page that the device ends is one";
}

TEST(AcquireImageTest, AnyOtherResultIsData)
{
    for (const int result : {0, 6, 7, 8, 9, 10, 14, 16, 17, 19, 255, 256}) {
        TestEngine engine;
        engine.startFrame();
        engine.transport->steps = {{result, ramp(10)}};
        const Got got = acquire(engine, 10);
        EXPECT_EQ(got.status, 0) << result;
        EXPECT_EQ(got.bytes, ramp(10)) << result;
    }
}

TEST(AcquireImageTest, WaitsWhileThereIsNoData)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{18}, {18}, {18}, {0, ramp(10)}};
    const Got got = acquire(engine, 10);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.bytes, ramp(10));
    EXPECT_EQ(engine.count("read"), 4);
}

TEST(AcquireImageTest, WaitsForDataBehindRecords)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{9}, {0}, {0, ramp(10)}};
    EXPECT_EQ(acquire(engine, 10).bytes, ramp(10));
}

// ---- the end of the page -------------------------------------------------------------

TEST(AcquireImageTest, EndWithBytes)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{1, ramp(10)}};
    LogCapture log;
    const Got got = acquire(engine, 100);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.bytes, ramp(10));
    EXPECT_EQ(engine.AcquireImageStatus, 5);
    EXPECT_EQ(engine.count("command 5"), 1);
    EXPECT_THAT(log.plainMessages(), Contains("return status good"));

    engine.calls().clear();
    const Got next = acquire(engine, 100);
    EXPECT_EQ(next.status, 5);
    EXPECT_THAT(next.bytes, IsEmpty());
    EXPECT_THAT(engine.calls(), IsEmpty());
}

TEST(AcquireImageTest, EndWithMoreBytesThanTheCallerTakes)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{1, ramp(100)}};
    const Got got = acquireAll(engine, 7);
    EXPECT_EQ(got.status, 5);
    EXPECT_EQ(got.bytes, ramp(100));
    EXPECT_THAT(engine.calls(), ElementsAre("read", "command 5"));
}

TEST(AcquireImageTest, EndWaitsForACallerWithoutRoom)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{1, ramp(100)}};
    acquire(engine, 7);
    EXPECT_EQ(acquire(engine, 0).status, 0);
    EXPECT_EQ(acquire(engine, 100).bytes.size(), 93u);
    EXPECT_EQ(acquire(engine, 0).status, 5);
}

TEST(AcquireImageTest, NextFrameStartsEmpty)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{1, ramp(100)}};
    acquire(engine, 7);
    engine.startFrame();
    engine.transport->steps = {{1, ramp(20, 90)}};
    const Got got = acquireAll(engine, 100);
    EXPECT_EQ(got.status, 5);
    EXPECT_EQ(got.bytes, ramp(20, 90));
}

// Only the end of the data waits for the bytes that are held.
TEST(AcquireImageTest, AJamComesWithTheBytesBeforeIt)
{
    TestEngine engine;
    for (int frame = 0; frame < 2; frame++) {
        engine.startFrame();
        engine.transport->steps = {{0, ramp(5)}, {5}};
        const Got jammed = acquire(engine, 100);
        EXPECT_EQ(jammed.status, 6) << frame;
        EXPECT_EQ(jammed.bytes, ramp(5));
        engine.startFrame();
        engine.transport->steps = {{1, ramp(100)}};
        EXPECT_EQ(acquireAll(engine, 100).status, 5);
    }
}

// However the page is cut into blocks and reads, it arrives whole.
class WholePageTest : public TestWithParam<std::tuple<int, int, bool>> {
protected:
    int size() const { return std::get<0>(GetParam()); }
    std::size_t block() const { return static_cast<std::size_t>(std::get<1>(GetParam())); }
    // The end comes with the last block instead of after it.
    void sendPage(TestEngine& engine, const Bytes& page) const
    {
        engine.transport->steps = stepsOf(page, block());
        if (std::get<2>(GetParam())) {
            engine.transport->steps.back().result = 1;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Cuts, WholePageTest,
                         testing::Combine(testing::Values(1, 3, 10, 29, 30, 31, 1000),
                                          testing::Values(1, 7, 10, 33, 4096), testing::Bool()));

TEST_P(WholePageTest, Grey)
{
    TestEngine engine;
    engine.startFrame();
    sendPage(engine, ramp(100));
    const Got got = acquireAll(engine, size());
    EXPECT_EQ(got.status, 5);
    EXPECT_EQ(got.bytes, ramp(100));
    EXPECT_EQ(engine.count("command 5"), 1);
}

TEST_P(WholePageTest, PartialLastLine)
{
    TestEngine engine;
    engine.startFrame();
    sendPage(engine, ramp(97));
    EXPECT_EQ(acquireAll(engine, size()).bytes, ramp(97));
}

TEST_P(WholePageTest, ColoursSwapped)
{
    TestEngine engine;
    engine.set("COLORDEPTH", 3);
    engine.set("BGRTORGB", 1);
    engine.setUpManipulations();
    engine.startFrame();
    Bytes page = ramp(300);
    sendPage(engine, page);
    for (std::size_t i = 0; i < page.size(); i += 3) {
        std::swap(page[i], page[i + 2]);
    }
    EXPECT_EQ(acquireAll(engine, size()).bytes, page);
}

TEST_P(WholePageTest, PartialLastLineOfAMirroredPage)
{
    TestEngine engine;
    engine.set("FLATBEDSIDEFLIP", 1);
    engine.setUpManipulations();
    engine.startFrame();
    sendPage(engine, ramp(95));
    const Bytes got = acquireAll(engine, size()).bytes;
    ASSERT_EQ(got.size(), 95U);
    const Bytes lines(got.begin(), got.begin() + 90);
    Bytes expected = ramp(90);
    for (auto line = expected.begin(); line != expected.end(); line += 10) {
        std::reverse(line, line + 10);
    }
    EXPECT_EQ(lines, expected);
    EXPECT_THAT(Bytes(got.begin() + 90, got.end()),
                testing::UnorderedElementsAreArray(ramp(5, 0x20 + 90)));
}

// Half-lines side by side, 10 grey dots wide: dots come from them in turn.
TEST_P(WholePageTest, Interleaved)
{
    TestEngine engine;
    engine.startFrame();
    const Bytes halves = {0, 2, 4, 6, 8, 1, 3, 5, 7, 9};
    sendPage(engine, halves + halves + halves);
    engine.transport->steps.front().during = [](ImageData* image) {
        image->SetInterleaveInfo(10, 3, 0, 0, 0);
    };
    const Bytes line = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(acquireAll(engine, size()).bytes, line + line + line);
}

// Nothing of the page can be delivered, which must not pass for a whole page.
TEST(AcquireImageTest, HalfLinesWithoutPixels)
{
    for (const int width : {0, -1}) {
        TestEngine engine;
        engine.startFrame();
        engine.transport->steps = stepsOf(ramp(100), 10);
        engine.transport->steps.front().during = [width](ImageData* image) {
            image->SetInterleaveInfo(width, 10, 0, 0, 0);
        };
        const Got got = acquireAll(engine, 30);
        EXPECT_EQ(got.status, 9);
        EXPECT_TRUE(got.bytes.empty());
        EXPECT_EQ(engine.count("command 5"), 1);
        engine.startFrame();
        engine.transport->steps = stepsOf(ramp(100), 10);
        EXPECT_EQ(acquireAll(engine, 30).bytes, ramp(100));
    }
}

// ---- without memory ------------------------------------------------------------------

struct Processing {
    const char* name;
    int channels;
    bool hasHalfLines;
    std::size_t block = 3000;
    friend void PrintTo(const Processing& c, std::ostream* out) { *out << c.name; }
};

// Colours are swapped line by line. The page is large enough for every store to grow.
class ShortageTest : public TestWithParam<Processing> {
protected:
    static constexpr int kWidth = 500;
    static constexpr int kLines = 40;
    static constexpr int kReadSize = 5000;

    ShortageTest()
    {
        engine.set("COLORDEPTH", GetParam().channels);
        engine.set("BGRTORGB", GetParam().channels == 3 ? 1 : 0);
        engine.setUpManipulations();
    }

    static int stride() { return kWidth * GetParam().channels; }

    void start()
    {
        engine.startFrame();
        engine.Image->UpdateAttributes(kWidth, kLines, stride());
        engine.transport->steps = stepsOf(ramp(kLines * stride()), GetParam().block);
        if (GetParam().hasHalfLines) {
            engine.transport->steps.front().during = [](ImageData* image) {
                image->SetInterleaveInfo(kWidth, kLines, 0, 0, 0);
            };
        }
        // Each page finds stores that have not grown yet.
        engine.Buffer->Reset();
        engine.Image->Reset();
    }

    // The whole frame, while allocations are refused after those that are granted.
    Got scan(int granted, int refused, bool* isRefused)
    {
        start();
        Bytes room(kReadSize);
        Got all = {0, {}};
        const Allocations some(granted, refused);
        for (int reads = 0; all.status == 0 && reads < 1000; reads++) {
            int length = 0;
            all.status = engine.AcquireImage(room.data(), kReadSize, &length);
            const Allocations::Pause pause;
            all.bytes.insert(all.bytes.end(), room.begin(), room.begin() + length);
        }
        *isRefused = some.refused();
        return all;
    }

    TestEngine engine;
};

// Wherever memory lacks, for a moment or for good, no byte is missing in front of another, and a
// page that is not whole does not pass for one.
TEST_P(ShortageTest, DeliversTheFrontOfThePage)
{
    start();
    const Bytes page = acquireAll(engine, kReadSize).bytes;
    ASSERT_EQ(static_cast<int>(page.size()), kLines * stride());
    for (const int refused : {1, 2, Allocations::kAll}) {
        int shortages = 0;
        for (bool isRefused = true; isRefused; shortages++) {
            SCOPED_TRACE(testing::Message() << refused << " refused behind " << shortages);
            const Got got = scan(shortages, refused, &isRefused);
            ASSERT_LE(got.bytes.size(), page.size());
            EXPECT_TRUE(std::equal(got.bytes.begin(), got.bytes.end(), page.begin()));
            EXPECT_THAT(got.status, testing::AnyOf(5, 9, 10));
            EXPECT_TRUE(got.status != 5 || got.bytes.size() == page.size());
            EXPECT_TRUE(isRefused || got.status == 5);
            EXPECT_EQ(engine.ScanInProgress, 0);
        }
        EXPECT_GT(shortages, 2) << "nothing was refused";
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, ShortageTest,
                         testing::Values(Processing{"Grey", 1, false},
                                         Processing{"Swapped", 3, false},
                                         Processing{"HalfLines", 1, true},
                                         Processing{"SwappedHalfLines", 3, true},
                                         Processing{"HalfLinesAtOnce", 1, true, 100000}),
                         kByName);

// ---- unusual orders ------------------------------------------------------------------

TEST(AcquireImageTest, ReadBeforeAnyStart)
{
    for (const Step& step : {Step{15}, Step{1}, Step{0, ramp(10)}}) {
        TestEngine engine;
        engine.transport->lastStep = step;
        for (const int size : {1, 10, 1000}) {
            acquire(engine, size);
        }
        EXPECT_LE(engine.count("read"), 1000);
    }
}

TEST(AcquireImageTest, ReadWithoutRoom)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{1, ramp(10)}};
    int length = 5;
    engine.AcquireImage(nullptr, 0, &length);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(acquireAll(engine, 100).bytes, ramp(10)) << "nothing is lost";
}

TEST(AcquireImageTest, EmptyPage)
{
    TestEngine engine;
    engine.startFrame();
    const Got got = acquireAll(engine, 100);
    EXPECT_EQ(got.status, 5);
    EXPECT_THAT(got.bytes, IsEmpty());
}

// ---- the marker for field diagnosis --------------------------------------------------

struct Marker {
    const char* name;
    const char* value;  // of the switch; null: not set
    int width;
    int height;
    Bytes bytes;
    bool isWritten;
    bool isChecked = true;
    friend void PrintTo(const Marker& c, std::ostream* out) { *out << c.name; }
};

class MarkerTest : public TestWithParam<Marker> {};

TEST_P(MarkerTest, IsLeft)
{
    const char path[] = "/tmp/scan_problem.dump";
    const EmptyFolder folder("/tmp");
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {
        {9, GetParam().bytes,
         [](ImageData* image) { image->RecordAttributes(GetParam().width, GetParam().height); }},
        {1}};
    if (GetParam().value != nullptr) {
        setenv("SCAN_DEVICE_WITH_EDITS", GetParam().value, 1);
    }
    LogCapture log;
    acquire(engine, 10);
    unsetenv("SCAN_DEVICE_WITH_EDITS");
    EXPECT_EQ(access(path, F_OK) == 0, GetParam().isWritten);
    EXPECT_EQ(log.contains("Checking SCAN_DEVICE_WITH_EDITS"), GetParam().isChecked);
}

INSTANTIATE_TEST_SUITE_P(Switch, MarkerTest,
                         testing::Values(Marker{"WidthDiffers", "1", 9, 10, ramp(10), true},
                                         Marker{"HeightDiffers", "1", 10, 11, ramp(10), true},
                                         Marker{"Same", "1", 10, 10, ramp(10), false, false},
                                         Marker{"NoBytes", "1", 9, 10, {}, false, false},
                                         Marker{"NotSet", nullptr, 9, 10, ramp(10), false},
                                         Marker{"Off", "0", 9, 10, ramp(10), false},
                                         Marker{"NotExactly", "11", 9, 10, ramp(10), false}),
                         kByName);

TEST(MarkerLinkTest, IsNotFollowed)
{
    const EmptyFolder folder("/tmp");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/scan_problem.dump"), 0);
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {
        {9, ramp(10), [](ImageData* image) { image->RecordAttributes(9, 10); }}, {1}};
    setenv("SCAN_DEVICE_WITH_EDITS", "1", 1);
    LogCapture log;
    acquire(engine, 10);
    unsetenv("SCAN_DEVICE_WITH_EDITS");
    EXPECT_TRUE(log.contains("Checking SCAN_DEVICE_WITH_EDITS"));
    EXPECT_NE(access("/tmp/victim", F_OK), 0);
}

}  // namespace
