// SPDX-License-Identifier: LGPL-2.1-or-later
// Cancel at any moment: while nothing runs, in a signal handler, from another thread.
#include "HandleTest.h"
#include "LogCapture.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

#include <pthread.h>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace entry;

namespace {

TEST_F(HandleTest, CancelWhileNothingRuns)
{
    cancel();
    EXPECT_THAT(*calls, ElementsAre("close"));
    start();
    cancel();
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close"));
    calls->clear();
    cancel();
    EXPECT_THAT(*calls, ElementsAre("close"));
}

// It may have come in a signal handler.
TEST_F(HandleTest, CancelLeavesErrnoAlone)
{
    engine->transport->onClose = [] { errno = EIO; };
    errno = ENOENT;
    cancel();
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(HandleTest, CloseEndsTheJob)
{
    start();
    sane_ScanLib_close(handle());
    engine = nullptr;
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close", "destroyed"));
}

// The ways in which a cancel can arrive while an operation runs.
SANE_Handle interruptedHandle = nullptr;

void cancelOnSignal(int)
{
    sane_ScanLib_cancel(interruptedHandle);
}

struct Arrival {
    const char* name;
    std::function<void(SANE_Handle)> cancel;
    friend void PrintTo(const Arrival& c, std::ostream* out) { *out << c.name; }
};

const Arrival kArrivals[] = {
    {"Nested", [](SANE_Handle handle) { sane_ScanLib_cancel(handle); }},
    {"Signal",
     [](SANE_Handle handle) {
         interruptedHandle = handle;
         const auto before = std::signal(SIGUSR1, cancelOnSignal);
         raise(SIGUSR1);
         std::signal(SIGUSR1, before);
     }},
    {"Thread", [](SANE_Handle handle) { std::thread(sane_ScanLib_cancel, handle).join(); }},
};

class InterruptTest : public HandleTest, public testing::WithParamInterface<Arrival> {
protected:
    // A cancel only leaves a note: it does nothing with the device itself.
    void interrupt()
    {
        const Journal before = *calls;
        LogCapture log;
        GetParam().cancel(handle());
        EXPECT_EQ(*calls, before);
        EXPECT_THAT(log.lines(), IsEmpty());
    }

    // What a cancelled job does with the device.
    void expectCancelled()
    {
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), 1);
        EXPECT_EQ(calls->back(), "close");
        EXPECT_EQ(engine->ScanInProgress, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Arrivals, InterruptTest, testing::ValuesIn(kArrivals), kByName);

TEST_P(InterruptTest, WhileReading)
{
    start();
    engine->transport->steps = {{0, ramp(10)},
                                {0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10)},
                                {0, ramp(10)}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(length, 0) << "also of the bytes that were there already";
    expectCancelled();
    EXPECT_EQ((*calls)[2], "command 0") << "the device is told before it is read again";
    EXPECT_EQ(std::count(calls->begin(), calls->end(), "close"), 1);
    EXPECT_TRUE(engine->transport->steps.empty()) << "what the device still sends is drained";

    calls->clear();
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(length, 0);
    EXPECT_THAT(*calls, IsEmpty());
}

TEST_P(InterruptTest, WhileThereIsNoData)
{
    start();
    engine->transport->steps = {{18}, {18, {}, [this](ImageData*) { interrupt(); }}, {3}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    expectCancelled();
}

TEST_P(InterruptTest, WhileTheReadFails)
{
    start();
    engine->transport->steps = {{15, {}, [this](ImageData*) { interrupt(); }}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(calls->back(), "close");
}

TEST_P(InterruptTest, WhileStarting)
{
    engine->SetDoubleValue("CURRENTTLX", 20.0);
    engine->SetDoubleValue("CURRENTBRX", 60.0);
    for (const int command : {3, 4}) {
        engine->transport->onCommand = [&](int id) {
            if (id == command) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(calls->back(), "close");
        EXPECT_EQ(engine->ScanInProgress, 0);
        // The area is as the front end has set it.
        EXPECT_EQ(engine->GetDoubleValue("CURRENTTLX"), 20.0);
        // Only a device that was told to scan is told to stop.
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 4"), command == 4 ? 1 : 0);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), command == 4 ? 1 : 0);
        engine->transport->onCommand = nullptr;
        calls->clear();
    }
}

// Each command may wait for the device: none is sent behind a cancel.
TEST_P(InterruptTest, WhilePreparingTheStart)
{
    engine->set("COMMANDVERSION", 402);
    engine->set("SCANNERTYPE", 4);
    const Journal all = {"open", "command 6", "command 1", "command 3", "command 4"};
    for (const int command : {6, 1}) {
        engine->transport->onCommand = [&](int id) {
            if (id == command) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        Journal expected(all.begin(), all.begin() + (command == 6 ? 2 : 3));
        expected.push_back("close");
        EXPECT_EQ(*calls, expected);
        calls->clear();
    }
    engine->transport->onCommand = nullptr;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_EQ(*calls, all);
}

TEST_P(InterruptTest, WhileOpening)
{
    engine->set("COMMANDVERSION", 402);
    engine->transport->onOpen = [this] { interrupt(); };
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
    EXPECT_THAT(*calls, ElementsAre("open", "close"));
}

// A lock that somebody else holds is not undone, one that may be ours is.
TEST_P(InterruptTest, WhileTheLockIsRefused)
{
    const Bytes refused = {0x1B, 0x53, 0x05, 0, 0, 0, 130, 0};
    engine->transport->replies[3] = refused;
    for (const bool isAnswered : {true, false}) {
        if (!isAnswered) {
            engine->transport->writeResults[3] = 15;
        }
        engine->transport->onCommand = [&](int id) {
            if (id == 3) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 5"), isAnswered ? 0 : 1);
        EXPECT_EQ(calls->back(), "close");
        calls->clear();
    }
}

// A device that may scan is told to stop, one that has refused is not.
TEST_P(InterruptTest, WhileTheStartIsRefused)
{
    const Bytes refused = {0x1B, 0x53, 0x01, 0, 0, 0, 130, 0};
    engine->transport->replies[4] = refused;
    for (const bool isAnswered : {true, false}) {
        if (!isAnswered) {
            engine->transport->writeResults[4] = 15;
        }
        engine->transport->onCommand = [&](int id) {
            if (id == 4) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), isAnswered ? 0 : 1);
        EXPECT_EQ(calls->back(), "close");
        calls->clear();
    }
}

TEST_P(InterruptTest, TooLateForTheRead)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            interrupt();
        }
    };
    read(100);
    EXPECT_EQ(calls->back(), "close");
}

// Front ends ask for options while another thread reads.
TEST_F(HandleTest, JobsWaitForTheStore)
{
    start();
    engine->transport->steps = {{0, ramp(100)}};
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isFree{false};
    std::thread store([&] {
        const ScanLib::Operation operation(*engine, ScanLib::Occupation::store);
        isHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        isFree = true;
    });
    while (!isHeld) {
    }
    EXPECT_EQ(read(100), SANE_STATUS_GOOD);
    EXPECT_TRUE(isFree);
    store.join();
    EXPECT_EQ(length, 100);
}

TEST_F(HandleTest, NothingWaitsForAJob)
{
    start();
    const ScanLib::Operation operation(*engine);
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_DEVICE_BUSY);
    setResolution(75);
    SANE_Parameters parameters = {};
    EXPECT_EQ(sane_ScanLib_get_parameters(handle(), &parameters), SANE_STATUS_GOOD);
    EXPECT_THAT(*calls, IsEmpty());
}

// The page that runs can still be cancelled, with what the device sends of it.
TEST_F(HandleTest, ARefusedStartInAPageLeavesIt)
{
    start();
    engine->transport->steps = {{0, ramp(10)}, {1}};
    engine->transport->writeResults[3] = 15;
    EXPECT_NE(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    calls->clear();
    cancel();
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "read", "command 5", "close"));
}

// A signal may arrive while its own thread has the store.
TEST_F(HandleTest, ACancelDoesNotWaitForTheStore)
{
    start();
    {
        const ScanLib::Operation operation(*engine, ScanLib::Occupation::store);
        cancel();
        EXPECT_THAT(*calls, IsEmpty());
    }
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close"));
}

// A feature file may leave no bytes for a line.
TEST_F(HandleTest, PageWithoutLinesEnds)
{
    engine->set("BGRTORGB", 1);
    engine->set("COLORDEPTH", -1);
    engine->setUpManipulations();
    start();
    engine->transport->steps = {{0, ramp(40)}, {0, ramp(60)}, {1}};
    long bytes = 0;
    int reads = 0;
    SANE_Status status = SANE_STATUS_GOOD;
    for (; status == SANE_STATUS_GOOD && reads < 10; ++reads) {
        status = read(30);
        bytes += length;
    }
    EXPECT_EQ(status, SANE_STATUS_EOF);
    EXPECT_EQ(bytes, 100);
    start();
    engine->transport->steps = {{0, ramp(100)}, {0, ramp(100)}, {1}};
    EXPECT_EQ(read(30), SANE_STATUS_GOOD);
    EXPECT_EQ(read(30), SANE_STATUS_GOOD);
    cancel();
    EXPECT_EQ(calls->back(), "close");
}

// What ends the flush must not pass for the end of the frame.
TEST_P(InterruptTest, TooLateForAnyRead)
{
    start();
    engine->transport->steps = {{0, ramp(10)}, {1}};
    {
        const ScanLib::Operation operation(*engine);
        interrupt();
    }
    expectCancelled();
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(length, 0);
}

TEST_P(InterruptTest, NextFrameIsNotCancelled)
{
    start();
    engine->transport->steps = {{0, ramp(10), [this](ImageData*) { interrupt(); }}, {3}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    start();
    engine->transport->steps = {{0, ramp(100)}};
    EXPECT_EQ(read(100), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 100);
    EXPECT_EQ(read(100), SANE_STATUS_EOF);
}

TEST_P(InterruptTest, WhileFlushing)
{
    start();
    engine->transport->steps = {{0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10)}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    expectCancelled();
    EXPECT_TRUE(engine->transport->steps.empty());
}

// Whatever the moment of a cancel: no later frame suffers from it.
TEST_P(InterruptTest, WhileALateCancelIsCarriedOut)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            interrupt();
        }
    };
    bool isFirst = true;
    engine->transport->onClose = [&] {
        if (isFirst) {
            isFirst = false;
            interrupt();
        }
    };
    read(100);
    EXPECT_FALSE(isFirst);
    engine->transport->onCommand = nullptr;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
}

// A front end that gives up while the device is silent.
TEST_F(HandleTest, CloseFromAnotherThread)
{
    start();
    std::atomic<bool> isReading{false};
    std::atomic<bool> isClosing{false};
    const auto duringRead = [&](ImageData*) {
        isReading = true;
        while (!isClosing) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_THAT(*calls, ElementsAre("read")) << "the closing thread waits";
    };
    engine->transport->steps = {{18, {}, duringRead}, {3}};
    std::thread closer([&] {
        while (!isReading) {
            std::this_thread::yield();
        }
        isClosing = true;
        sane_ScanLib_close(handle());
    });
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    closer.join();
    engine = nullptr;
    EXPECT_EQ(calls->back(), "destroyed");
}

// The running operation may end between a cancel's look at it and its note.
TEST_F(HandleTest, InterruptBehindTheOperation)
{
    start();
    engine->Interrupt();
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close"));
    EXPECT_EQ(engine->ScanInProgress, 0);
    start();
    engine->transport->steps = {{0, ramp(100)}};
    EXPECT_EQ(read(100), SANE_STATUS_GOOD) << "the request is gone";
}

TEST_F(HandleTest, ALateCancelMayThrow)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            cancel();
        }
    };
    engine->transport->onClose = [] { throw std::runtime_error("no close"); };
    LogCapture log;
    read();
    EXPECT_THAT(log.plainMessages(), Contains("[ERROR] cancel failed"));
    engine->transport->onCommand = nullptr;
    engine->transport->onClose = nullptr;
    start();
}

#if !defined(__SANITIZE_ADDRESS__)  // which cannot follow the end of such a thread
// A front end may end the thread that reads; the handle is free again then.
TEST_F(HandleTest, ThreadIsCancelledWhileReading)
{
    start();
    std::atomic<bool> isReading{false};
    const auto wait = [&](ImageData*) {
        isReading = true;
        pause();
    };
    engine->transport->steps = {{18, {}, wait}, {0, ramp(100)}};
    pthread_t thread;
    const auto body = [](void* test) -> void* {
        static_cast<HandleTest_ThreadIsCancelledWhileReading_Test*>(test)->read();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, this), 0);
    while (!isReading) {
        std::this_thread::yield();
    }
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(read(), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 100);
}
#endif

}  // namespace
