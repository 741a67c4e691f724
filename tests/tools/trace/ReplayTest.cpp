// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Replay.h"

#include "Support.h"
#include "Text.h"

#include <gmock/gmock.h>

namespace {

using namespace tracetest;
using scansim::TransferResult;
using testing::ElementsAre;
using testing::IsEmpty;
using trace::Bytes;

constexpr const char* kCapture =
    "# scanlib capture 1\n"
    "transport usb\n"
    "> 0 1b53040000008000\n"
    "< 5 1b53040000008002\n"
    "! 6 a remark\n"
    "> 9 1b53060000008000\n"
    "< 12 1b53060000008002\n"
    "< 12\n"
    "< 15 07*100 ff?20\n";

const Bytes kFeeder = bytes("1b53040000008000");
const Bytes kUnlock = bytes("1b53060000008000");
const Bytes kWake = bytes("1b44040000008000");
const Bytes kCancel = bytes("1b530f0000000000");

class ReplayTest : public testing::Test {
protected:
    ReplayTest() : file_(kCapture) { model_.replay = file_.path(); }

    Bytes read(std::size_t capacity = 512)
    {
        Bytes bytes;
        EXPECT_EQ(replay_->read(capacity, bytes), TransferResult::Done);
        return bytes;
    }
    bool hasNothing()
    {
        Bytes bytes;
        return replay_->read(512, bytes) == TransferResult::Nothing;
    }
    void start() { replay_.emplace(model_, journal_); }

    TemporaryFile file_;
    scansim::Model model_;
    scansim::Journal journal_{"dev1"};
    std::optional<scansim::Replay> replay_;
};

TEST_F(ReplayTest, SaysWhatTheCaptureSays)
{
    start();
    EXPECT_TRUE(hasNothing());
    replay_->write(kFeeder);
    EXPECT_EQ(read(), bytes("1b53040000008002"));
    EXPECT_TRUE(hasNothing());
    replay_->write(kUnlock);
    EXPECT_EQ(read(), bytes("1b53060000008002"));
    EXPECT_EQ(read(), Bytes());
    EXPECT_EQ(read(90), Bytes(90, 7));
    EXPECT_EQ(read(90).size(), 30U);
    EXPECT_TRUE(hasNothing());
    replay_->finish();
    EXPECT_THAT(journal_.complaints(), IsEmpty());
}

TEST_F(ReplayTest, GivesWholeTransfersToTheNetwork)
{
    start();
    replay_->write(kFeeder);
    replay_->write(kUnlock);
    scansim::Piece piece;
    EXPECT_EQ(replay_->take(piece), TransferResult::Done);
    EXPECT_EQ(replay_->take(piece), TransferResult::Done);
    EXPECT_EQ(replay_->take(piece), TransferResult::Done);
    EXPECT_EQ(piece.bytes.size(), 120U);
    EXPECT_EQ(replay_->take(piece), TransferResult::Nothing);
}

TEST_F(ReplayTest, ComplainsAboutOtherCommandsAndGoesOn)
{
    start();
    replay_->write(kUnlock);
    EXPECT_EQ(read(), bytes("1b53060000008002"));
    EXPECT_THAT(journal_.complaints(),
                ElementsAre("dev1: replay: unlock comes where the capture has feeder status"));
}

TEST_F(ReplayTest, ComplainsAboutOtherBytes)
{
    start();
    Bytes other = kFeeder;
    other[7] = 1;
    replay_->write(other);
    EXPECT_EQ(read(), bytes("1b53040000008002"));
    EXPECT_EQ(journal_.complaints().size(), 1U);
}

TEST_F(ReplayTest, MakesUpWhatTheCaptureDoesNotHave)
{
    start();
    replay_->write(kWake);
    EXPECT_EQ(read(), bytes("1b44040000008000"));
    replay_->write(kCancel);
    EXPECT_EQ(read(), bytes("1b53020001008000 03"));
    EXPECT_EQ(journal_.complaints().size(), 2U);
    replay_->write(kFeeder);
    EXPECT_EQ(read(), bytes("1b53040000008002"));
    EXPECT_EQ(journal_.complaints().size(), 2U);
}

TEST_F(ReplayTest, WhatIsMadeUpFitsTheRead)
{
    start();
    replay_->write(kWake);
    EXPECT_EQ(read(5), bytes("1b44040000"));
    EXPECT_EQ(read(5), bytes("008000"));
    EXPECT_TRUE(hasNothing());
}

TEST_F(ReplayTest, ComplainsAboutWhatWasNotReadOrSent)
{
    start();
    replay_->write(kFeeder);
    replay_->write(kUnlock);
    EXPECT_THAT(journal_.complaints(), ElementsAre("dev1: replay: unlock comes before 1 transfers "
                                                   "of the capture were read"));
    start();
    journal_.forgetComplaints();
    replay_->write(kFeeder);
    replay_->finish();
    EXPECT_THAT(journal_.complaints(),
                ElementsAre("dev1: replay: the host has stopped, 1 commands of the capture before "
                            "its end"));
}

TEST_F(ReplayTest, AFileThatIsNoCaptureIsRefused)
{
    file_.write("nonsense\n");
    EXPECT_THROW(start(), scansim::InputError);
    model_.replay = "/nonexistent";
    EXPECT_THROW(start(), scansim::InputError);
}

}  // namespace
