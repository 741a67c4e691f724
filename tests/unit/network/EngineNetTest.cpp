// SPDX-License-Identifier: LGPL-2.1-or-later
// Scan jobs of the engine over a real connection.
#include "NetComm.h"

#include "FakeScanner.h"
#include "Sockets.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;

namespace {

constexpr int kOn = 1;
constexpr int kPageSize = 100;  // what TestEngine asks for

// Greets, replies to every command and does as it is told after a start.
class WorkingScanner {
public:
    explicit WorkingScanner(std::function<void(WorkingScanner&)> afterStart)
        : afterStart_(std::move(afterStart)), thread_([this] { run(); })
    {
    }
    WorkingScanner(const WorkingScanner&) = delete;
    WorkingScanner& operator=(const WorkingScanner&) = delete;
    ~WorkingScanner() { stop(); }

    void stop()
    {
        isOver_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    void send(const Bytes& bytes)
    {
        if (!bytes.empty()) {
            ::send(peer_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        }
    }
    void hangUp() { peer_.reset(); }
    // The codes of the commands that came, once it is over.
    std::vector<int> commands()
    {
        stop();
        return commands_;
    }

    bool isSilent = false;  // does not reply from the first start on
    bool endsAtCancel = true;

private:
    bool isReadable(int fd) const
    {
        pollfd waited = {fd, POLLIN, 0};
        return poll(&waited, 1, 10) > 0;
    }

    void run()
    {
        while (!isOver_) {
            if (isReadable(scanner_.listener.get())) {
                peer_.reset(accept(scanner_.listener.get(), nullptr, nullptr));
                setsockopt(peer_.get(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
                receiveAll(peer_.get(), 9);
                send(frameHeader(0));
            } else if (peer_.get() >= 0 && isReadable(peer_.get())) {
                obey();
            }
        }
    }

    void obey()
    {
        const Bytes command = receiveAll(peer_.get(), 8);
        if (command.size() < 8) {
            hangUp();
            return;
        }
        receiveAll(peer_.get(), command[4]);
        commands_.push_back(command[2]);
        if (command[2] == 0x0F) {
            send(endsAtCancel ? frame(record(4)) : Bytes());
            return;
        }
        Bytes reply(8);
        std::copy(command.begin(), command.begin() + 3, reply.begin());
        reply[6] = 0x80;
        send(isSilent && hasStarted_ ? Bytes() : frame(reply));
        if (command[2] == kCommandCode[4]) {
            hasStarted_ = true;
            afterStart_(*this);
        }
    }

    std::function<void(WorkingScanner&)> afterStart_;
    FakeScanner scanner_;
    Descriptor peer_;
    std::vector<int> commands_;
    std::atomic<bool> isOver_{false};
    bool hasStarted_ = false;
    std::thread thread_;
};

class EngineNetTest : public testing::Test {
protected:
    EngineNetTest()
    {
        auto* comm = new NetComm;
        comm->setDevice("Quillon/Model X/libnet:000800000000:127.0.0.1:1234:3260");
        comm->setCommand(engine.pCmd.get());
        engine.SetIO(comm);
    }

    // Reads until the status is not good; the bytes, and the status.
    int readPage(Bytes* page)
    {
        int status = 0;
        while (status == 0) {
            unsigned char bytes[30];
            int length = 0;
            const ScanLib::Operation operation(engine);
            status = engine.AcquireImage(bytes, sizeof bytes, &length);
            page->insert(page->end(), bytes, bytes + length);
        }
        return status;
    }
    int start()
    {
        const ScanLib::Operation operation(engine);
        return engine.Start();
    }

    // Reads until a cancel from another thread ends it.
    void cancelWithin(milliseconds limit)
    {
        std::thread canceller([this] {
            std::this_thread::sleep_for(milliseconds(200));
            engine.Interrupt();
        });
        Bytes page;
        EXPECT_EQ(readPage(&page), 2);
        canceller.join();
        EXPECT_THAT(watch.elapsed(), Lt(limit));
    }

    TestEngine engine;
    Stopwatch watch;
};

void sendPage(WorkingScanner& scanner)
{
    const Bytes block = imageBlock(ramp(kPageSize));
    // A block header in two frames.
    scanner.send(frame(Bytes(block.begin(), block.begin() + 3)));
    scanner.send(frame(Bytes(block.begin() + 3, block.end())));
    scanner.send(frame(record(1)));
}

TEST_F(EngineNetTest, ScansAPage)
{
    WorkingScanner scanner(sendPage);
    ASSERT_EQ(start(), 0);
    Bytes page;
    EXPECT_EQ(readPage(&page), 5);
    EXPECT_EQ(page, ramp(kPageSize));
    engine.CancelAndFlush();
    EXPECT_THAT(scanner.commands(), ElementsAre(5, 1, 6)) << "lock, start, unlock";
}

TEST_F(EngineNetTest, ManyRoundsLeaveNothingOpen)
{
    WorkingScanner scanner(sendPage);
    const int before = openDescriptors();
    for (int i = 0; i < 100; i++) {
        ASSERT_EQ(start(), 0);
        Bytes page;
        ASSERT_EQ(readPage(&page), 5);
        ASSERT_EQ(page.size(), static_cast<std::size_t>(kPageSize));
        engine.CancelAndFlush();
    }
    EXPECT_LE(openDescriptors(), before + 2);
}

TEST_F(EngineNetTest, ConnectionIsLostInMidPage)
{
    std::atomic<bool> isFirst{true};
    WorkingScanner scanner([&isFirst](WorkingScanner& self) {
        if (isFirst.exchange(false)) {
            self.send(frame(imageBlock(ramp(60))));
            self.hangUp();
        } else {
            sendPage(self);
        }
    });
    ASSERT_EQ(start(), 0);
    Bytes page;
    EXPECT_EQ(readPage(&page), 9) << "an I/O error, not the end of the page";
    EXPECT_LT(watch.elapsed(), milliseconds(5000));
    engine.CancelAndFlush();
    ASSERT_EQ(start(), 0) << "and the next page comes over a new connection";
    page.clear();
    EXPECT_EQ(readPage(&page), 5);
    EXPECT_EQ(page, ramp(kPageSize));
}

TEST_F(EngineNetTest, CancelWhileTheScannerWorks)
{
    WorkingScanner scanner([](WorkingScanner& self) { self.send(frame(imageBlock(ramp(30)))); });
    ASSERT_EQ(start(), 0);
    cancelWithin(milliseconds(1500));
    EXPECT_THAT(scanner.commands(), ElementsAre(5, 1, 0x0F, 6));
}

TEST_F(EngineNetTest, CancelInTheMiddleOfAFrame)
{
    WorkingScanner scanner([](WorkingScanner& self) {
        const Bytes block = frame(imageBlock(ramp(60)));
        self.send(Bytes(block.begin(), block.begin() + 40));
        std::this_thread::sleep_for(milliseconds(700));
        self.send(Bytes(block.begin() + 40, block.end()));
    });
    ASSERT_EQ(start(), 0);
    cancelWithin(milliseconds(2000));  // the frame is read to its end
    EXPECT_THAT(scanner.commands(), ElementsAre(5, 1, 0x0F, 6));
}

TEST_F(EngineNetTest, CancelWhileTheScannerIsSilent)
{
    WorkingScanner scanner([](WorkingScanner&) {});
    scanner.isSilent = true;
    scanner.endsAtCancel = false;
    ASSERT_EQ(start(), 0);
    cancelWithin(milliseconds(6500));
    EXPECT_THAT(scanner.commands(), ElementsAre(5, 1, 0x0F, 6));
}

TEST_F(EngineNetTest, FloodOfEmptyFrames)
{
    WorkingScanner scanner([](WorkingScanner& self) {
        for (int i = 0; i < 1000; i++) {
            self.send(frameHeader(0));
        }
    });
    ASSERT_EQ(start(), 0);
    Bytes page;
    EXPECT_EQ(readPage(&page), 9);
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(3000)));
}

}  // namespace
