// SPDX-License-Identifier: LGPL-2.1-or-later
// The read loop against a model of it: random pages, blocks, results of the device and reads of
// the caller.
//
// The model is slow and plain. It moves bytes through queues, one stage after the other, and hands
// out at the end of a read; what the engine keeps in place, or hands out behind each block, must
// not be seen from outside.
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

using testing::IsSupersetOf;
using testing::TestWithParam;

namespace {

using Count = std::ptrdiff_t;

constexpr int kGood = 0;
constexpr int kCancelled = 2;
constexpr int kEof = 5;
constexpr int kJammed = 6;
constexpr int kIoError = 9;
constexpr int kNoMemory = 10;

Count sizeOf(const Bytes& bytes)
{
    return static_cast<Count>(bytes.size());
}

void append(Bytes& to, const Bytes& bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// Out of the front; fewer where there are not so many.
Bytes take(Bytes& from, Count count)
{
    const auto end = from.begin() + std::clamp<Count>(count, 0, sizeOf(from));
    const Bytes taken(from.begin(), end);
    from.erase(from.begin(), end);
    return taken;
}

Bytes takeAll(Bytes& from)
{
    return take(from, sizeOf(from));
}

// Bytes without a pattern that a mistake could hide in.
Bytes pixels(unsigned seed, Count count)
{
    std::minstd_rand random(seed + 1);
    Bytes bytes;
    for (Count i = 0; i < count; i++) {
        bytes.push_back(static_cast<unsigned char>(random() >> 8));
    }
    return bytes;
}

// ---- a scenario --------------------------------------------------------------------------

struct Page {
    int width = 1;
    int height = 1;
    int channels = 1;
    Count stride = 1;
    bool hasSwap = false;  // of the colours; leaves grey alone, but still takes whole lines only
    bool hasMirror = false;
    bool isCompressed = false;
    bool isManipulated() const { return hasSwap || hasMirror; }
};

// What the device announces for lines that come as two halves side by side.
struct HalfLines {
    int width;
    int offset;
    int trim;
};

// What one ReadImage does.
struct Event {
    int result = 0;
    Bytes bytes = {};
    bool isBroken = false;
    std::optional<HalfLines> announced = std::nullopt;
};

struct Request {
    int size;
    bool hasBuffer;
};

struct Outcome {
    int status;
    Bytes bytes;
    int deviceReads;
    int unlocks;
    bool isRunning;

    bool operator==(const Outcome& other) const
    {
        return std::tie(status, bytes, deviceReads, unlocks, isRunning) ==
               std::tie(other.status, other.bytes, other.deviceReads, other.unlocks,
                        other.isRunning);
    }
    friend void PrintTo(const Outcome& outcome, std::ostream* out)
    {
        *out << "status " << outcome.status << " after " << outcome.deviceReads << " reads, "
             << outcome.unlocks << " unlocks, " << (outcome.isRunning ? "running, " : "ended, ")
             << outcome.bytes.size() << " bytes " << testing::PrintToString(outcome.bytes);
    }
};

// ---- chunks ------------------------------------------------------------------------------

// In place of a real compression: size (4 bytes, the highest first), number of lines, seed of
// their pixels, filling.
constexpr Count kChunkHeader = 6;
constexpr int kMostLines = 32;

Count chunkSize(const Bytes& stream)
{
    return stream[0] << 24 | stream[1] << 16 | stream[2] << 8 | stream[3];
}

Bytes chunkOf(Count size, int lines, unsigned char seed)
{
    Bytes chunk = pixels(seed, size);
    for (std::size_t i = 0; i < 4; i++) {
        chunk[i] = static_cast<unsigned char>(size >> (24 - 8 * i));
    }
    chunk[4] = static_cast<unsigned char>(lines);
    chunk[5] = seed;
    return chunk;
}

class ChunkDecoder : public CDecomp {
public:
    explicit ChunkDecoder(Count stride) : stride_(stride) {}
    void StartDecomp(int, int, int, int) override {}
    void EndDecomp() override {}
    int GetMaxLinesPerBand() override { return kMostLines; }
    int Decomp(unsigned char* in, int inLen, int* converted, unsigned char* out, int outLen,
               int* generated) override
    {
        const Bytes lines = pixels(in[5], in[4] * stride_);
        EXPECT_LE(sizeOf(lines), outLen);
        std::copy_n(lines.begin(), std::min<Count>(sizeOf(lines), outLen), out);
        *converted = inLen;
        *generated = static_cast<int>(lines.size());
        return DECOMP_DONE;
    }

private:
    Count stride_;
};

class ChunkHandler : public DeCompHandler {
public:
    explicit ChunkHandler(Count lineSize) : lineSize_(lineSize) {}

protected:
    std::unique_ptr<CDecomp> createDecompressor(int) override
    {
        return std::make_unique<ChunkDecoder>(lineSize_);
    }

private:
    Count lineSize_;
};

// ---- the model ---------------------------------------------------------------------------

class LoopModel {
public:
    LoopModel(const Page& page, const std::vector<Event>& events)
        : page_(page), events_(events.begin(), events.end()), pageRoom_(page.height * page.stride)
    {
    }

    Outcome read(const Request& request)
    {
        deviceReads_ = 0;
        // What a frame that did not come to its end still holds is not handed out any more.
        if (end_ != kGood && !isDataOver_) {
            return outcome(end_, {});
        }
        const int status = end_ == kGood ? settle(fetch(bytesWanted(request.size))) : end_;
        // The end of the data comes behind the last byte.
        const bool hasEndToWait = isDataOver_ && !ready_.empty();
        return outcome(hasEndToWait ? kGood : status,
                       request.hasBuffer ? take(ready_, request.size) : Bytes());
    }

    // Every further read gives the same.
    bool hasEnded() const { return end_ != kGood && (!isDataOver_ || ready_.empty()); }

private:
    Outcome outcome(int status, const Bytes& bytes) const
    {
        return {status, bytes, deviceReads_, unlocks_, isRunning_};
    }

    // Whole lines, without what waits for the rest of its line.
    Count bytesWanted(int size) const
    {
        if (size <= sizeOf(ready_)) {
            return 0;
        }
        Count wanted = size - sizeOf(ready_);
        if (page_.stride > wanted) {
            wanted = page_.stride;
        } else if (page_.stride > 0) {
            wanted = (wanted + page_.stride - 1) / page_.stride * page_.stride;
        }
        return wanted - sizeOf(lines_);
    }

    Event nextEvent()
    {
        if (events_.empty()) {
            return {RECORD_END_OF_DATA};
        }
        const Event event = events_.front();
        events_.pop_front();
        return event;
    }

    // Reads from the device; returns why it stopped.
    int fetch(Count wanted)
    {
        while (wanted >= 1) {
            const Event event = nextEvent();
            deviceReads_++;
            if (event.announced) {
                halves_ = event.announced;
            }
            append(received_, event.bytes);
            switch (event.result) {
            case RECORD_END_OF_DATA:
                return event.isBroken ? kIoError : kEof;
            case RECORD_NO_MEMORY:
                return kNoMemory;
            case RECORD_STOPPED:
            case RECORD_CANCELLED:
                return kCancelled;
            case RECORD_PAPER_JAM:
                return kJammed;
            case RECORD_DEVICE_FAILURE:
                isRunning_ = false;
                return kIoError;
            case RECORD_NO_DATA_YET:
                break;
            default:
                unpack();
                merge();
                // All that came with earlier blocks of this read counts once more with each.
                wanted -= sizeOf(lines_);
                break;
            }
        }
        return kGood;
    }

    // Prepares what was fetched for the caller and ends the frame if there is a reason.
    int settle(int status)
    {
        if (status == kEof) {
            status = finish();
            isDataOver_ = true;
        } else {
            manipulateWholeLines();
        }
        // After a failure of the device the next read tries again.
        if (status != kGood && (status != kIoError || isDataOver_)) {
            end_ = status;
            unlocks_++;
            isRunning_ = false;
        }
        return status;
    }

    // Everything that can be made of what is held, parts of lines too.
    int finish()
    {
        unpack();
        merge();
        if (halves_ && !unpacked_.empty()) {
            mergeLine();
        }
        manipulateWholeLines();
        append(ready_, manipulated(takeAll(lines_)));
        // Zeros only fill the last block up, but a part of a chunk means lost lines.
        const bool isWhole = std::all_of(received_.begin(), received_.end(),
                                         [](unsigned char byte) { return byte == 0; });
        return isWhole ? kEof : kIoError;
    }

    // Half-lines are never compressed.
    void unpack()
    {
        if (!page_.isCompressed || halves_) {
            append(unpacked_, takeAll(received_));
            return;
        }
        while (sizeOf(received_) >= 4 && sizeOf(received_) >= chunkSize(received_)) {
            const Bytes chunk = take(received_, chunkSize(received_));
            append(unpacked_, pixels(chunk[5], chunk[4] * page_.stride));
        }
    }

    void merge()
    {
        if (!halves_) {
            append(lines_, takeAll(unpacked_));
            return;
        }
        while (sizeOf(unpacked_) >= halvesLength()) {
            mergeLine();
        }
    }

    Count halvesLength() const { return halves_->width * page_.channels; }

    // The half-lines are cropped to the page, which takes no more than its size.
    void mergeLine()
    {
        Bytes halves = take(unpacked_, halvesLength());
        halves.resize(static_cast<std::size_t>(halvesLength()));
        const Count length = std::min(page_.stride, pageRoom_);
        pageRoom_ -= length;
        for (Count i = 0; i < length; i++) {
            lines_.push_back(mergedByte(halves, halves_->offset * page_.channels + i));
        }
    }

    // Pixels come from the first and the second half in turn, behind those that are trimmed off.
    unsigned char mergedByte(const Bytes& halves, Count at) const
    {
        const Count pixel = at / page_.channels;
        const Count channel = at % page_.channels;
        const Count half = sizeOf(halves) / 2;
        const Count inHalf = (halves_->trim + pixel / 2) * page_.channels + channel;
        if (at >= sizeOf(halves) || inHalf >= half) {
            return 0;
        }
        return halves[static_cast<std::size_t>(pixel % 2 * half + inHalf)];
    }

    // Without manipulations nothing waits for the end of its line.
    void manipulateWholeLines()
    {
        if (!page_.isManipulated()) {
            append(ready_, takeAll(lines_));
            return;
        }
        while (sizeOf(lines_) >= page_.stride) {
            append(ready_, manipulated(take(lines_, page_.stride)));
        }
    }

    // Of a part of a line the whole pixels are swapped, but none changes its place.
    Bytes manipulated(Bytes line) const
    {
        if (page_.hasSwap && page_.channels == 3) {
            for (std::size_t i = 0; i + 2 < line.size(); i += 3) {
                std::swap(line[i], line[i + 2]);
            }
        }
        return page_.hasMirror && sizeOf(line) == page_.stride ? mirrored(line) : line;
    }

    // Padding behind the pixels stays where it is.
    Bytes mirrored(const Bytes& line) const
    {
        Bytes other = line;
        for (Count i = 0; i < page_.width; i++) {
            std::copy_n(line.begin() + i * page_.channels, page_.channels,
                        other.begin() + (page_.width - 1 - i) * page_.channels);
        }
        return other;
    }

    const Page page_;
    std::deque<Event> events_;
    std::optional<HalfLines> halves_;
    Count pageRoom_;  // for merged lines
    Bytes received_;  // as the device sends it
    Bytes unpacked_;  // lines, or half-lines
    Bytes lines_;     // lines that nothing has changed yet
    Bytes ready_;     // for the caller
    int deviceReads_ = 0;
    int unlocks_ = 0;
    bool isRunning_ = true;
    bool isDataOver_ = false;
    int end_ = kGood;
};

// ---- random scenarios --------------------------------------------------------------------

// The same throws everywhere: none may depend on the order in which arguments are evaluated.
class Dice {
public:
    explicit Dice(unsigned seed) : random_(seed) {}

    int pick(Count low, Count high)
    {
        const auto choices = static_cast<std::mt19937::result_type>(high - low + 1);
        return static_cast<int>(low + static_cast<Count>(random_() % choices));
    }
    bool oneIn(Count count) { return pick(1, count) == 1; }
    template <typename T, std::size_t N>
    T oneOf(const T (&values)[N])
    {
        return values[pick(0, static_cast<Count>(N) - 1)];
    }

private:
    std::mt19937 random_;
};

enum class Kind { plain, manipulated, halfLines, compressed };

Page randomPage(Dice& dice, Kind kind)
{
    Page page;
    page.width = dice.pick(1, dice.oneOf({3, 200, 200, 2000}));
    page.height = dice.pick(1, 40);
    page.channels = dice.oneOf({1, 3});
    page.stride = page.width * page.channels;
    page.isCompressed = kind == Kind::compressed;
    if (kind == Kind::manipulated || (kind != Kind::plain && dice.oneIn(3))) {
        page.hasSwap = dice.oneIn(2);
        page.hasMirror = !page.hasSwap || dice.oneIn(2);
    }
    if (!page.isCompressed && !page.hasSwap && dice.oneIn(4)) {
        page.stride += dice.pick(1, 7);
    }
    if (kind == Kind::plain && dice.oneIn(15)) {
        page.stride = 0;
    }
    return page;
}

Bytes randomChunks(Dice& dice, const Page& page)
{
    Bytes stream;
    for (int left = page.height; left > 0;) {
        const int lines = dice.pick(1, std::min(left, kMostLines));
        // The engine has room for five bands of the chunk's own size.
        const Count smallest = kChunkHeader + lines * page.stride / (5 * kMostLines) + 1;
        const Count size = smallest + dice.pick(0, 400);
        append(stream, chunkOf(size, lines, static_cast<unsigned char>(dice.pick(1, 255))));
        left -= lines;
    }
    // Some end in a chunk.
    return dice.oneIn(5) ? take(stream, dice.pick(0, sizeOf(stream))) : stream;
}

// Most pages have the size that they announce.
Bytes randomData(Dice& dice, const Page& page)
{
    if (page.isCompressed) {
        return randomChunks(dice, page);
    }
    const Count whole = page.height * std::max<Count>(page.stride, 1);
    const Count other = dice.pick(0, 3 * page.stride + 40);
    const Count size = dice.oneIn(5) ? other : whole;
    return pixels(static_cast<unsigned>(dice.pick(0, 1000000)), size);
}

HalfLines randomHalves(Dice& dice, const Page& page)
{
    return {dice.oneIn(2) ? page.width : dice.pick(1, 2 * page.width),
            dice.oneIn(3) ? dice.pick(0, 6) : 0, dice.oneIn(3) ? dice.pick(0, 4) : 0};
}

// bytes: what comes with it.
Event randomFault(Dice& dice, const Bytes& bytes)
{
    const int result = dice.oneOf({RECORD_END_OF_DATA, RECORD_END_OF_DATA, RECORD_NO_MEMORY,
                                   RECORD_STOPPED, RECORD_CANCELLED, RECORD_PAPER_JAM,
                                   RECORD_DEVICE_FAILURE, RECORD_DEVICE_FAILURE});
    return {result, bytes, result == RECORD_END_OF_DATA && dice.oneIn(2)};
}

// The page in blocks, with pauses, records and results that mean nothing between them.
std::vector<Event> randomEvents(Dice& dice, const Page& page, Kind kind)
{
    constexpr Count kMostBlocks = 300;
    Bytes data = randomData(dice, page);
    const Count wanted = dice.oneOf<Count>({4, 64, 4087, 20000, 2 * page.stride + 1});
    const Count largest = std::max(wanted, sizeOf(data) / kMostBlocks + 1);
    const Count blocks = sizeOf(data) / largest + 1;
    const bool isEven = dice.oneIn(2);
    const bool hasFaults = dice.oneIn(3);
    std::vector<Event> events;
    if (kind == Kind::halfLines && !dice.oneIn(4)) {
        events.push_back({RECORD_PAGE_MARKER, {}, false, randomHalves(dice, page)});
    }
    while (!data.empty()) {
        if (dice.oneIn(10)) {
            events.push_back({dice.oneOf({0, 6, 7, 9, 14, 16, 17, 18, 18, 19, 100, 255})});
        }
        const Count size = isEven ? largest : dice.pick(largest / kMostBlocks + 1, largest);
        const int result = dice.oneIn(15) ? dice.oneOf<int>({RECORD_NO_DATA_YET, 200}) : 0;
        events.push_back({result, take(data, size)});
        if (hasFaults && dice.oneIn(blocks)) {
            events.push_back(randomFault(dice, dice.oneIn(4) ? take(data, largest) : Bytes()));
        }
        // A marker in mid-page: lines before it, half-lines behind it.
        if (kind == Kind::halfLines && dice.oneIn(4 * blocks)) {
            events.push_back({RECORD_PAGE_MARKER, {}, false, randomHalves(dice, page)});
        }
    }
    if (!events.empty() && events.back().result == 0 && dice.oneIn(4)) {
        events.back().result = RECORD_END_OF_DATA;
    }
    return events;
}

// A caller with a habit, who now and then has no room or no buffer.
class Caller {
public:
    Caller(Dice& dice, const Page& page) : dice_(dice)
    {
        constexpr Count kMostReads = 300;
        const Count wanted = dice.oneOf<Count>({8, 300, 32768, 70000, 2 * page.stride + 1});
        largest_ = std::max(wanted, page.height * page.stride / kMostReads + 1);
        isEven_ = dice.oneIn(2);
        isOdd_ = dice.oneIn(4);
    }

    Request next()
    {
        if (isOdd_ && dice_.oneIn(6)) {
            return {dice_.oneOf({0, -1, -2, INT_MIN}), true};
        }
        const Count size = isEven_ ? largest_ : dice_.pick(1, largest_);
        return {static_cast<int>(size), !(isOdd_ && dice_.oneIn(10))};
    }

private:
    Dice& dice_;
    Count largest_;
    bool isEven_;
    bool isOdd_;
};

// ---- the engine --------------------------------------------------------------------------

// At one dot an inch, so that any size is large enough.
void startPage(TestEngine& engine, const Page& page)
{
    constexpr double kInch = 25.4;
    engine.set("CURRENTDPI", 1);
    engine.set("CURRENTBRX", (page.width + 0.5) * kInch);
    engine.set("CURRENTBRY", (page.height + 0.5) * kInch);
    engine.set("COLORDEPTH", page.channels);
    engine.set("BGRTORGB", page.hasSwap ? 1 : 0);
    engine.set("FLATBEDSIDEFLIP", page.hasMirror ? 1 : 0);
    engine.set("COMPRESSION", page.isCompressed ? 1 : 0);
    engine.set("COMPRESSIONTECH", 2);
    engine.MyDecompressor = std::make_unique<ChunkHandler>(page.stride);
    engine.setUpManipulations();
    engine.startFrame();
    ASSERT_EQ(engine.Image->GetScanWidth(), page.width);
    ASSERT_EQ(engine.Image->GetScanHeight(), page.height);
    engine.Image->UpdateAttributes(page.width, page.height, static_cast<int>(page.stride));
}

std::deque<Step> stepsOf(const std::vector<Event>& events)
{
    std::deque<Step> steps;
    for (const Event& event : events) {
        steps.push_back({event.result, event.bytes, nullptr, event.isBroken});
        if (event.announced) {
            steps.back().during = [halves = *event.announced](ImageData* image) {
                image->SetInterleaveInfo(halves.width, 1, halves.offset, 0, halves.trim);
            };
        }
    }
    return steps;
}

// Nothing is written but the bytes that are announced.
Outcome readEngine(TestEngine& engine, const Request& request)
{
    constexpr unsigned char kUntouched = 0xA5;
    constexpr int kBehind = 16;
    Bytes buffer(static_cast<std::size_t>(std::max(request.size, 0) + kBehind), kUntouched);
    const int readsBefore = engine.count("read");
    int length = -1;
    const int status =
        engine.AcquireImage(request.hasBuffer ? buffer.data() : nullptr, request.size, &length);
    EXPECT_GE(length, 0);
    EXPECT_LE(length, std::max(request.size, 0));
    const Bytes bytes = take(buffer, length);
    EXPECT_TRUE(std::all_of(buffer.begin(), buffer.end(),
                            [](unsigned char byte) { return byte == kUntouched; }));
    return {status, bytes, engine.count("read") - readsBefore, engine.count("command 5"),
            engine.ScanInProgress == 1};
}

// ---- the comparison ----------------------------------------------------------------------

struct Scenarios {
    const char* name;
    Kind kind;
    friend void PrintTo(const Scenarios& scenarios, std::ostream* out) { *out << scenarios.name; }
};

class AcquireImageModelTest : public TestWithParam<Scenarios> {
protected:
    void compare(unsigned seed)
    {
        Dice dice(seed);
        const Page page = randomPage(dice, GetParam().kind);
        const std::vector<Event> events = randomEvents(dice, page, GetParam().kind);
        Caller caller(dice, page);
        LoopModel model(page, events);
        TestEngine engine;
        startPage(engine, page);
        engine.transport->steps = stepsOf(events);
        constexpr int kReadsBehindTheEnd = 3;
        for (int read = 0, behind = 0; behind < kReadsBehindTheEnd; read++) {
            ASSERT_LT(read, 10000) << "the page does not come to an end";
            const Request request = caller.next();
            const Outcome expected = model.read(request);
            const Outcome got = readEngine(engine, request);
            ASSERT_EQ(got, expected) << "read " << read << " of " << request.size;
            statuses.insert(got.status);
            behind += model.hasEnded() ? 1 : 0;
        }
    }

    std::set<int> statuses;
};

TEST_P(AcquireImageModelTest, EveryReadIsAsInTheModel)
{
    constexpr unsigned kSeeds = 80;
    for (unsigned seed = 0; seed < kSeeds && !HasFatalFailure(); seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        compare(seed);
    }
    // Else the scenarios are not worth their time.
    EXPECT_THAT(statuses, IsSupersetOf({kGood, kCancelled, kEof, kJammed, kIoError, kNoMemory}));
}

INSTANTIATE_TEST_SUITE_P(Pages, AcquireImageModelTest,
                         testing::Values(Scenarios{"Plain", Kind::plain},
                                         Scenarios{"Manipulated", Kind::manipulated},
                                         Scenarios{"HalfLines", Kind::halfLines},
                                         Scenarios{"Compressed", Kind::compressed}),
                         kByName);

}  // namespace
