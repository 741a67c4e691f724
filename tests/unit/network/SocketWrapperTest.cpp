// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SocketWrapper.h"

#include "Calls.h"
#include "CancelToken.h"
#include "LogCapture.h"
#include "Sockets.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

using std::chrono::milliseconds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;

namespace {

std::string text(const char* format, int value)
{
    char line[200];
    snprintf(line, sizeof line, format, value);
    return line;
}

void fill(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const Bytes block(65536);
    while (::send(fd, block.data(), block.size(), 0) > 0) {
    }
    fcntl(fd, F_SETFL, flags);
}

class SocketWrapperTest : public testing::Test {
protected:
    int send(const Bytes& bytes, long seconds = -1, long microseconds = -1)
    {
        return SocketWrapper::send(fd(), bytes.data(), bytes.size(), seconds, microseconds, &error,
                                   &token);
    }
    int receive(unsigned long wanted, bool waitAll, long seconds = -1, long microseconds = -1)
    {
        length = wanted;
        buffer.assign(wanted, 0xEE);
        return SocketWrapper::receive(fd(), buffer.data(), &length, waitAll, seconds, microseconds,
                                      &error, &token);
    }
    int fd() const { return connection.own.get(); }
    Bytes received() const
    {
        return Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length));
    }
    // Requests a cancel after a while.
    std::thread cancelLater()
    {
        return std::thread([this] {
            std::this_thread::sleep_for(milliseconds(150));
            token.request();
        });
    }

    Connection connection;
    CancelToken token;
    int error = 77;
    Bytes buffer;
    unsigned long length = 0;
    LogCapture log;
    Stopwatch watch;
};

// ---- send ---------------------------------------------------------------------------

TEST_F(SocketWrapperTest, Sends)
{
    EXPECT_EQ(send({1, 2, 3}), 3);
    EXPECT_EQ(error, 77);
    EXPECT_EQ(receiveAll(connection.peer.get(), 3), (Bytes{1, 2, 3}));
    EXPECT_THAT(log.plainMessages(),
                ElementsAre(text("Monitoring fd:%d for writing", fd()), "polling timeout: none",
                            "before send pselect(). ", "after send pselect(). ret :1",
                            "data to be sent", "before send(). ", "after send(). ret: 3"));
    EXPECT_THAT(log.messages().front(), HasSubstr("METHOD START"));
    EXPECT_THAT(log.messages().back(), HasSubstr("METHOD END ::::::::::::::: 3"));
}

TEST_F(SocketWrapperTest, DumpsWhatItSends)
{
    setenv("ENABLE_SL_DUMP", "1", 1);
    send({0x12, 0xAB});
    unsetenv("ENABLE_SL_DUMP");
    EXPECT_THAT(log.plainMessages(), Contains("12 ab "));
}

TEST_F(SocketWrapperTest, SendTracesItsTimeLimit)
{
    send({1}, 2, 3);
    send({1}, 0, 0);
    send({1}, -1, 0);
    send({1}, 0, -1);
    EXPECT_EQ(log.count("polling timeout: 2 seconds  3 microseconds"), 1);
    EXPECT_EQ(log.count("polling timeout: 0 seconds  0 microseconds"), 1);
    EXPECT_EQ(log.count("polling timeout: none"), 2);
}

// A program without a standard input gets sockets with its number.
TEST_F(SocketWrapperTest, DescriptorZeroIsOneLikeOthers)
{
    const int before = dup(0);
    ASSERT_EQ(dup2(fd(), 0), 0);
    const unsigned char byte = 7;
    const int sent = SocketWrapper::send(0, &byte, 1, -1, -1, &error);
    dup2(before, 0);
    close(before);
    EXPECT_EQ(sent, 1);
    EXPECT_EQ(receiveAll(connection.peer.get(), 1), Bytes{7});
}

TEST_F(SocketWrapperTest, SendRefusesBadArguments)
{
    const unsigned char byte = 1;
    EXPECT_EQ(SocketWrapper::send(-1, &byte, 1, -1, -1, &error), -1);
    EXPECT_EQ(SocketWrapper::send(fd(), nullptr, 1, -1, -1, &error), -1);
    EXPECT_EQ(SocketWrapper::send(fd(), &byte, 0, -1, -1, nullptr), -1);
    EXPECT_EQ(log.count("Invalid parameter passed"), 3);
    EXPECT_EQ(log.count("METHOD END ::::::::::::::: -1"), 3);
    EXPECT_FALSE(log.contains("Monitoring"));
    EXPECT_EQ(error, 77);
}

TEST_F(SocketWrapperTest, TimedOutSendPassesForDone)
{
    fill(fd());
    EXPECT_EQ(send({1, 2, 3, 4}, 0, 50000), 4);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(50)), Lt(milliseconds(1500))));
    EXPECT_THAT(log.plainMessages(), Contains("after send pselect(). ret :0"));
    EXPECT_THAT(log.plainMessages(),
                Contains("[ERROR] timeout elapsed. bytes written in previous send()'s: 0"));
    EXPECT_FALSE(log.contains("before send(). "));
}

TEST_F(SocketWrapperTest, ShortSendPassesForDone)
{
    fcntl(fd(), F_SETFL, O_NONBLOCK);
    const std::size_t size = 50'000'000;
    EXPECT_EQ(send(Bytes(size)), static_cast<int>(size));
    EXPECT_TRUE(log.contains("data length required has not been sent yet;"));
    EXPECT_TRUE(log.contains("total needed: 50000000; total sent: "));
    EXPECT_FALSE(log.contains("total sent: 50000000"));
}

TEST_F(SocketWrapperTest, SendOnBadDescriptor)
{
    const unsigned char byte = 1;
    const int closed = fcntl(fd(), F_DUPFD, 700);
    close(closed);
    EXPECT_EQ(SocketWrapper::send(closed, &byte, 1, -1, -1, &error), -2);
    EXPECT_EQ(error, EBADF);
    EXPECT_THAT(log.plainMessages(),
                Contains(text("[ERROR] failed to pselect. errno: %d. errno string: ", EBADF) +
                         strerror(EBADF)));
    EXPECT_EQ(SocketWrapper::send(closed, &byte, 1, -1, -1, nullptr), -2);
}

TEST_F(SocketWrapperTest, DescriptorsAboveTheRoomOfASetWork)
{
    const Descriptor high(fcntl(fd(), F_DUPFD, 1500));
    ASSERT_GE(high.get(), 1500) << "too few descriptors are allowed";
    const unsigned char byte = 1;
    EXPECT_EQ(SocketWrapper::send(high.get(), &byte, 1, 1, 0, &error), 1);
}

TEST_F(SocketWrapperTest, SendOnAnEndedConnection)
{
    resetConnection(connection.peer);
    EXPECT_EQ(send({1}), -2) << "and no SIGPIPE ends the process";
    EXPECT_EQ(send({1}), -2);
    EXPECT_EQ(error, -1);
    EXPECT_TRUE(isOpen(fd()));
    EXPECT_TRUE(log.contains("after send(). ret: -1"));
    EXPECT_TRUE(log.contains(text("[ERROR] failed to send. errno: %d. errno string: ", EPIPE) +
                             strerror(EPIPE)));
    EXPECT_FALSE(log.contains("connection has been severed"));
}

TEST_F(SocketWrapperTest, SendOfNothingEndsTheConnection)
{
    const int number = fd();
    {
        const SendResult nothing(0);
        EXPECT_EQ(send({1}), -3);
    }
    EXPECT_FALSE(isOpen(number));
    EXPECT_TRUE(log.contains("[ERROR] peer has/was disconnected"));
    EXPECT_TRUE(log.contains(text("closing socket: %d", number)));
    EXPECT_EQ(receiveAll(connection.peer.get(), 1), Bytes());
}

TEST_F(SocketWrapperTest, CancelEndsTheWaitForASend)
{
    fill(fd());
    std::thread canceller = cancelLater();
    EXPECT_EQ(send({1}), -2);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(700)));
    EXPECT_EQ(error, ECANCELED);
}

TEST_F(SocketWrapperTest, WhatCanBeSentAtOnceIsSentAfterACancel)
{
    token.request();
    EXPECT_EQ(send({1}), 1);
    EXPECT_EQ(receiveAll(connection.peer.get(), 1), Bytes{1});
}

// ---- receive ------------------------------------------------------------------------

TEST_F(SocketWrapperTest, Receives)
{
    sendAll(connection.peer.get(), {1, 2, 3});
    EXPECT_EQ(receive(3, true), 3);
    EXPECT_EQ(received(), (Bytes{1, 2, 3}));
    EXPECT_THAT(log.plainMessages(), ElementsAre(text("Monitoring fd:%d for reading", fd()),
                                                 "polling timeout: none", "after recv:. 3"));
    EXPECT_THAT(log.messages().front(), HasSubstr("METHOD START"));
    EXPECT_THAT(log.messages().back(), HasSubstr("METHOD END ::::::::::::::: 3"));
}

TEST_F(SocketWrapperTest, TheLogIsSwitchedDuringAWait)
{
    setenv("ENABLE_SL_LOG", "0", 1);
    std::thread sender([this] {
        std::this_thread::sleep_for(milliseconds(50));
        setenv("ENABLE_SL_LOG", "1", 1);
        sendAll(connection.peer.get(), {1, 2, 3});
    });
    EXPECT_EQ(receive(3, true), 3);
    sender.join();
    EXPECT_THAT(log.plainMessages(), ElementsAre("after recv:. 3"));
}

TEST_F(SocketWrapperTest, ReceiveGivesWhatIsThere)
{
    sendAll(connection.peer.get(), {1, 2, 3});
    EXPECT_EQ(receive(10, false), 3);
    EXPECT_EQ(received(), (Bytes{1, 2, 3}));
}

TEST_F(SocketWrapperTest, ReceiveLeavesTheRest)
{
    sendAll(connection.peer.get(), {1, 2, 3});
    EXPECT_EQ(receive(2, true), 2);
    EXPECT_EQ(receive(2, false), 1);
    EXPECT_EQ(received(), Bytes{3});
}

TEST_F(SocketWrapperTest, ReceiveWaitsForAllPieces)
{
    std::thread sender([this] {
        for (unsigned char i = 0; i < 4; i++) {
            std::this_thread::sleep_for(milliseconds(30));
            sendAll(connection.peer.get(), {i});
        }
    });
    EXPECT_EQ(receive(4, true), 4);
    EXPECT_EQ(received(), (Bytes{0, 1, 2, 3}));
    sender.join();
}

TEST_F(SocketWrapperTest, ReceiveRefusesBadArguments)
{
    unsigned char byte = 1;
    unsigned long one = 1;
    unsigned long none = 0;
    sendAll(connection.peer.get(), {5});
    EXPECT_EQ(SocketWrapper::receive(-1, &byte, &one, true, -1, -1, &error), -1);
    EXPECT_EQ(SocketWrapper::receive(fd(), nullptr, &one, true, -1, -1, &error), -1);
    EXPECT_EQ(SocketWrapper::receive(fd(), &byte, nullptr, true, -1, -1, &error), -1);
    EXPECT_EQ(SocketWrapper::receive(fd(), &byte, &none, true, -1, -1, nullptr), -1);
    EXPECT_EQ(log.count("Invalid parameter passed"), 4);
    EXPECT_FALSE(log.contains("Monitoring"));
    EXPECT_EQ(one, 1U);
    EXPECT_EQ(receive(1, true), 1) << "the socket was not touched";
}

TEST_F(SocketWrapperTest, ReceiveTimesOut)
{
    EXPECT_EQ(receive(4, true, 0, 50000), -2);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(50)), Lt(milliseconds(1500))));
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(error, -1);
    EXPECT_TRUE(isOpen(fd()));
    EXPECT_THAT(log.plainMessages(), Contains("polling timeout: 0 seconds  50000 microseconds"));
    EXPECT_THAT(log.plainMessages(), Contains("after recv:. -1"));
    EXPECT_THAT(log.plainMessages(),
                Contains(text("[ERROR] failed to recv. errno: %d. errno string: ", EAGAIN) +
                         strerror(EAGAIN)));
}

TEST_F(SocketWrapperTest, TimeOutInTheMiddleGivesWhatCame)
{
    sendAll(connection.peer.get(), {1, 2});
    EXPECT_EQ(receive(4, true, 0, 50000), 2);
    EXPECT_EQ(received(), (Bytes{1, 2}));
}

struct Limit {
    long seconds, microseconds;
    bool isLimit;
};

TEST_F(SocketWrapperTest, ReceiveLimitsTheSocket)
{
    for (const Limit& limit : {Limit{15, 0, true}, Limit{0, 2500, true}, Limit{15, -1, false},
                               Limit{-1, 0, false}, Limit{-1, -1, false}}) {
        sendAll(connection.peer.get(), {1});
        EXPECT_EQ(receive(1, true, limit.seconds, limit.microseconds), 1);
        timeval set = {-1, -1};
        socklen_t size = sizeof set;
        getsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &set, &size);
        EXPECT_EQ(set.tv_sec, limit.isLimit ? limit.seconds : 0);
        EXPECT_NEAR(static_cast<double>(set.tv_usec),
                    limit.isLimit ? static_cast<double>(limit.microseconds) : 0.0, 10000.0);
    }
    EXPECT_EQ(log.count("polling timeout: none"), 3);
}

TEST_F(SocketWrapperTest, ReceiveFromAPeerThatHasClosed)
{
    const int number = fd();
    connection.peer.reset();
    EXPECT_EQ(receive(4, true), -3);
    EXPECT_FALSE(isOpen(number));
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(error, 77);
    EXPECT_THAT(log.plainMessages(), Contains("[ERROR] peer has/was disconnected"));
    EXPECT_THAT(log.plainMessages(), Contains(text("closing socket: %d", number)));
    EXPECT_THAT(log.messages().back(), HasSubstr("METHOD END ::::::::::::::: -3"));
}

TEST_F(SocketWrapperTest, EndInTheMiddleGivesWhatCame)
{
    sendAll(connection.peer.get(), {1, 2, 3});
    connection.peer.reset();
    EXPECT_EQ(receive(4, true), 3);
    EXPECT_TRUE(isOpen(fd()));
    EXPECT_EQ(receive(4, true), -3);
}

TEST_F(SocketWrapperTest, ResetIsAFailure)
{
    resetConnection(connection.peer);
    EXPECT_EQ(receive(4, true), -2);
    EXPECT_EQ(error, -1);
    EXPECT_TRUE(isOpen(fd()));
    EXPECT_TRUE(log.contains(text("[ERROR] failed to recv. errno: %d. errno string: ", ECONNRESET) +
                             strerror(ECONNRESET)));
    EXPECT_FALSE(log.contains("connection has been severed"));
    EXPECT_EQ(receive(4, true), -3) << "then it is over";
}

TEST_F(SocketWrapperTest, FailuresNeedNoErrorVariable)
{
    unsigned char byte = 0;
    unsigned long one = 1;
    EXPECT_EQ(SocketWrapper::receive(fd(), &byte, &one, true, 0, 1000, nullptr), -2);
}

TEST_F(SocketWrapperTest, ALimitOfZeroIsNone)
{
    std::thread sender([this] {
        std::this_thread::sleep_for(milliseconds(150));
        sendAll(connection.peer.get(), {1, 2});
    });
    EXPECT_EQ(receive(2, true, 0, 0), 2);
    sender.join();
    EXPECT_TRUE(log.contains("polling timeout: 0 seconds  0 microseconds"));
}

TEST_F(SocketWrapperTest, CancelEndsTheWaitForBytes)
{
    std::thread canceller = cancelLater();
    EXPECT_EQ(receive(4, true), -2);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(150)), Lt(milliseconds(350))));
    EXPECT_TRUE(isOpen(fd()));
}

TEST_F(SocketWrapperTest, CancelInTheMiddleGivesWhatCame)
{
    sendAll(connection.peer.get(), {1, 2});
    std::thread canceller = cancelLater();
    EXPECT_EQ(receive(4, true), 2);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(350)));
}

TEST_F(SocketWrapperTest, CancelEndsATimedWaitToo)
{
    token.request();
    EXPECT_EQ(receive(4, true, 15, 0), -2);
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(700)));
}

TEST_F(SocketWrapperTest, WhatIsThereComesAfterACancel)
{
    sendAll(connection.peer.get(), {1, 2});
    token.request();
    EXPECT_EQ(receive(2, true), 2);
}

TEST_F(SocketWrapperTest, DrainingIgnoresTheCancelAndGivesUpOnSilence)
{
    token.request();
    const CancelToken::Draining draining(token, std::chrono::seconds(30));
    EXPECT_EQ(receive(4, true), -2);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(1900)), Lt(milliseconds(4000))));
}

TEST_F(SocketWrapperTest, DrainingWaitsForASlowPeer)
{
    const CancelToken::Draining draining(token, std::chrono::seconds(30));
    std::thread sender([this] {
        for (unsigned char i = 0; i < 3; i++) {
            std::this_thread::sleep_for(milliseconds(1200));
            sendAll(connection.peer.get(), {i});
        }
    });
    EXPECT_EQ(receive(3, true), 3);
    sender.join();
}

TEST_F(SocketWrapperTest, DrainingEndsAtItsLimit)
{
    const CancelToken::Draining draining(token, milliseconds(200));
    EXPECT_EQ(receive(4, true), -2);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(200)), Lt(milliseconds(700))));
}

TEST_F(SocketWrapperTest, SignalsDoNotDisturb)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval often = {{0, 5000}, {0, 5000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    std::thread sender([this] {
        std::this_thread::sleep_for(milliseconds(100));
        sendAll(connection.peer.get(), {1, 2});
    });
    EXPECT_EQ(receive(2, true), 2);
    sender.join();
    fill(fd());
    EXPECT_EQ(send({1}, 0, 100000), 1);
    EXPECT_TRUE(log.contains("timeout elapsed"));
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

// ---- close --------------------------------------------------------------------------

TEST_F(SocketWrapperTest, Closes)
{
    const int number = fcntl(fd(), F_DUPFD, 700);
    EXPECT_EQ(SocketWrapper::close(number), 0);
    EXPECT_FALSE(isOpen(number));
    EXPECT_EQ(SocketWrapper::close(number), -1);
    EXPECT_EQ(log.count(text("closing socket: %d", number)), 2);
    EXPECT_EQ(log.count("METHOD START"), 2);
    EXPECT_EQ(log.count("METHOD END ::::::::::::::: 0"), 1);
    EXPECT_EQ(log.count("METHOD END ::::::::::::::: -1"), 1);
}

}  // namespace
