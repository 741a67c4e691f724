// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DataBuffer.h"
#include "Allocations.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>

namespace {

void expectSizes(DataBuffer& buffer, int processed, int raw)
{
    EXPECT_EQ(buffer.GetProcessedDataSize(), processed);
    EXPECT_EQ(buffer.GetRawDataSize(), raw);
    EXPECT_EQ(buffer.GetAllDataSize(), processed + raw);
    EXPECT_EQ(buffer.GetRawDataPtr() == nullptr, raw == 0);
    EXPECT_EQ(buffer.GetProcessedDataPtr() == nullptr, processed == 0);
}

Bytes take(DataBuffer& buffer, int cap)
{
    Bytes bytes(64, 0xEE);
    const int n = buffer.GetProcessedData(bytes.data(), cap);
    EXPECT_EQ(std::count(bytes.begin() + n, bytes.end(), 0xEE), 64 - n);
    return slice(bytes, 0, n);
}

TEST(DataBuffer, StartsEmpty)
{
    DataBuffer buffer;
    expectSizes(buffer, 0, 0);
    unsigned char byte = 0;
    EXPECT_EQ(buffer.GetProcessedData(&byte, 1), 0);
    EXPECT_EQ(buffer.GetAllData(&byte, 1), 0);
    EXPECT_EQ(buffer.SetProcessedDataSize(1), 1);
    EXPECT_EQ(buffer.DiscardProcessedData(1), 0);
    expectSizes(buffer, 0, 0);
}

// ---- SetRawData ---------------------------------------------------------------------

TEST(DataBuffer, AppendsOnTheRawSide)
{
    DataBuffer buffer;
    fill(buffer, {1, 2});
    EXPECT_EQ(buffer.SetRawData(counting(3, 3).data(), 3), 1);
    expectSizes(buffer, 2, 3);
    EXPECT_EQ(allBytes(buffer), counting(5, 1));
    EXPECT_EQ(*buffer.GetRawDataPtr(), 3);
    EXPECT_EQ(*buffer.GetProcessedDataPtr(), 1);
}

TEST(DataBuffer, AppendsNothingForBadArguments)
{
    DataBuffer buffer;
    fill(buffer, {1}, {2});
    const Bytes data = {7};
    EXPECT_EQ(buffer.SetRawData(data.data(), 0), 0);
    EXPECT_EQ(buffer.SetRawData(data.data(), -1), 0);
    EXPECT_EQ(buffer.SetRawData(data.data(), INT_MIN), 0);
    EXPECT_EQ(buffer.SetRawData(nullptr, 1), 0);
    expectSizes(buffer, 1, 1);
    EXPECT_EQ(allBytes(buffer), (Bytes{1, 2}));
}

TEST(DataBuffer, AppendsItsOwnBytes)
{
    for (int size = 1; size < 600; size += 7) {
        DataBuffer buffer;
        fill(buffer, {}, counting(size));
        EXPECT_EQ(buffer.SetRawData(buffer.GetRawDataPtr(), size), 1);
        EXPECT_EQ(allBytes(buffer), counting(size) + counting(size));
    }
}

TEST(DataBuffer, RefusesMoreThanAnIntCounts)
{
    DataBuffer buffer;
    fill(buffer, {}, {1, 2});
    const Bytes data = {7};
    EXPECT_EQ(buffer.SetRawData(data.data(), INT_MAX), 0);
    EXPECT_EQ(buffer.SetRawData(data.data(), INT_MAX - 1), 0);
    EXPECT_EQ(buffer.ExtendRawData(INT_MAX - 1), nullptr);
    unsigned char* room = nullptr;
    EXPECT_FALSE(buffer.ReplaceRawData(0, INT_MAX, &room));
    EXPECT_EQ(allBytes(buffer), (Bytes{1, 2}));
}

TEST(DataBuffer, IsUnchangedWithoutMemory)
{
    DataBuffer buffer;
    DataBuffer other;
    fill(buffer, {1, 2}, {3});
    fill(other, {1, 2, 3}, {4});
    const Bytes big(100000, 9);
    {
        const Allocations none(0);
        EXPECT_EQ(buffer.SetRawData(big.data(), sizeOf(big)), 0);
        EXPECT_EQ(buffer.ExtendRawData(sizeOf(big)), nullptr);
        unsigned char* room = nullptr;
        EXPECT_FALSE(buffer.ReplaceRawData(1, sizeOf(big), &room));
        EXPECT_TRUE(none.refused());
    }
    expectSizes(buffer, 2, 1);
    EXPECT_EQ(allBytes(buffer), (Bytes{1, 2, 3}));
    DataBuffer empty;
    {
        const Allocations none(0);
        EXPECT_EQ(other.GetProcessedData(&empty, 3), 0);
        EXPECT_EQ(empty.SetRawData(big.data(), 1), 0);
    }
    expectSizes(other, 3, 1);
    expectSizes(empty, 0, 0);
    append(buffer, big);
    EXPECT_EQ(allBytes(buffer), Bytes({1, 2, 3}) + big);
}

// ---- marking ------------------------------------------------------------------------

TEST(DataBuffer, MarksAtMostWhatItHolds)
{
    DataBuffer buffer;
    fill(buffer, {}, counting(10));
    EXPECT_EQ(buffer.SetProcessedDataSize(4), 1);
    expectSizes(buffer, 4, 6);
    EXPECT_EQ(buffer.SetProcessedDataSize(0), 1);
    expectSizes(buffer, 4, 6);
    EXPECT_EQ(buffer.SetProcessedDataSize(-1), 0);
    EXPECT_EQ(buffer.SetProcessedDataSize(INT_MIN), 0);
    expectSizes(buffer, 4, 6);
    EXPECT_EQ(buffer.SetProcessedDataSize(3), 1);
    expectSizes(buffer, 7, 3);
    EXPECT_EQ(buffer.SetProcessedDataSize(INT_MAX), 1);
    expectSizes(buffer, 10, 0);
    EXPECT_EQ(allBytes(buffer), counting(10));
}

// ---- taking out -----------------------------------------------------------------------

TEST(DataBuffer, GivesProcessedBytesOnly)
{
    DataBuffer buffer;
    fill(buffer, {}, counting(5));
    EXPECT_EQ(take(buffer, 10), Bytes());
    EXPECT_EQ(allBytes(buffer), counting(5));
    buffer.SetProcessedDataSize(3);
    EXPECT_EQ(take(buffer, 2), (Bytes{0, 1}));
    expectSizes(buffer, 1, 2);
    EXPECT_EQ(take(buffer, 64), (Bytes{2}));
    expectSizes(buffer, 0, 2);
    EXPECT_EQ(rawBytes(buffer), (Bytes{3, 4}));
}

TEST(DataBuffer, GivesNothingForBadArguments)
{
    DataBuffer buffer;
    fill(buffer, counting(3));
    EXPECT_EQ(take(buffer, 0), Bytes());
    EXPECT_EQ(take(buffer, -1), Bytes());
    EXPECT_EQ(buffer.GetProcessedData(static_cast<unsigned char*>(nullptr), 3), 0);
    EXPECT_EQ(buffer.GetProcessedData(static_cast<DataBuffer*>(nullptr), 3), 0);
    EXPECT_EQ(buffer.DiscardProcessedData(0), 0);
    EXPECT_EQ(buffer.DiscardProcessedData(-1), 0);
    DataBuffer other;
    EXPECT_EQ(buffer.GetProcessedData(&other, 0), 0);
    EXPECT_EQ(buffer.GetProcessedData(&other, -1), 0);
    expectSizes(buffer, 3, 0);
    expectSizes(other, 0, 0);
}

TEST(DataBuffer, IsUsableAfterItsLastByteIsGone)
{
    DataBuffer buffer;
    fill(buffer, counting(3));
    EXPECT_EQ(take(buffer, 3), counting(3));
    expectSizes(buffer, 0, 0);
    fill(buffer, {7}, {8});
    expectSizes(buffer, 1, 1);
    EXPECT_EQ(allBytes(buffer), (Bytes{7, 8}));
}

TEST(DataBuffer, MovesProcessedBytesToTheRawSideOfAnother)
{
    DataBuffer from;
    DataBuffer to;
    fill(from, counting(5), {9});
    fill(to, {20}, {21});
    EXPECT_EQ(from.GetProcessedData(&to, 3), 3);
    expectSizes(from, 2, 1);
    expectSizes(to, 1, 4);
    EXPECT_EQ(allBytes(to), (Bytes{20, 21, 0, 1, 2}));
    EXPECT_EQ(from.GetProcessedData(&to, INT_MAX), 2);
    EXPECT_EQ(from.GetProcessedData(&to, 1), 0);
    expectSizes(from, 0, 1);
    EXPECT_EQ(allBytes(to), (Bytes{20, 21, 0, 1, 2, 3, 4}));
    EXPECT_EQ(allBytes(from), (Bytes{9}));
}

TEST(DataBuffer, MovesItsBytesToItsOwnEnd)
{
    DataBuffer buffer;
    fill(buffer, {1, 2, 3}, {4});
    EXPECT_EQ(buffer.GetProcessedData(&buffer, 2), 2);
    expectSizes(buffer, 1, 3);
    EXPECT_EQ(allBytes(buffer), (Bytes{3, 4, 1, 2}));
}

TEST(DataBuffer, CopiesEverythingOrNothing)
{
    DataBuffer buffer;
    fill(buffer, {1, 2}, {3});
    Bytes out(5, 0xEE);
    EXPECT_EQ(buffer.GetAllData(out.data(), 2), 0);
    EXPECT_EQ(buffer.GetAllData(out.data(), 0), 0);
    EXPECT_EQ(buffer.GetAllData(out.data(), -1), 0);
    EXPECT_EQ(buffer.GetAllData(nullptr, 5), 0);
    EXPECT_EQ(out, Bytes(5, 0xEE));
    EXPECT_EQ(buffer.GetAllData(out.data(), 3), 3);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 0xEE, 0xEE}));
    EXPECT_EQ(buffer.GetAllData(out.data(), 5), 3);
    expectSizes(buffer, 2, 1);
}

TEST(DataBuffer, ResetEmpties)
{
    DataBuffer buffer;
    buffer.Reset();
    fill(buffer, counting(300), counting(300));
    buffer.Reset();
    expectSizes(buffer, 0, 0);
    const Allocations allocations;
    buffer.SetRawData(counting(1).data(), 1);
    // The block was given back: the next byte needs a new one.
    EXPECT_GE(allocations.count(), 1);
}

// ---- in place -------------------------------------------------------------------------

TEST(DataBuffer, ExtendsByRoomToFill)
{
    DataBuffer buffer;
    fill(buffer, {1}, {2});
    unsigned char* room = buffer.ExtendRawData(3);
    ASSERT_NE(room, nullptr);
    std::copy_n(counting(3, 3).begin(), 3, room);
    expectSizes(buffer, 1, 4);
    EXPECT_EQ(allBytes(buffer), counting(5, 1));
    EXPECT_EQ(buffer.ExtendRawData(0), nullptr);
    EXPECT_EQ(buffer.ExtendRawData(-1), nullptr);
    expectSizes(buffer, 1, 4);
}

bool replace(DataBuffer& buffer, int consumed, const Bytes& data)
{
    unsigned char* room = nullptr;
    const bool isDone = buffer.ReplaceRawData(consumed, sizeOf(data), &room);
    if (isDone) {
        std::copy(data.begin(), data.end(), room);
    }
    return isDone;
}

struct ReplaceCase {
    const char* name;
    int consumed;
    Bytes data;
    Bytes processed, raw;
};

class DataBufferReplace : public testing::TestWithParam<ReplaceCase> {};

// The store holds 1 2 | 10 11 12 13.
TEST_P(DataBufferReplace, PutsProcessedBytesInThePlaceOfRawOnes)
{
    const ReplaceCase& param = GetParam();
    DataBuffer buffer;
    fill(buffer, {1, 2}, counting(4, 10));
    EXPECT_TRUE(replace(buffer, param.consumed, param.data));
    EXPECT_EQ(processedBytes(buffer), param.processed);
    EXPECT_EQ(rawBytes(buffer), param.raw);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DataBufferReplace,
    testing::Values(ReplaceCase{"Same", 2, {7, 8}, {1, 2, 7, 8}, {12, 13}},
                    ReplaceCase{"Longer", 1, {7, 8, 9}, {1, 2, 7, 8, 9}, {11, 12, 13}},
                    ReplaceCase{"Shorter", 3, {7}, {1, 2, 7}, {13}},
                    ReplaceCase{"Removal", 3, {}, {1, 2}, {13}},
                    ReplaceCase{"Insertion", 0, {7, 8}, {1, 2, 7, 8}, counting(4, 10)},
                    ReplaceCase{"All", 4, {7}, {1, 2, 7}, {}},
                    ReplaceCase{"Much", 4, Bytes(5000, 7), Bytes({1, 2}) + Bytes(5000, 7), {}}),
    CaseName());

// The smaller part moves, whichever it is.
TEST(DataBuffer, DropsRawBytesFromTheFrontAndFromTheEnd)
{
    for (const int processed : {0, 3, 500}) {
        DataBuffer buffer;
        fill(buffer, counting(processed), counting(20, 100));
        buffer.DiscardRawData(4);
        buffer.ShrinkRawData(5);
        EXPECT_EQ(processedBytes(buffer), counting(processed));
        EXPECT_EQ(rawBytes(buffer), counting(11, 104));
        buffer.DiscardRawData(-1);
        buffer.ShrinkRawData(-1);
        EXPECT_EQ(rawBytes(buffer), counting(11, 104));
        buffer.DiscardRawData(100);
        buffer.ShrinkRawData(100);
        expectSizes(buffer, processed, 0);
        EXPECT_EQ(processedBytes(buffer), counting(processed));
    }
}

// ---- allocations ----------------------------------------------------------------------

TEST(DataBuffer, AllocatesNothingOnceWarm)
{
    DataBuffer buffer;
    DataBuffer next;
    const Bytes block = counting(4096);
    Bytes out(3000);
    const auto round = [&] {
        buffer.SetRawData(block.data(), sizeOf(block));
        buffer.SetProcessedDataSize(3900);
        buffer.GetProcessedData(&next, 4096);
        next.SetProcessedDataSize(4096);
        while (next.GetProcessedData(out.data(), sizeOf(out)) > 0) {
        }
        buffer.SetProcessedDataSize(1000);
        buffer.GetProcessedData(&next, 4096);
        next.SetProcessedDataSize(4096);
        next.GetProcessedData(out.data(), sizeOf(out));
    };
    for (int i = 0; i < 20; ++i) {
        round();
    }
    const Allocations allocations;
    for (int i = 0; i < 1000; ++i) {
        round();
    }
    EXPECT_EQ(allocations.count(), 0);
}

// Also when it never runs empty.
TEST(DataBuffer, AllocatesNothingWhileSomethingStays)
{
    DataBuffer buffer;
    const Bytes block = counting(1000);
    append(buffer, block);
    const auto round = [&] {
        buffer.SetRawData(block.data(), sizeOf(block));
        buffer.SetProcessedDataSize(1000);
        buffer.DiscardProcessedData(1000);
    };
    for (int i = 0; i < 20; ++i) {
        round();
    }
    const Allocations allocations;
    for (int i = 0; i < 1000; ++i) {
        round();
    }
    EXPECT_EQ(allocations.count(), 0);
    EXPECT_EQ(allBytes(buffer), block);
}

TEST(DataBuffer, GrowsInFewSteps)
{
    DataBuffer buffer;
    const Bytes block = counting(100);
    const Allocations allocations;
    for (int i = 0; i < 100000; ++i) {
        buffer.SetRawData(block.data(), sizeOf(block));
    }
    EXPECT_LE(allocations.count(), 64);
    EXPECT_EQ(buffer.GetRawDataSize(), 10000000);
}

// ---- model ------------------------------------------------------------------------------

struct Model {
    Bytes processed, raw;

    Bytes take(int cap)
    {
        const int n = std::max(0, std::min(cap, sizeOf(processed)));
        const Bytes taken = slice(processed, 0, n);
        processed.erase(processed.begin(), processed.begin() + n);
        return taken;
    }
    void mark(int n)
    {
        n = std::min(n, sizeOf(raw));
        processed = processed + slice(raw, 0, n);
        raw.erase(raw.begin(), raw.begin() + n);
    }
};

void expectModel(DataBuffer& buffer, const Model& model)
{
    expectSizes(buffer, sizeOf(model.processed), sizeOf(model.raw));
    ASSERT_EQ(allBytes(buffer), model.processed + model.raw);
    if (!model.raw.empty()) {
        ASSERT_EQ(Bytes(buffer.GetRawDataPtr(), buffer.GetRawDataPtr() + model.raw.size()),
                  model.raw);
    }
    if (!model.processed.empty()) {
        ASSERT_EQ(Bytes(buffer.GetProcessedDataPtr(),
                        buffer.GetProcessedDataPtr() + model.processed.size()),
                  model.processed);
    }
}

class DataBufferModel : public testing::TestWithParam<int> {};

TEST_P(DataBufferModel, HoldsOverRandomOperations)
{
    Random random(static_cast<unsigned>(GetParam()));
    DataBuffer buffers[2];
    Model models[2];
    for (int step = 0; step < 2000; ++step) {
        const int which = random.pick(0, 1);
        DataBuffer& buffer = buffers[which];
        Model& model = models[which];
        const int size = random.pick(0, 9) == 0 ? random.pick(0, 5000) : random.pick(0, 40);
        switch (random.pick(0, 11)) {
        case 0:
        case 1: {
            const Bytes data = random.bytes(size);
            EXPECT_EQ(buffer.SetRawData(data.data(), size), size > 0 ? 1 : 0);
            model.raw = model.raw + data;
            break;
        }
        case 2:
        case 3:
            EXPECT_EQ(buffer.SetProcessedDataSize(size), 1);
            model.mark(size);
            break;
        case 4:
        case 5: {
            Bytes out(static_cast<std::size_t>(size) + 1);
            const Bytes expected = model.take(size);
            ASSERT_EQ(buffer.GetProcessedData(out.data(), size), sizeOf(expected));
            ASSERT_EQ(slice(out, 0, sizeOf(expected)), expected);
            break;
        }
        case 6: {
            const int to = random.pick(0, 1);
            const Bytes taken = model.take(size);
            ASSERT_EQ(buffer.GetProcessedData(&buffers[to], size), sizeOf(taken));
            models[to].raw = models[to].raw + taken;
            break;
        }
        case 7:
            ASSERT_EQ(buffer.DiscardProcessedData(size), sizeOf(model.take(size)));
            break;
        case 9:
            buffer.ShrinkRawData(size);
            model.raw.resize(static_cast<std::size_t>(std::max(0, sizeOf(model.raw) - size)));
            break;
        case 10:
            buffer.DiscardRawData(size);
            model.raw = slice(model.raw, std::min(size, sizeOf(model.raw)), sizeOf(model.raw));
            break;
        case 8: {
            const Bytes data = random.bytes(size);
            if (unsigned char* room = buffer.ExtendRawData(size)) {
                std::copy(data.begin(), data.end(), room);
                model.raw = model.raw + data;
            }
            break;
        }
        default: {
            const int consumed = random.pick(0, sizeOf(model.raw));
            const Bytes data = random.bytes(size);
            ASSERT_TRUE(replace(buffer, consumed, data));
            model.raw.erase(model.raw.begin(), model.raw.begin() + consumed);
            model.processed = model.processed + data;
            if (random.pick(0, 30) == 0) {
                buffer.Reset();
                model = Model();
            }
        }
        }
        expectModel(buffers[0], models[0]);
        expectModel(buffers[1], models[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DataBufferModel, testing::Range(0, 8));

}  // namespace
