// SPDX-License-Identifier: LGPL-2.1-or-later
// TCP streams, and what is cut out of them.
#include "FrameStream.h"
#include "HostStream.h"
#include "Support.h"
#include "TcpStream.h"

#include <gmock/gmock.h>

#include <numeric>

namespace {

using namespace tracetest;
using testing::HasSubstr;
using trace::Bytes;
using trace::TcpStream;
using trace::Transfer;

constexpr std::uint32_t kStart = 0xFFFFFFF0;  // numbers wrap around soon

Bytes counting(std::size_t size)
{
    Bytes result(size);
    std::iota(result.begin(), result.end(), std::uint8_t{0});
    return result;
}

class Reassembly : public testing::Test {
protected:
    Reassembly() { stream_.begin(kStart - 1); }

    // Bytes from..to of the stream.
    void add(std::size_t from, std::size_t to)
    {
        stream_.add(++time_, static_cast<std::uint32_t>(kStart + from),
                    trace::ByteView(sent_).part(from, to - from), pieces_);
    }
    Bytes received() const
    {
        Bytes all;
        for (const TcpStream::Piece& piece : pieces_) {
            all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
        }
        return all;
    }
    std::size_t missing() const
    {
        std::size_t sum = 0;
        for (const TcpStream::Piece& piece : pieces_) {
            sum += piece.missing;
        }
        return sum;
    }

    const Bytes sent_ = counting(100);
    TcpStream stream_;
    std::vector<TcpStream::Piece> pieces_;
    std::uint64_t time_ = 0;
};

TEST_F(Reassembly, InOrder)
{
    add(0, 10);
    add(10, 60);
    add(60, 100);
    EXPECT_EQ(received(), sent_);
    EXPECT_EQ(stream_.outOfOrder() + stream_.repeated(), 0U);
}

TEST_F(Reassembly, OutOfOrder)
{
    add(60, 100);
    add(10, 60);
    EXPECT_TRUE(pieces_.empty());
    add(0, 10);
    EXPECT_EQ(received(), sent_);
    EXPECT_EQ(pieces_.back().time, 3U);
    EXPECT_EQ(stream_.outOfOrder(), 2U);
}

TEST_F(Reassembly, RepeatedAndOverlapping)
{
    add(0, 10);
    add(0, 10);
    add(5, 40);
    add(30, 100);
    add(0, 100);
    EXPECT_EQ(received(), sent_);
    EXPECT_EQ(stream_.repeated(), 4U);
}

TEST_F(Reassembly, WhatThePeerHasButTheRecordingHasNot)
{
    add(0, 10);
    add(20, 100);
    stream_.acknowledge(++time_, kStart + 10, pieces_);
    EXPECT_EQ(received().size(), 10U);
    stream_.acknowledge(++time_, kStart + 30, pieces_);
    EXPECT_EQ(received().size(), 90U);
    EXPECT_EQ(missing(), 10U);
}

TEST_F(Reassembly, TheEndWaitsForNothing)
{
    add(20, 30);
    add(50, 100);
    stream_.end(pieces_);
    EXPECT_EQ(received().size(), 60U);
    EXPECT_EQ(missing(), 40U);
}

TEST_F(Reassembly, BeginsInTheMiddle)
{
    TcpStream late;
    late.add(1, 12345, sent_, pieces_);
    EXPECT_EQ(received(), sent_);
}

template <class Stream>
std::vector<Transfer> cut(const Bytes& bytes, std::size_t step)
{
    Stream stream;
    std::vector<Transfer> transfers;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        stream.add(at, trace::ByteView(bytes).part(at, step), transfers);
    }
    stream.breakOff(bytes.size(), transfers);
    return transfers;
}

TEST(TraceHostStream, CommandsInPiecesOfAnySize)
{
    const Bytes greeting = bytes("48 42 4e 33 00 00 00 00 02");
    const Bytes unlock = bytes("1B 53 06 00 00 00 80 00");
    const Bytes all = joined({greeting, scanCommand(0x05, 402), unlock, inNpaFrame(unlock)});
    for (std::size_t step = 1; step <= all.size(); ++step) {
        const auto transfers = cut<trace::HostStream>(all, step);
        ASSERT_EQ(transfers.size(), 4U) << step;
        EXPECT_THAT(transfers[0].text, HasSubstr("tickle"));
        EXPECT_EQ(transfers[1].bytes, scanCommand(0x05, 402));
        EXPECT_EQ(transfers[2].bytes, unlock);
        EXPECT_EQ(transfers[3].bytes, inNpaFrame(unlock));
    }
}

TEST(TraceHostStream, UnknownBytesAreSkippedAndFlagged)
{
    const auto transfers =
        cut<trace::HostStream>(joined({bytes("01 02 03"), bytes("1B 53 06 00 00 00 80 00")}), 100);
    ASSERT_EQ(transfers.size(), 2U);
    EXPECT_EQ(transfers[0].text, "the host sends what begins no command: 01 02 03");
    EXPECT_EQ(transfers[1].bytes.size(), 8U);
}

TEST(TraceFrameStream, FramesInPiecesOfAnySize)
{
    const Bytes payload = counting(300);
    const Bytes all = joined({frame({}), frame(payload), frame({}), frame({1, 2})});
    for (const std::size_t step : {1U, 2U, 7U, 9U, 100U, 1000U}) {
        const auto transfers = cut<trace::FrameStream>(all, step);
        ASSERT_EQ(transfers.size(), 4U) << step;
        EXPECT_EQ(transfers[0].text, "scanner greets the host");
        EXPECT_EQ(transfers[1].bytes, payload);
        EXPECT_EQ(transfers[2].kind, Transfer::Kind::Data);
        EXPECT_TRUE(transfers[2].bytes.empty());
        EXPECT_EQ(transfers[3].bytes, Bytes({1, 2}));
    }
}

TEST(TraceFrameStream, WrongMagicLengthAndEndAreFlagged)
{
    Bytes tooLong = frame({});
    tooLong[5] = 0x7F;
    const Bytes good = frame({1, 2, 3});
    const Bytes cutOff(good.begin(), good.end() - 1);
    const auto transfers =
        cut<trace::FrameStream>(joined({bytes("db db db"), good, tooLong, good, cutOff}), 5);
    std::string text;
    for (const Transfer& transfer : transfers) {
        text += transfer.text + "|";
    }
    EXPECT_THAT(text, HasSubstr("wrong magic of a frame, 3 bytes skipped: DB DB DB"));
    EXPECT_THAT(text, HasSubstr("wrong length of a frame"));
    EXPECT_THAT(text, HasSubstr("a frame of which only 11 bytes are there"));
    EXPECT_EQ(std::count_if(transfers.begin(), transfers.end(),
                            [](const Transfer& each) {
                                return each.bytes == Bytes({1, 2, 3});
                            }),
              2);
}

TEST(TraceFrameStream, FramesThatNoHostTakesAreFlagged)
{
    const auto transfers = cut<trace::FrameStream>(joined({frame({}), frame({1})}), 100);
    ASSERT_EQ(transfers.size(), 3U);
    EXPECT_EQ(transfers[1].text, "a frame of a single byte, which no host takes");
}

}  // namespace
