// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetComm.h"

#include "Allocations.h"
#include "CResponse.h"
#include "Calls.h"
#include "CancelToken.h"
#include "FakeScanner.h"
#include "ICommand.h"
#include "ImageData.h"
#include "LogCapture.h"
#include "ScanRecord.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <random>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

using std::chrono::milliseconds;
using testing::AllOf;
using testing::Ge;
using testing::IsSupersetOf;
using testing::Lt;

namespace {

constexpr char kName[] = "Quillon/Model X/libnet:000800000000:127.0.0.1:1234:3260";

// Gives tests a look inside.
class Comm : public NetComm {
public:
    using HBN3::iPtr;
    using HBN3::iSize;
    using NetComm::bConnected;
    using NetComm::bTick;
    using NetComm::cIp;
    using NetComm::cMac;
    using NetComm::iGlobalSize;
    using NetComm::iScanSock;
    using NetComm::pDeviceName;
    using NetComm::pGlobalBuff;
    using NetComm::ScanData;
    using NetComm::standardTimes;
};

int option(int fd, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(fd, level, name, &value, &size);
    return value;
}

class NetCommTest : public testing::Test {
protected:
    NetCommTest()
    {
        Comm::standardTimes.tickle = milliseconds(60);
        Comm::standardTimes.connect = milliseconds(200);
        renew();
    }
    ~NetCommTest() override
    {
        Comm::standardTimes = NetTimes();
        comm.reset();
    }
    // A fresh object, bound to the scanner, for times that have changed.
    void renew()
    {
        comm = std::make_unique<Comm>();
        comm->watchCancel(&token);
        comm->setDevice(kName);
        log.clear();
    }

    int open(const Bytes& greeting = frameHeader(0))
    {
        scanner.greet(greeting);
        const int result = comm->openDevice();
        scanner.greeting();
        return result;
    }
    std::thread cancelLater()
    {
        return std::thread([this] {
            std::this_thread::sleep_for(milliseconds(150));
            token.request();
        });
    }
    bool logged(const std::string& line) const
    {
        const std::vector<std::string> all = log.plainMessages();
        return std::find(all.begin(), all.end(), line) != all.end();
    }
    int logCount(const std::string& line) const
    {
        const std::vector<std::string> all = log.plainMessages();
        return static_cast<int>(std::count(all.begin(), all.end(), line));
    }

    LogCapture log;
    CancelToken token;
    FakeScanner scanner;
    std::unique_ptr<Comm> comm;
    Stopwatch watch;
};

// ---- names --------------------------------------------------------------------------

TEST_F(NetCommTest, SetDevice)
{
    Comm fresh;
    EXPECT_EQ(fresh.setDevice("Oxle/Two/libnet:100070482C6A:10.0.0.7:4321:abcd"), 0);
    EXPECT_STREQ(fresh.cMac, "100070482C6A");
    EXPECT_STREQ(fresh.cIp, "10.0.0.7");
    EXPECT_EQ(fresh.getVid(), 0x4321);
    EXPECT_EQ(fresh.getPid(), 0xABCD);
    EXPECT_TRUE(logged("device name: Oxle/Two/libnet:100070482C6A:10.0.0.7:4321:abcd"));
    EXPECT_TRUE(logged("MAC address: 100070482C6A; IP address: 10.0.0.7; vid: 4321; pid: ABCD"));
}

TEST_F(NetCommTest, FieldsAreWords)
{
    Comm fresh;
    EXPECT_EQ(fresh.setDevice("Oxle/Two/libnet: 10 20: 10.0.0.7 x: 4321 9: abcd"), 0);
    EXPECT_STREQ(fresh.cMac, "10");
    EXPECT_STREQ(fresh.cIp, "10.0.0.7");
    EXPECT_EQ(fresh.getVid(), 0x4321);
    EXPECT_EQ(fresh.getPid(), 0xABCD);
}

TEST_F(NetCommTest, NoName)
{
    EXPECT_EQ(comm->setDevice(nullptr), 2);
    EXPECT_STREQ(comm->cIp, "127.0.0.1");
}

TEST_F(NetCommTest, NameWithoutAnAddress)
{
    for (const char* name : {"", "scanner", "a:b:c:d:e"}) {
        EXPECT_EQ(comm->setDevice(name), 0);
        EXPECT_STREQ(comm->cIp, "127.0.0.1") << "the fields stay";
        EXPECT_EQ(comm->getVid(), 0x1234);
        EXPECT_EQ(comm->pDeviceName, name);
    }
}

TEST_F(NetCommTest, ShortNameHasNoAddress)
{
    EXPECT_EQ(comm->setDevice("Oxle/Two/libnet:100070482C6A"), 0);
    EXPECT_STREQ(comm->cMac, "100070482C6A");
    EXPECT_STREQ(comm->cIp, "");
    EXPECT_EQ(comm->openDevice(), 3);
    for (const char* name : {"libnet", "libnet:", ":::libnet"}) {
        EXPECT_EQ(comm->setDevice(name), 0);
        EXPECT_EQ(comm->openDevice(), 3) << name;
    }
}

TEST_F(NetCommTest, LongFieldsAreCut)
{
    const std::string mac(100, 'A');
    const std::string ip(100, '1');
    EXPECT_EQ(comm->setDevice(("a/b/libnet:" + mac + ":" + ip + ":1:2").c_str()), 0);
    EXPECT_EQ(std::string(comm->cMac), mac.substr(0, 31));
    EXPECT_EQ(std::string(comm->cIp), ip.substr(0, 31));
    EXPECT_EQ(comm->getVid(), 1);
    EXPECT_EQ(comm->getPid(), 2);
    EXPECT_EQ(comm->setDevice(("libnet:" + std::string(100000, 'A')).c_str()), 0);
}

TEST_F(NetCommTest, VendorAndProductName)
{
    char text[20] = "?";
    EXPECT_EQ(comm->getVendorName(text, sizeof text), 0);
    EXPECT_STREQ(text, "Quillon");
    EXPECT_EQ(comm->getProductName(text, sizeof text), 0);
    EXPECT_STREQ(text, "Model X");
    EXPECT_EQ(comm->getProductName(text, 4), 0);
    EXPECT_STREQ(text, "Mod");
    EXPECT_EQ(comm->getProductName(text, 0), 2);
    EXPECT_EQ(comm->getVendorName(nullptr, 5), 2);
    for (const char* name : {"scanner", "a/b", "libnet:1", "a/libnet:1:2"}) {
        Comm fresh;
        fresh.setDevice(name);
        EXPECT_EQ(fresh.getProductName(text, sizeof text), 0);
        EXPECT_STREQ(text, "Unknown Scanner") << name;
        EXPECT_EQ(fresh.getVendorName(text, sizeof text), 0);
        EXPECT_STREQ(text, "Unknown Vendor") << name;
    }
}

// ---- opening ------------------------------------------------------------------------

TEST_F(NetCommTest, Opens)
{
    scanner.greet();
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_EQ(scanner.greeting(), (Bytes{'H', 'B', 'N', '3', 0, 0, 0, 0, 2}));
    EXPECT_TRUE(comm->bConnected);
    EXPECT_TRUE(comm->bTick);
    for (const char* line : {"IP selected is 127.0.0.1 strlen is 9", "Now connected to the scanner",
                             "Not yet tickled; creating intro message...", "polling timeout: none",
                             "polling timeout: 0 seconds  60000 microseconds", "after recv:. 9",
                             "Tickle data arrived."}) {
        EXPECT_TRUE(logged(line)) << line;
    }
    EXPECT_TRUE(log.contains("METHOD END ::::::::::::::: this->bTick: 1"));
    EXPECT_FALSE(log.contains("[WARN]"));
    EXPECT_FALSE(log.contains("[ERROR]"));
}

TEST_F(NetCommTest, OpenTwice)
{
    EXPECT_EQ(open(), 0);
    const int fd = comm->iScanSock;
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_EQ(comm->iScanSock, fd);
    EXPECT_TRUE(logged("[WARN] Already Connected"));
    EXPECT_TRUE(comm->isTickled());
    EXPECT_TRUE(logged("Already tickled"));
}

TEST_F(NetCommTest, OpenWithoutAddress)
{
    Comm fresh;
    EXPECT_EQ(fresh.openDevice(), 3);
    EXPECT_TRUE(logged("IP selected is  strlen is 0"));
    EXPECT_TRUE(logged("[ERROR] IP is empty"));
}

TEST_F(NetCommTest, OpenWithBadAddress)
{
    for (const std::string ip : {"1.2.3", "scanner.local", "::1", "1.2.3.256", "127.0.0.1x"}) {
        comm->setDevice(("a/b/libnet:0-" + ip + ":1:2").c_str());
        comm->setDevice(("a/b/libnet:0:" + (ip == "::1" ? "--1" : ip) + ":1:2").c_str());
        EXPECT_EQ(comm->openDevice(), 3);
        EXPECT_TRUE(logged("[ERROR] Invalid IP: " + (ip == "::1" ? "--1" : ip)));
    }
}

TEST_F(NetCommTest, NoSocket)
{
    const NoSockets noSockets;
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_TRUE(logged(std::string("[ERROR] Failed to created socket: ") + strerror(EMFILE)));
}

TEST_F(NetCommTest, ConnectionRefused)
{
    const int before = openDescriptors();
    scanner.listener.reset();
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_EQ(logCount("[WARN] Connect attempt failed."), 2);
    EXPECT_EQ(logCount("before usleep(). 10000 ms"), 1);
    EXPECT_EQ(logCount("after usleep(). "), 1);
    EXPECT_EQ(logCount("Attempting to connect again"), 1);
    EXPECT_TRUE(logged("[ERROR] Exhausted connect retries"));
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(10)), Lt(milliseconds(180))));
    EXPECT_EQ(openDescriptors(), before - 1);
}

TEST_F(NetCommTest, SecondAttemptConnects)
{
    scanner.listener.reset();
    std::unique_ptr<FakeScanner> late;
    const DuringSleep appear([&late] {
        late = std::make_unique<FakeScanner>();
        late->greet();
    });
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_EQ(logCount("[WARN] Connect attempt failed."), 1);
    EXPECT_EQ(logCount("Attempting to connect again"), 1);
}

TEST_F(NetCommTest, SilentHost)
{
    playDead(scanner.listener.get());
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(200)), Lt(milliseconds(1500))));
    EXPECT_EQ(logCount("[WARN] Connect attempt failed."), 2);
    EXPECT_TRUE(logged("[ERROR] Exhausted connect retries"));
}

TEST_F(NetCommTest, SilentHostForFifteenSeconds)
{
    Comm::standardTimes = NetTimes();
    renew();
    playDead(scanner.listener.get());
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(14500)), Lt(milliseconds(17000))));
}

TEST_F(NetCommTest, CancelEndsTheConnecting)
{
    Comm::standardTimes = NetTimes();
    renew();
    playDead(scanner.listener.get());
    std::thread canceller = cancelLater();
    EXPECT_EQ(comm->openDevice(), 1);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(700)));
}

// Nothing is said, or waited for, over a connection that is cancelled already.
TEST_F(NetCommTest, CancelledConnectionIsNotTickled)
{
    token.request();
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_EQ(logCount("[WARN] tickle data not received. retries remaining: 3"), 0);
    EXPECT_FALSE(logged("[ERROR] Unable to send intro message to scanner"));
    EXPECT_FALSE(logged("data to be sent"));
    EXPECT_TRUE(logged("[ERROR] Not tickled. Closing device"));
}

TEST_F(NetCommTest, GreetingIsNotAnswered)
{
    const int before = openDescriptors();
    EXPECT_EQ(open({}), 1);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(180)), Lt(milliseconds(1500))));
    for (const char* line :
         {"[WARN] tickle data not received. retries remaining: 3",
          "[WARN] tickle data not received. retries remaining: 2",
          "[WARN] tickle data not received. retries remaining: 1",
          "[ERROR] Not tickled. Closing device", "disallowing read/write on socket"}) {
        EXPECT_EQ(logCount(line), 1) << line;
    }
    EXPECT_TRUE(log.contains("METHOD END ::::::::::::::: this->bTick: 0"));
    EXPECT_FALSE(comm->bConnected);
    EXPECT_FALSE(comm->bTick);
    EXPECT_EQ(openDescriptors(), before + 1) << "only the scanner's own end is left";
}

TEST_F(NetCommTest, StandardTimes)
{
    const NetTimes times;
    EXPECT_EQ(times.tickle, milliseconds(15000));
    EXPECT_EQ(times.connect, milliseconds(15000));
    EXPECT_EQ(times.discovery, milliseconds(10000));
    EXPECT_EQ(times.vanished, std::chrono::seconds(60));
}

TEST_F(NetCommTest, WrongGreetings)
{
    Bytes wrong = frameHeader(0);
    wrong[3] = '4';
    EXPECT_EQ(open(wrong + wrong + frameHeader(5)), 0) << "the third one counts";
    EXPECT_EQ(logCount("[WARN] incorrect header;"), 2);
    EXPECT_TRUE(logged("[WARN] tickle data not received. retries remaining: 2"));
    EXPECT_FALSE(logged("[WARN] tickle data not received. retries remaining: 1"));
    EXPECT_TRUE(comm->bTick);
}

TEST_F(NetCommTest, ShortGreetingIsNone)
{
    EXPECT_EQ(open({'H', 'B', 'N', '3', 0, 0, 0, 0}), 1);
    EXPECT_FALSE(logged("[WARN] incorrect header;"));
}

TEST_F(NetCommTest, ScannerHangsUpInsteadOfGreeting)
{
    scanner.greet({});
    std::thread hangUp([this] {
        scanner.greeting();
        scanner.peer.reset();
    });
    EXPECT_EQ(comm->openDevice(), 1);
    hangUp.join();
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_TRUE(logged("[ERROR] Not tickled. Closing device"));
    EXPECT_FALSE(logged("disallowing read/write on socket")) << "there is none any more";
}

TEST_F(NetCommTest, GreetingCannotBeSent)
{
    const SendResult failed(-1);
    scanner.greet({});
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_TRUE(logged("[ERROR] Unable to send intro message to scanner"));
    EXPECT_FALSE(log.contains("retries remaining"));
}

TEST_F(NetCommTest, ConnectionIsLostBeforeTheGreeting)
{
    const SendResult lost(0);
    scanner.greet({});
    EXPECT_EQ(comm->openDevice(), 1);
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_FALSE(comm->bConnected);
    EXPECT_FALSE(logged("disallowing read/write on socket")) << "there is none any more";
}

TEST_F(NetCommTest, GreetingWithoutMemory)
{
    scanner.greet({});
    int result = 0;
    {
        const Allocations none(0);
        result = comm->openDevice();
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_TRUE(logged("failed in creating intro message"));
}

// ---- closing ------------------------------------------------------------------------

TEST_F(NetCommTest, CloseShutsDownAndReclaimsLater)
{
    ASSERT_EQ(open(), 0);
    const int fd = comm->iScanSock;
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_TRUE(logged("disallowing read/write on socket"));
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_FALSE(comm->bConnected);
    EXPECT_FALSE(comm->bTick);
    EXPECT_TRUE(isOpen(fd));
    EXPECT_TRUE(scanner.isEnded());
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_EQ(logCount("disallowing read/write on socket"), 1);
    comm.reset();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(NetCommTest, RoundsLeaveNoDescriptor)
{
    const int before = openDescriptors();
    for (int i = 0; i < 100; i++) {
        ASSERT_EQ(open(), 0);
        EXPECT_EQ(comm->closeDevice(), 0);
        scanner.peer.reset();
    }
    EXPECT_LE(openDescriptors(), before + 1);
    ASSERT_EQ(open(), 0);
    comm.reset();
    EXPECT_TRUE(scanner.isEnded()) << "an open device is closed with its object";
    scanner.peer.reset();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NetCommTest, WatchesForVanishedPeers)
{
    ASSERT_EQ(open(), 0);
    const int fd = comm->iScanSock;
    EXPECT_EQ(option(fd, SOL_SOCKET, SO_KEEPALIVE), 1);
    const int idle = option(fd, IPPROTO_TCP, TCP_KEEPIDLE);
    const int interval = option(fd, IPPROTO_TCP, TCP_KEEPINTVL);
    const int count = option(fd, IPPROTO_TCP, TCP_KEEPCNT);
    EXPECT_THAT(idle + interval * count, AllOf(Ge(45), testing::Le(60)));
    EXPECT_EQ(option(fd, IPPROTO_TCP, TCP_USER_TIMEOUT), 60000);
}

TEST_F(NetCommTest, VanishedPeerEndsTheWait)
{
    Comm::standardTimes.probe = std::chrono::seconds(1);
    Comm::standardTimes.vanished = std::chrono::seconds(2);
    renew();
    ASSERT_EQ(open(), 0);
    playDead(scanner.peer.get());
    unsigned char buffer[100];
    int size = sizeof buffer;
    EXPECT_EQ(comm->Read(buffer, &size), 15);
    EXPECT_EQ(size, 0);
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(1000)), Lt(milliseconds(8000))));
}

// ---- reading and writing ------------------------------------------------------------

class OpenNetCommTest : public NetCommTest {
protected:
    OpenNetCommTest()
    {
        EXPECT_EQ(open(), 0);
        log.clear();
    }

    int read()
    {
        size = 12345;
        return comm->Read(buffer.data(), &size);
    }
    Bytes content() const { return Bytes(buffer.begin(), buffer.begin() + size); }

    int readMessage()
    {
        unsigned char* bytes = nullptr;
        const int result = comm->readMessage(&bytes, &size);
        message.assign(bytes, bytes + size);
        free(bytes);
        return result;
    }

    Bytes buffer = Bytes(80000, 0xEE);
    int size = 12345;
    Bytes message;
};

TEST_F(NetCommTest, ReadAndWriteNeedAConnection)
{
    unsigned char bytes[9] = {};
    int size = 9;
    for (const auto& [connected, tickled] :
         {std::pair(false, false), {true, false}, {false, true}}) {
        comm->bConnected = connected;
        comm->bTick = tickled;
        EXPECT_EQ(comm->Write(bytes, 1), 4);
        EXPECT_EQ(comm->Read(bytes, &size), 4);
    }
    comm->bConnected = comm->bTick = false;
    EXPECT_EQ(logCount("[WARN] No connection to device"), 3);
    EXPECT_EQ(logCount("device is closed, open first"), 3);
}

TEST_F(OpenNetCommTest, Writes)
{
    unsigned char bytes[] = {1, 2, 3};
    EXPECT_EQ(comm->Write(bytes, 3), 0);
    EXPECT_EQ(scanner.received(3), (Bytes{1, 2, 3})) << "without a frame";
    EXPECT_TRUE(logged("before SocketWrapper::send(). "));
    EXPECT_TRUE(logged("polling timeout: none"));
    EXPECT_TRUE(logged("after SocketWrapper::send(). ret: 3"));
}

// More than the sockets hold: the write waits until the scanner has taken it.
TEST_F(OpenNetCommTest, WritesAllOfALot)
{
    Bytes bytes = ramp(16 << 20);
    std::future<Bytes> received =
        std::async(std::launch::async, [&] { return scanner.received(bytes.size()); });
    EXPECT_EQ(comm->Write(bytes.data(), static_cast<int>(bytes.size())), 0);
    EXPECT_TRUE(received.get() == bytes);
}

TEST_F(OpenNetCommTest, WriteFails)
{
    unsigned char byte = 1;
    EXPECT_EQ(comm->Write(&byte, 0), 14);
    EXPECT_EQ(comm->Write(&byte, -1), 14);
    const SendResult failed(-1);
    EXPECT_EQ(comm->Write(&byte, 1), 14);
    EXPECT_TRUE(logged("after SocketWrapper::send(). ret: -2"));
    EXPECT_TRUE(comm->bConnected);
}

TEST_F(OpenNetCommTest, DescriptorClosedByASendIsForgotten)
{
    unsigned char byte = 1;
    {
        const SendResult lost(0);
        EXPECT_EQ(comm->Write(&byte, 1), 14);
    }
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_EQ(comm->Write(&byte, 1), 4);
}

TEST_F(OpenNetCommTest, ReadsAFrameWithItsHeader)
{
    scanner.send(frame({1, 2, 3}, 7) + frame({4}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(content(), frame({1, 2, 3}, 7));
    EXPECT_THAT(
        log.plainMessages(),
        IsSupersetOf({"before readMessage. ", "size of data part: 3",
                      "status:3; dataSize: 3; errno:0", "after readMessage. ret: 0",
                      "message size: 12", "header received", "checking header for read data",
                      "ret greater than 9. ret: 12, size: 12345",
                      "ret greater than 9. ret: 12, size: 12", "size: 12"}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(content(), frame({4}));
}

TEST_F(OpenNetCommTest, TheLogIsSwitchedDuringAWait)
{
    setenv("ENABLE_SL_LOG", "0", 1);
    std::thread sender([this] {
        std::this_thread::sleep_for(milliseconds(50));
        setenv("ENABLE_SL_LOG", "1", 1);
        scanner.send(frame({1, 2, 3}));
    });
    EXPECT_EQ(read(), 0);
    sender.join();
    EXPECT_FALSE(logged("before readMessage. "));
    EXPECT_TRUE(logged("size of data part: 3"));
    EXPECT_TRUE(logged("size: 12"));
}

TEST_F(OpenNetCommTest, DumpsTheHeader)
{
    setenv("ENABLE_SL_DUMP", "1", 1);
    scanner.send(frame({1, 2, 3}));
    read();
    unsetenv("ENABLE_SL_DUMP");
    EXPECT_TRUE(logged("48 42 4e 33 00 00 00 00 03 "));
}

TEST_F(OpenNetCommTest, ReadsAFrameInAnyPieces)
{
    const Bytes all = frame({1, 2, 3, 4, 5});
    for (std::size_t cut = 1; cut < all.size(); cut++) {
        std::thread sender([this, &all, cut] {
            const auto middle = all.begin() + static_cast<std::ptrdiff_t>(cut);
            scanner.send(Bytes(all.begin(), middle));
            std::this_thread::sleep_for(milliseconds(10));
            scanner.send(Bytes(middle, all.end()));
        });
        EXPECT_EQ(read(), 0) << cut;
        EXPECT_EQ(content(), all);
        sender.join();
    }
}

TEST_F(OpenNetCommTest, ReadsAnEmptyFrame)
{
    scanner.send(frameHeader(0));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(logged("size is exactly 9 !!!!"));
    EXPECT_TRUE(logged("size: 0"));
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 10), frameHeader(0) + Bytes{0xEE});
}

TEST_F(OpenNetCommTest, EmptyFrameBringsWhatIsHeld)
{
    const Bytes held = ramp(300);
    std::copy(held.begin(), held.end(), comm->pGlobalBuff);
    comm->iGlobalSize = 300;
    scanner.send(frameHeader(0));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(size, 300);
    EXPECT_EQ(comm->iGlobalSize, 0);
    EXPECT_EQ(std::count(comm->pGlobalBuff, comm->pGlobalBuff + 300, 0), 300);
    Bytes expected = frameHeader(0) + held;
    expected[8] = 300 % 256;
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 309), expected);
}

TEST_F(OpenNetCommTest, LargestFrame)
{
    for (const int payload : {40000, 79991}) {
        std::thread sender([this, payload] { scanner.send(frame(ramp(payload))); });
        EXPECT_EQ(read(), 0);
        sender.join();
        EXPECT_EQ(content(), frame(ramp(payload)));
    }
}

TEST_F(OpenNetCommTest, TooLongFrames)
{
    for (const unsigned length : {79992U, 80001U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF6U,
                                  0xFFFFFFF7U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        scanner.send(frameHeader(length));
        EXPECT_EQ(read(), 15) << length;
        EXPECT_EQ(size, 0);
    }
    EXPECT_EQ(logCount("[ERROR] reading data from device failed"), 8);
    EXPECT_EQ(logCount("[WARN] data is not long enough to get size; ignoring"), 1);
    EXPECT_TRUE(logged("size of data part: -1"));
    scanner.send(frame({1}));
    EXPECT_EQ(read(), 0);
}

TEST_F(OpenNetCommTest, ForeignBytes)
{
    scanner.send(ramp(9) + frame({1, 2}));
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("[WARN] not HBN3 header; ignoring"));
    EXPECT_TRUE(logged("after readMessage. ret: 1"));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(content(), frame({1, 2}));
}

TEST_F(OpenNetCommTest, ReadMessage)
{
    scanner.send(frame({1, 2, 3}) + frameHeader(0, 4) + ramp(9));
    EXPECT_EQ(readMessage(), 0);
    EXPECT_EQ(message, frame({1, 2, 3}));
    EXPECT_EQ(readMessage(), 0);
    EXPECT_EQ(message, frameHeader(0, 4));
    EXPECT_EQ(readMessage(), 1);
    EXPECT_EQ(message, Bytes());
}

TEST_F(OpenNetCommTest, MessageWithoutMemoryWaits)
{
    scanner.send(frame({1, 2, 3}) + frame({4}));
    int result = 0;
    {
        const LogCapture::Pause quiet;
        const Allocations none(0);
        result = readMessage();
    }
    EXPECT_EQ(result, 15);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(readMessage(), 0);
    EXPECT_EQ(message, frame({1, 2, 3}));
    EXPECT_EQ(readMessage(), 0);
    EXPECT_EQ(message, frame({4}));
}

TEST_F(OpenNetCommTest, ConnectionEndsBetweenFrames)
{
    scanner.peer.reset();
    const int fd = comm->iScanSock;
    EXPECT_EQ(read(), 15);
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(logged("[ERROR] connection to scanner has been severed"));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(comm->iScanSock, -1);
    EXPECT_EQ(read(), 4);
    // The number may have a new owner, who must not be disturbed.
    const Descriptor other(dup(0));
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_FALSE(logged("disallowing read/write on socket"));
    EXPECT_TRUE(isOpen(other.get()));
}

TEST_F(OpenNetCommTest, ConnectionEndsInAHeader)
{
    scanner.send({'H', 'B', 'N'});
    scanner.peer.reset();
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("[WARN] less bytes have been read. needed: 9, received: 3"));
    EXPECT_FALSE(logged("[ERROR] connection to scanner has been severed"));
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("[ERROR] connection to scanner has been severed"));
    EXPECT_EQ(read(), 4);
}

TEST_F(OpenNetCommTest, ConnectionEndsInAPayload)
{
    scanner.send(frameHeader(10) + Bytes{1, 2, 3});
    scanner.peer.reset();
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("status:3; dataSize: 3; errno:0"));
    EXPECT_TRUE(logged("[ERROR] less bytes have been read. needed: 10, received: 3"));
    EXPECT_TRUE(logged("[ERROR] timeout must have elapsed"));
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("[ERROR] connection to scanner has been severed"));
}

TEST_F(OpenNetCommTest, ConnectionEndsBeforeAPayload)
{
    scanner.send(frameHeader(10));
    scanner.peer.reset();
    EXPECT_EQ(read(), 15);
    EXPECT_TRUE(logged("status:-3; dataSize: 0; errno:0"));
    EXPECT_TRUE(logged("[ERROR] connection to scanner has been severed"));
}

TEST_F(OpenNetCommTest, ResetConnection)
{
    resetConnection(scanner.peer);
    EXPECT_EQ(read(), 15);
    EXPECT_EQ(read(), 15);
    EXPECT_EQ(read(), 4);
}

TEST_F(OpenNetCommTest, NewConnectionStartsWithANewFrame)
{
    scanner.send(frameHeader(10) + Bytes{1, 2, 3});
    token.request();
    EXPECT_EQ(read(), 15);
    token.consume();
    comm->closeDevice();
    ASSERT_EQ(open(), 0);
    scanner.send(frame({7, 8}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(content(), frame({7, 8}));
}

TEST_F(OpenNetCommTest, CancelEndsARead)
{
    std::thread canceller = cancelLater();
    EXPECT_EQ(read(), 15);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(400)));
    EXPECT_TRUE(comm->bConnected);
}

TEST_F(OpenNetCommTest, FrameCutByACancelGoesOn)
{
    const Bytes all = frame({1, 2, 3, 4, 5});
    for (std::ptrdiff_t cut = 0; cut < static_cast<std::ptrdiff_t>(all.size()); cut++) {
        token.request();
        scanner.send(Bytes(all.begin(), all.begin() + cut));
        EXPECT_EQ(read(), 15) << cut;
        token.consume();
        scanner.send(Bytes(all.begin() + cut, all.end()));
        EXPECT_EQ(read(), 0) << cut;
        EXPECT_EQ(content(), all);
    }
}

// ---- commands -----------------------------------------------------------------------

class NetCommandTest : public OpenNetCommTest {
protected:
    NetCommandTest()
    {
        cmd.reset(ICommand::createCmdInstance(402));
        comm->setCommand(cmd.get());
    }
    int write(int id)
    {
        log.clear();
        const int result = comm->writeCommand(id, &reply);
        return result;
    }

    std::unique_ptr<ICommand> cmd;
    CResponse reply;
};

TEST_F(OpenNetCommTest, NoCommandObject)
{
    CResponse reply;
    EXPECT_EQ(comm->writeCommand(1, &reply), 2);
    EXPECT_TRUE(logged("[ERROR] command object NULL"));
    EXPECT_EQ(comm->writeCommandAndWaitReply(1, &reply), 2);
}

TEST_F(NetCommandTest, WritesACommandAndReadsItsReply)
{
    for (const int id : {1, 2, 5, 6}) {
        scanner.send(frame(replyTo(id, 0x80, 2)));
        EXPECT_EQ(write(id), id);
        EXPECT_EQ(reply.getReply(), id);
        EXPECT_EQ(reply.getADFStatus(), 2);
        const Bytes sent = scanner.received(8);
        EXPECT_EQ(sent[0], 0x1B) << "no frame around commands";
        EXPECT_EQ(sent[2], kCommandCode[id]);
    }
    scanner.send(frame(replyTo(1)));
    EXPECT_EQ(write(1), 1);
    EXPECT_THAT(
        log.plainMessages(),
        IsSupersetOf({"entering read command after write command id 1", "Calling Read()",
                      "global buffer contents:", "0 A iRead is",
                      "this->iGlobalSize is 10 iRead is 10", "Global Buff: 0", "Data Buff: 10"}));
}

TEST_F(NetCommandTest, CancelIsNotAnswered)
{
    EXPECT_EQ(write(0), 0);
    EXPECT_EQ(scanner.received(8), (Bytes{0x1B, 0x53, 0x0F, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(log.contains("Calling Read()"));
}

TEST_F(NetCommandTest, BadCommand)
{
    EXPECT_EQ(write(9), 5);
    EXPECT_TRUE(logged("[ERROR] invalid command"));
    EXPECT_EQ(comm->writeCommandAndWaitReply(9, &reply), 5);
    EXPECT_TRUE(logged("invalid command"));
}

TEST_F(NetCommandTest, CommandCannotBeWritten)
{
    const SendResult failed(-1);
    EXPECT_EQ(write(1), 14);
    EXPECT_TRUE(logged("[ERROR] unable to write command"));
    EXPECT_FALSE(log.contains("Calling Read()"));
    EXPECT_EQ(comm->writeCommandAndWaitReply(1, &reply), 14);
    EXPECT_TRUE(logged("[ERROR] unable to send command to scanner"));
}

TEST_F(NetCommandTest, OtherRepliesAreReadOver)
{
    scanner.send(frame(replyTo(3)) + frame({1, 2, 3, 4, 5, 6}) + frame(replyTo(2)) + ramp(9) +
                 frame(replyTo(1)));
    EXPECT_EQ(write(1), 1);
    EXPECT_EQ(logCount("Calling Read()"), 5);
}

TEST_F(NetCommandTest, FiveRepliesAtMost)
{
    for (int i = 0; i < 5; i++) {
        scanner.send(frame(replyTo(i == 4 ? 5 : 3)));
    }
    scanner.send(frame(replyTo(1)));
    EXPECT_EQ(write(1), 5) << "what the last one answered";
    EXPECT_EQ(logCount("Calling Read()"), 5);
    EXPECT_EQ(read(), 0) << "the rest is still there";
    EXPECT_EQ(content(), frame(replyTo(1)));
}

TEST_F(NetCommandTest, RepliesOfUpToNineBytes)
{
    for (int length = 0; length <= 9; length++) {
        Bytes bytes = replyTo(1);
        bytes.resize(static_cast<std::size_t>(length));
        scanner.send(frame(bytes));
        if (length < 6) {
            for (int i = 0; i < 4; i++) {
                scanner.send(frame({0x55}));
            }
        }
        CResponse fresh;
        EXPECT_EQ(comm->writeCommand(1, &fresh), length < 6 ? 0 : 1) << length;
        EXPECT_EQ(fresh.getReply(), length < 6 ? 0 : 1) << length;
    }
}

TEST_F(NetCommandTest, EmptyFramesAreNoReply)
{
    scanner.send(frameHeader(0) + frame(replyTo(1)));
    EXPECT_EQ(write(1), 1);
    EXPECT_TRUE(logged("size to memcpy: 0"));
    EXPECT_EQ(logCount("Calling Read()"), 2);
}

TEST_F(NetCommandTest, LongReplies)
{
    const Bytes longest = replyTo(1, 0x80, 2, Bytes(39983));
    scanner.send(frame(longest));
    EXPECT_EQ(write(1), 1);
    const Bytes tooLong = replyTo(1, 0x80, 2, Bytes(39984));
    scanner.send(frame(tooLong));
    scanner.received(8);
    scanner.peer.reset();
    EXPECT_EQ(write(1), 15);
}

TEST_F(NetCommandTest, NoReplyObject)
{
    scanner.send(frame(replyTo(3)) + frame(replyTo(1)));
    EXPECT_EQ(comm->writeCommand(1, nullptr), 1);
}

TEST_F(NetCommandTest, ScannerHangsUpInsteadOfReplying)
{
    scanner.peer.reset();
    EXPECT_EQ(write(1), 15);
    EXPECT_EQ(write(1), 14) << "no connection any more";
}

TEST_F(NetCommandTest, VanishedPeerEndsTheWaitForAReply)
{
    Comm::standardTimes.probe = std::chrono::seconds(1);
    Comm::standardTimes.vanished = std::chrono::seconds(2);
    renew();
    ASSERT_EQ(open(), 0);
    comm->setCommand(cmd.get());
    playDead(scanner.peer.get());
    EXPECT_EQ(write(1), 15) << "the command was never acknowledged";
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(1000)), Lt(milliseconds(8000))));
}

TEST_F(NetCommandTest, CancelEndsTheWaitForAReply)
{
    std::thread canceller = cancelLater();
    EXPECT_EQ(write(1), 15);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(400)));
}

TEST_F(NetCommandTest, SilenceWhileDrainingIsWaitedForOnce)
{
    token.request();
    const CancelToken::Draining draining(token, std::chrono::seconds(30));
    EXPECT_EQ(write(5), 15);
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(3500)));
}

TEST_F(NetCommandTest, StartForgetsTheFramesOfTheLastPage)
{
    ConfigReader* none = nullptr;
    cmd->setConfigReader(none);
    const int oldSize = 5;
    const Bytes old = {'H', 'B', 'N', '3', 0};
    comm->setHBNData(old.data(), &oldSize);
    scanner.send(frame(replyTo(4)));
    comm->writeCommand(4, &reply);
    EXPECT_EQ(comm->iPtr, 0);
}

TEST_F(NetCommandTest, WaitsForTheReplyMessage)
{
    // Frames come with their header, which no reply starts with.
    for (int i = 0; i < 4; i++) {
        scanner.send(frame(replyTo(1)));
    }
    scanner.send(ramp(9));
    EXPECT_EQ(comm->writeCommandAndWaitReply(1, &reply), 1);
    for (int left = 5; left > 0; left--) {
        EXPECT_TRUE(
            logged("wait for reply for command id: 1. retries remaining: " + std::to_string(left)));
    }
    EXPECT_EQ(logCount("before readMessage(). "), 5);
    EXPECT_EQ(logCount("after readMessage().  ret: 0"), 4);
    EXPECT_EQ(logCount("after readMessage().  ret: 1"), 1);
    EXPECT_EQ(comm->writeCommandAndWaitReply(0, &reply), 0);
}

TEST_F(NetCommandTest, WaitForTheReplyMessageFails)
{
    scanner.peer.reset();
    EXPECT_EQ(comm->writeCommandAndWaitReply(1, &reply), 15);
    EXPECT_EQ(logCount("after readMessage().  ret: 15"), 5);
}

// ---- images -------------------------------------------------------------------------

class FlatStore : public ConfigReader {
public:
    int LoadConfig(const char*) override { return 1; }
};

class NetImageTest : public NetCommandTest, public testing::WithParamInterface<int> {
protected:
    NetImageTest()
    {
        cmd->setConfigReader(&store);
        start();
    }
    void start(int version = 326)
    {
        cmd.reset(ICommand::createCmdInstance(version));
        cmd->setConfigReader(&store);
        comm->setCommand(cmd.get());
        scanner.send(frame(replyTo(4)));
        EXPECT_EQ(comm->writeCommand(4, &reply), 4);
        scanner.received(8 + (version == 402 ? 35 : version == 401 ? 26 : 24));
        log.clear();
    }
    int readImage()
    {
        bytesRead = 0;
        return comm->ReadImage(&bytesRead, &buffered, &image);
    }
    // Everything that has come so far.
    Bytes pixels()
    {
        Bytes bytes(static_cast<std::size_t>(buffered.GetAllDataSize()));
        buffered.GetAllData(bytes.data(), buffered.GetAllDataSize());
        return bytes;
    }
    // Reads until the connection ends: what each read gave.
    std::vector<std::pair<int, Bytes>> readToTheEnd(const Bytes& stream)
    {
        sendRecord();
        std::thread sender([this, &stream] {
            sendAll(scanner.peer.get(), stream);
            scanner.peer.reset();
        });
        std::vector<std::pair<int, Bytes>> reads;
        while (comm->iScanSock >= 0 && reads.size() < 100000) {
            const int result = readImage();
            reads.emplace_back(result, pixels());
            buffered.Reset();
        }
        sender.join();
        return reads;
    }
    // Leaves the counter of empty frames as a record does.
    void sendRecord()
    {
        scanner.send(frame(record(7)));
        EXPECT_EQ(readImage(), 7);
    }

    FlatStore store;
    DataBuffer buffered;
    ImageData image;
    int bytesRead = 0;
};

TEST_P(NetImageTest, ReadsImageBlocks)
{
    start(GetParam());
    const Bytes data = ramp(700);
    scanner.send(frame(imageBlock(data, GetParam())));
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(bytesRead, 700);
    EXPECT_EQ(pixels(), data);
    EXPECT_EQ(buffered.GetRawDataSize(), 700);
    EXPECT_TRUE(logged("image data acquired"));
}

TEST_P(NetImageTest, BlocksMayBeCutAnywhere)
{
    const Bytes data = ramp(100);
    const Bytes blocks = imageBlock(data, GetParam()) + imageBlock(data, GetParam());
    for (std::size_t cut = 2; cut + 2 <= blocks.size(); cut++) {
        start(GetParam());
        buffered.Reset();
        const auto middle = blocks.begin() + static_cast<std::ptrdiff_t>(cut);
        scanner.send(frame(Bytes(blocks.begin(), middle)) + frame(Bytes(middle, blocks.end())));
        EXPECT_EQ(readImage(), 0) << cut;
        EXPECT_EQ(readImage(), 0) << cut;
        EXPECT_EQ(pixels(), data + data) << cut;
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, NetImageTest, testing::Values(326, 401, 402));

TEST_F(NetImageTest, PageMarker)
{
    scanner.send(frame(pageMarker(640, 480, 3, 4, 5, 0)));
    EXPECT_EQ(readImage(), 9);
    EXPECT_THAT(log.plainMessages(),
                IsSupersetOf({"values from scan record data w/ page marker:", " -> width = 640",
                              " -> height = 480", " -> offsetx = 3", " -> offsety = 4",
                              " -> trim = 5", "interleaving is NOT needed"}));
    EXPECT_EQ(image.GetActualScanWidth(), 640);
    EXPECT_EQ(image.GetActualScanHeight(), 480);
    scanner.send(frame(pageMarker(640, 480, 3, 4, 5, 1)));
    EXPECT_EQ(readImage(), 9);
    EXPECT_TRUE(logged("interleaving is needed"));
}

TEST_F(NetImageTest, Records)
{
    for (const int response : {1, 2, 3, 4, 5, 15, 200}) {
        scanner.send(frame(record(response)));
        EXPECT_EQ(readImage(), response);
        EXPECT_EQ(bytesRead, 0);
        EXPECT_FALSE(comm->isReadBroken());
    }
    EXPECT_FALSE(log.contains("image data acquired"));
}

TEST_F(NetImageTest, ImageBytesThatLookLikeARecord)
{
    Bytes lookalike = record(1) + ramp(50);
    lookalike[4] = 200;
    scanner.send(frame(imageBlock(ramp(20) + lookalike)));
    EXPECT_EQ(readImage(), 0);
    const Bytes block = imageBlock(ramp(20) + lookalike);
    const Bytes first(block.begin(), block.begin() + 29);
    scanner.send(frame(first) + frame(Bytes(block.begin() + 29, block.end())));
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(pixels(), ramp(20) + lookalike + ramp(20) + lookalike);
}

TEST_F(NetImageTest, ImageBytesBehindAHeaderThatLookLikeARecord)
{
    Bytes lookalike = record(1) + ramp(50);
    lookalike[4] = 200;
    const Bytes second = imageBlock(lookalike);
    const auto cut = second.end() - static_cast<std::ptrdiff_t>(lookalike.size());
    scanner.send(frame(imageBlock(ramp(20)) + Bytes(second.begin(), cut)) +
                 frame(Bytes(cut, second.end())));
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(pixels(), ramp(20) + lookalike);
}

TEST_F(NetImageTest, LargeFrames)
{
    const Bytes block = imageBlock(ramp(60000));
    std::thread sender([this, &block] { scanner.send(frame(block)); });
    EXPECT_EQ(readImage(), 0);
    sender.join();
    EXPECT_EQ(pixels(), ramp(60000));
}

TEST_F(NetImageTest, FramesNeedNoMemoryOnceThereIsSome)
{
    const LogCapture::Pause quiet;
    const Bytes one = frame(imageBlock(ramp(8000)));
    Bytes out(8000);
    for (int i = 0; i < 10; i++) {
        scanner.send(one);
        int result = -1;
        int allocations = 0;
        {
            const Allocations counted;
            result = readImage();
            buffered.SetProcessedDataSize(bytesRead);
            buffered.GetProcessedData(out.data(), 8000);
            allocations = counted.count();
        }
        EXPECT_EQ(result, 0);
        EXPECT_EQ(out, ramp(8000));
        EXPECT_TRUE(allocations == 0 || i < 2) << i;
    }
}

TEST_F(NetImageTest, LostConnectionIsNoEndOfThePage)
{
    scanner.peer.reset();
    EXPECT_EQ(readImage(), 1);
    EXPECT_TRUE(comm->isReadBroken());
    EXPECT_TRUE(logged("[ERROR] unable to read image 15"));
    EXPECT_EQ(readImage(), 1);
    EXPECT_TRUE(logged("[ERROR] unable to read image 4"));
    EXPECT_TRUE(comm->isReadBroken());
}

TEST_F(NetImageTest, TooLongFrameIsNoEndOfThePage)
{
    scanner.send(frameHeader(79992));
    EXPECT_EQ(readImage(), 1);
    EXPECT_TRUE(comm->isReadBroken());
}

TEST_F(NetImageTest, SecondEmptyFrameIsAFailure)
{
    sendRecord();
    scanner.send(frameHeader(0) + frameHeader(0));
    EXPECT_EQ(readImage(), 18);
    EXPECT_FALSE(logged("[ERROR] unable to set/process HBN Data"));
    EXPECT_EQ(readImage(), 1);
    EXPECT_TRUE(logged("[ERROR] unable to set/process HBN Data"));
    EXPECT_TRUE(comm->isReadBroken());
    scanner.send(frameHeader(0) + frame(imageBlock(ramp(10))) + frameHeader(0));
    EXPECT_EQ(readImage(), 18) << "counted anew";
    EXPECT_EQ(readImage(), 0);
    EXPECT_EQ(readImage(), 1) << "image data does not count";
}

TEST_F(NetImageTest, RecordsForgiveEmptyFrames)
{
    sendRecord();
    for (int i = 0; i < 3; i++) {
        scanner.send(frameHeader(0));
        EXPECT_EQ(readImage(), 18);
        sendRecord();
    }
}

TEST_F(NetImageTest, CounterIsThatOfTheProcess)
{
    sendRecord();
    scanner.send(frameHeader(0));
    EXPECT_EQ(readImage(), 18);
    renew();
    ASSERT_EQ(open(), 0);
    scanner.send(frameHeader(0));
    EXPECT_EQ(readImage(), 1);
}

TEST_F(NetImageTest, OneByteFramesEndInAFailure)
{
    sendRecord();
    scanner.send(frame({1}));
    EXPECT_EQ(readImage(), 18);
    int reads = 0;
    int result = 18;
    for (; result == 18 && reads < 10; reads++) {
        const Bytes large = frame(imageBlock(ramp(30000)));
        std::thread sender([this, &large] { scanner.send(large); });
        result = readImage();
        sender.join();
    }
    EXPECT_EQ(result, 1);
    EXPECT_LT(reads, 6);
    EXPECT_TRUE(comm->isReadBroken());
}

// Whatever comes: reading ends when the connection does.
TEST_F(NetImageTest, RandomStreams)
{
    for (unsigned seed = 1; seed <= 20; seed++) {
        std::mt19937 random(seed);
        const auto number = [&random] { return static_cast<unsigned>(random()); };
        const auto below = [&number](unsigned limit) { return static_cast<int>(number() % limit); };
        Bytes stream;
        for (int i = 0; i < 300; i++) {
            const Bytes payloads[] = {imageBlock(ramp(below(900)), 326),
                                      record(below(256)),
                                      pageMarker(number(), number(), number(), number(), 0, 1),
                                      ramp(below(40), below(256)),
                                      {}};
            Bytes one = frame(payloads[below(5)]);
            if (below(10) == 0) {
                one[static_cast<std::size_t>(below(static_cast<unsigned>(one.size())))] ^=
                    static_cast<unsigned char>(1U << below(8));
            }
            stream = stream + one;
        }
        const auto reads = readToTheEnd(stream);
        EXPECT_LT(reads.size(), 100000U) << seed;
        EXPECT_TRUE(comm->isReadBroken());
        ASSERT_EQ(open(), 0);
        start();
        {
            const LogCapture::Pause quiet;
            EXPECT_EQ(readToTheEnd(stream), reads) << "without a trace";
        }
        ASSERT_EQ(open(), 0);
        start();
    }
}

TEST_F(NetImageTest, ReadingWithoutAScan)
{
    comm->closeDevice();
    EXPECT_TRUE(logged("clearing scan data"));
    ASSERT_EQ(open(), 0);
    scanner.send(frame(imageBlock(ramp(10))));
    EXPECT_EQ(readImage(), 1);
    EXPECT_TRUE(comm->isReadBroken());
    comm->setCommand(nullptr);
    scanner.send(frame(imageBlock(ramp(10))));
    EXPECT_EQ(readImage(), 1);
    EXPECT_EQ(pixels(), Bytes());
}

TEST_F(NetImageTest, CancelEndsTheWaitForTheImage)
{
    std::thread canceller = cancelLater();
    EXPECT_EQ(readImage(), 1);
    canceller.join();
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(500)));
}

}  // namespace
