// SPDX-License-Identifier: LGPL-2.1-or-later
#include "HBN3.h"

#include "Allocations.h"
#include "Frames.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

#include <deque>
#include <memory>
#include <random>

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

namespace {

constexpr char kMagicFound[] =
    "12found unwanted tickle data //////////////////////////////////////////////////";
constexpr char kAlways[] =
    "found unwanted tickle data //////////////////////////////////////////////////";

class Frames : public HBN3 {
public:
    using HBN3::iBuffSize;
    using HBN3::iPtr;
    using HBN3::iSize;
    using HBN3::kCapacity;
    using HBN3::pBuff;

    int set(const Bytes& bytes)
    {
        const int size = static_cast<int>(bytes.size());
        return setHBNData(bytes.data(), &size);
    }
    // The result and what was handed out.
    std::pair<int, Bytes> get()
    {
        Bytes out(kCapacity);
        int size = kCapacity;
        const int result = getHBNData(out.data(), &size);
        out.resize(static_cast<std::size_t>(size));
        return {result, out};
    }
};

using Got = std::pair<int, Bytes>;

TEST(HBN3Test, StartsEmpty)
{
    const Frames frames;
    EXPECT_EQ(frames.iSize, 0);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.iBuffSize, 80000);
    EXPECT_NE(frames.pBuff, nullptr);
}

TEST(HBN3Test, Headers)
{
    const Bytes header = frameHeader(0x01020304);
    EXPECT_EQ(HBN3::CheckHeader(header.data(), 9), 0);
    EXPECT_EQ(HBN3::CheckHeader(header.data(), 10), 0);
    for (int len = -1; len < 9; len++) {
        EXPECT_EQ(HBN3::CheckHeader(header.data(), len), 1) << len;
        EXPECT_EQ(HBN3::getHBNSize(header.data(), len), -1) << len;
    }
    EXPECT_EQ(HBN3::getHBNSize(header.data(), 9), 0x01020304);
    for (std::size_t i = 0; i < 9; i++) {
        Bytes changed = header;
        changed[i] ^= 0x20;
        EXPECT_EQ(HBN3::CheckHeader(changed.data(), 9), i < 4 ? 1 : 0) << i;
    }
    EXPECT_EQ(HBN3::getHBNSize(frameHeader(0xFFFFFFFF).data(), 9), -1);
    EXPECT_EQ(HBN3::getHBNSize(frameHeader(0x80000000).data(), 9), -2147483647 - 1);
}

TEST(HBN3Test, Tickle)
{
    unsigned char* bytes = nullptr;
    int len = 0;
    ASSERT_EQ(HBN3::getTickleData(&bytes, &len), 0);
    const std::unique_ptr<unsigned char[]> owned(bytes);
    EXPECT_EQ(Bytes(bytes, bytes + len), (Bytes{'H', 'B', 'N', '3', 0, 0, 0, 0, 2}));
}

TEST(HBN3Test, HandsOutAPayload)
{
    Frames frames;
    EXPECT_EQ(frames.set(frame({1, 2, 3})), 0);
    EXPECT_EQ(frames.iSize, 3);
    EXPECT_EQ(frames.iPtr, 3);
    EXPECT_EQ(frames.get(), Got(0, {1, 2, 3}));
    EXPECT_EQ(frames.iSize, 0);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.get(), Got(3, {}));
}

TEST(HBN3Test, SplitFrameComesInPieces)
{
    Frames frames;
    const Bytes all = frame({1, 2, 3, 4, 5, 6}) + frame({7, 8});
    EXPECT_EQ(frames.set(Bytes(all.begin(), all.begin() + 11)), 0);
    EXPECT_EQ(frames.iSize, 6);
    EXPECT_EQ(frames.get(), Got(0, {1, 2}));
    EXPECT_EQ(frames.iSize, 4);
    EXPECT_EQ(frames.set(Bytes(all.begin() + 11, all.begin() + 13)), 0);
    EXPECT_EQ(frames.get(), Got(0, {3, 4}));
    EXPECT_EQ(frames.iSize, 2);
    EXPECT_EQ(frames.set(Bytes(all.begin() + 13, all.end())), 0);
    EXPECT_EQ(frames.get(), Got(0, {5, 6}));
    EXPECT_EQ(frames.iSize, 2) << "the next header was parsed at once";
    EXPECT_EQ(frames.get(), Got(0, {7, 8}));
}

TEST(HBN3Test, HeaderSplitOverAppends)
{
    const Bytes all = frame({1, 2, 3});
    for (std::ptrdiff_t cut = 1; cut < 9; cut++) {
        Frames frames;
        EXPECT_EQ(frames.set(Bytes(all.begin(), all.begin() + cut)), 0);
        EXPECT_EQ(frames.get(), Got(3, {}));
        EXPECT_EQ(frames.set(Bytes(all.begin() + cut, all.end())), 0);
        EXPECT_EQ(frames.get(), Got(0, {1, 2, 3})) << cut;
    }
}

TEST(HBN3Test, HeaderWithoutLengthKeepsTheSize)
{
    Frames frames;
    frames.iSize = 5;
    EXPECT_EQ(frames.set(frameHeader(0)), 0);
    EXPECT_EQ(frames.iSize, 5);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.set({1, 2, 3, 4, 5}), 0);
    EXPECT_EQ(frames.get(), Got(0, {1, 2, 3, 4, 5}));
    EXPECT_EQ(frames.set(frameHeader(0) + Bytes{1, 2}), 0);
    EXPECT_EQ(frames.iSize, 0);
    EXPECT_EQ(frames.get(), Got(3, {}));
}

TEST(HBN3Test, LengthsUseAllFourBytes)
{
    for (const unsigned length : {0x01U, 0x0100U, 0x010000U, 0x01000000U, 0x7FFFFFFFU}) {
        Frames frames;
        frames.set(frameHeader(length));
        EXPECT_EQ(frames.iSize, static_cast<int>(length));
    }
}

TEST(HBN3Test, UpdateSizeWithoutAHeader)
{
    Frames frames;
    EXPECT_EQ(frames.updateSize(), 1);
    EXPECT_EQ(frames.set({9, 9, 9}), 0);
    EXPECT_EQ(frames.updateSize(), 1);
    EXPECT_EQ(frames.iPtr, 3);
    EXPECT_EQ(frames.iSize, 0);
}

TEST(HBN3Test, OneByteIsNeverHandedOut)
{
    Frames oneByte;
    oneByte.set(frame({1}));
    EXPECT_EQ(oneByte.get(), Got(3, {}));
    oneByte.set(frame({2, 3}));
    EXPECT_EQ(oneByte.get(), Got(3, {})) << "and it blocks the way";

    Frames firstByte;
    firstByte.set(frameHeader(4) + Bytes{1});
    EXPECT_EQ(firstByte.get(), Got(3, {}));
    firstByte.set({2, 3, 4});
    EXPECT_EQ(firstByte.get(), Got(0, {1, 2, 3, 4}));
}

TEST(HBN3Test, WhatFollowsMustBeAFrame)
{
    Frames frames;
    frames.set(frame({1, 2}) + Bytes{5, 6, 7});
    EXPECT_EQ(frames.get(), Got(1, {1, 2}));
    EXPECT_EQ(frames.iPtr, 3);
    EXPECT_EQ(frames.iSize, 0);
}

TEST(HBN3Test, NegativeLengthIsLeftBehindByTheNextHeader)
{
    Frames frames;
    frames.set(frameHeader(0xFFFFFFFF));
    EXPECT_EQ(frames.iSize, -1);
    EXPECT_EQ(frames.get(), Got(1, {}));
    frames.set(frame({1, 2}));
    EXPECT_EQ(frames.iSize, 2);
    EXPECT_EQ(frames.get(), Got(0, {1, 2}));

    frames.iSize = -7;
    frames.set({8, 8});
    EXPECT_EQ(frames.get(), Got(1, {}));
    EXPECT_EQ(frames.iPtr, 2);
}

TEST(HBN3Test, RefusesWhatHasNoRoom)
{
    Frames frames;
    EXPECT_EQ(frames.set(Bytes(80001)), 1);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.set(frameHeader(0x7FFFFFFF) + Bytes(79000, 5)), 0);
    EXPECT_EQ(frames.set(Bytes(1001)), 1);
    EXPECT_EQ(frames.iPtr, 79000);
    EXPECT_EQ(frames.set(Bytes(1000, 5)), 0);
    EXPECT_EQ(frames.set(Bytes(1)), 1);
    EXPECT_EQ(frames.get(), Got(0, Bytes(80000, 5)));
}

TEST(HBN3Test, RefusesNothing)
{
    Frames frames;
    const unsigned char byte = 1;
    for (const int size : {0, -1, -80000}) {
        EXPECT_EQ(frames.setHBNData(&byte, &size), 3);
    }
    const int one = 1;
    EXPECT_EQ(frames.setHBNData(nullptr, &one), 3);
    EXPECT_EQ(frames.iPtr, 0);
}

TEST(HBN3Test, BufferComesAndGoes)
{
    Frames frames;
    frames.set(frame({1, 2, 3}));
    frames.destroyBuffer();
    EXPECT_EQ(frames.pBuff, nullptr);
    EXPECT_EQ(frames.iSize, 0);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.get(), Got(3, {}));
    frames.destroyBuffer();
    EXPECT_EQ(frames.set(frame({4, 5})), 0);
    EXPECT_EQ(frames.get(), Got(0, {4, 5}));
    const unsigned char* before = frames.pBuff.get();
    EXPECT_EQ(frames.createBuffer(), 0);
    EXPECT_EQ(frames.pBuff.get(), before);
}

TEST(HBN3Test, NoMemoryForTheBuffer)
{
    Frames frames;
    frames.destroyBuffer();
    const Bytes bytes = frame({4, 5});
    int result = 0;
    {
        const Allocations none(0);
        result = frames.set(bytes);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(frames.set(bytes), 0);
}

// ---- in place -----------------------------------------------------------------------

// What is taken in place, or nothing.
Bytes inPlace(Frames& frames, const Bytes& bytes)
{
    int size = static_cast<int>(bytes.size());
    const unsigned char* payload = frames.takeInPlace(bytes.data(), &size);
    if (payload == nullptr) {
        EXPECT_EQ(size, static_cast<int>(bytes.size()));
        return {};
    }
    EXPECT_EQ(payload, bytes.data() + HBN3::kHeaderSize);
    return {payload, payload + size};
}

TEST(HBN3Test, WholeFrameIsTakenInPlace)
{
    Frames frames;
    frames.iSize = 7;
    EXPECT_EQ(inPlace(frames, frame({1, 2})), (Bytes{1, 2}));
    EXPECT_EQ(frames.iSize, 0);
    EXPECT_EQ(frames.iPtr, 0);
    EXPECT_EQ(inPlace(frames, frame(Bytes(79991, 3))), Bytes(79991, 3));
}

TEST(HBN3Test, OtherBytesAreNotTakenInPlace)
{
    Frames frames;
    for (const Bytes& bytes :
         {Bytes{}, frameHeader(0), frame({1}), frameHeader(3) + Bytes{1, 2},
          frameHeader(2) + Bytes{1, 2, 3}, frameHeader(0xFFFFFFFF) + Bytes{1, 2},
          Bytes{'H', 'B', 'N', '4', 0, 0, 0, 0, 2, 1, 2}, frame(Bytes(79992, 3))}) {
        frames.iSize = 7;
        EXPECT_EQ(inPlace(frames, bytes), Bytes());
        EXPECT_EQ(frames.iSize, 7);
    }
    frames.set({5});
    EXPECT_EQ(inPlace(frames, frame({1, 2})), Bytes()) << "behind what is held";
    const LogCapture log;
    Frames traced;
    EXPECT_EQ(inPlace(traced, frame({1, 2})), Bytes()) << "the trace tells of each step";
}

TEST(HBN3Test, ForeignBytesOfLaterFramesDoNotShow)
{
    Frames frames;
    frames.set(frame(Bytes(100, 0xAA)));
    frames.get();
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(frames.pBuff[static_cast<std::size_t>(i)], 0) << i;
    }
}

TEST(HBN3Test, TracesTheMagicInsideOfPayloads)
{
    LogCapture log;
    Frames frames;
    frames.set(frame({1, 2, 3}));
    EXPECT_EQ(frames.get(), Got(0, {1, 2, 3}));
    EXPECT_THAT(log.plainMessages(), ElementsAre(kAlways));
    log.clear();
    for (const Bytes& payload :
         {Bytes{'H', 'B', 'N', '3'}, Bytes{1, 'H', 'B', 'N', '3'}, Bytes{'H', 'B', 'N', '3', 1}}) {
        log.clear();
        frames.set(frameHeader(static_cast<unsigned>(payload.size())) + payload);
        EXPECT_EQ(frames.get(), Got(0, payload));
        EXPECT_THAT(log.plainMessages(), ElementsAre(kMagicFound, kAlways));
    }
    log.clear();
    frames.set(frame({'H', 'B', 'N'}));
    frames.get();
    EXPECT_THAT(log.plainMessages(), ElementsAre(kAlways));
}

// ---- against a model ----------------------------------------------------------------

// The same written down in the simplest way.
struct Model {
    Bytes held;
    int size = 0;

    int update()
    {
        const Bytes magic = {'H', 'B', 'N', '3'};
        if (held.size() < 9 || !std::equal(magic.begin(), magic.end(), held.begin())) {
            return 1;
        }
        unsigned length = 0;
        for (std::size_t i = 5; i < 9; i++) {
            length = length * 256 + held[i];
        }
        if (length != 0) {
            size = static_cast<int>(length);
        }
        held.erase(held.begin(), held.begin() + 9);
        return 0;
    }

    int set(const Bytes& bytes)
    {
        if (bytes.empty()) {
            return 3;
        }
        if (held.size() + bytes.size() > 80000) {
            return 1;
        }
        held.insert(held.end(), bytes.begin(), bytes.end());
        update();
        return 0;
    }

    Got get()
    {
        if (size < 0) {
            if (!held.empty()) {
                update();
            }
            return {1, {}};
        }
        const std::size_t n = std::min(held.size(), static_cast<std::size_t>(size));
        if (n < 2) {
            return {3, {}};
        }
        const bool isWhole = held.size() >= static_cast<std::size_t>(size);
        const Bytes out(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(n));
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(n));
        size -= static_cast<int>(n);
        return {isWhole && !held.empty() ? update() : 0, out};
    }
};

// Frames, pieces of frames and garbage.
Bytes randomBytes(std::mt19937& random)
{
    const auto below = [&random](unsigned limit) {
        return static_cast<unsigned>(random() % limit);
    };
    const unsigned sizes[] = {0, 1, 2, 3, 9, 20, 700, 30000};
    const unsigned size = below(40) == 0 ? sizes[below(8)] : sizes[below(6)];
    Bytes payload = ramp(static_cast<int>(size), static_cast<int>(below(256)));
    switch (below(6)) {
    case 0:
        return payload;
    case 1:
        return frameHeader(static_cast<unsigned>(random()));
    case 2: {
        Bytes whole = frameHeader(size) + payload;
        whole.resize(below(static_cast<unsigned>(whole.size())) + 1);
        return whole;
    }
    case 3:
        return frameHeader(size + below(3)) + payload;
    default:
        return frameHeader(size) + payload;
    }
}

class HBN3RandomTest : public testing::TestWithParam<unsigned> {};

TEST_P(HBN3RandomTest, DoesAsTheModel)
{
    constexpr int kOperations = 30000;
    std::mt19937 random(GetParam());
    Frames frames;
    Model model;
    int takenInPlace = 0;
    for (int i = 0; i < kOperations; i++) {
        switch (random() % 16) {
        case 0:
            ASSERT_EQ(frames.updateSize(), model.update()) << i;
            break;
        case 1:
            if (random() % 64 == 0) {
                frames.destroyBuffer();
                frames.createBuffer();
                model = {};
            }
            break;
        case 2:
        case 3:
        case 4:
        case 5:
        case 6: {
            const Bytes bytes = randomBytes(random);
            ASSERT_EQ(frames.set(bytes), model.set(bytes)) << i;
            break;
        }
        case 7: {
            const Bytes bytes = randomBytes(random);
            const Bytes payload = inPlace(frames, bytes);
            if (!payload.empty()) {
                ASSERT_EQ(model.set(bytes), 0) << i;
                ASSERT_EQ(model.get(), Got(0, payload)) << i;
                ++takenInPlace;
            }
            break;
        }
        default:
            ASSERT_EQ(frames.get(), model.get()) << i;
            break;
        }
        ASSERT_EQ(frames.iSize, model.size) << i;
        ASSERT_EQ(frames.iPtr, static_cast<int>(model.held.size())) << i;
    }
    EXPECT_EQ(Bytes(frames.pBuff.get(), frames.pBuff.get() + frames.iPtr), model.held);
    EXPECT_GT(takenInPlace, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, HBN3RandomTest, testing::Values(1U, 2U, 3U, 4U, 5U));

}  // namespace
