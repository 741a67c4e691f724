// SPDX-License-Identifier: LGPL-2.1-or-later
// Image data from the transport to the caller.
#include "LogCapture.h"
#include "Sandbox.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <algorithm>
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
