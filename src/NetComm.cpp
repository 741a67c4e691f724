// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetComm.h"

#include "CResponse.h"
#include "CancelToken.h"
#include "Discovery.h"
#include "ICommand.h"
#include "ImageData.h"
#include "NameList.h"
#include "SaneConfReader.h"
#include "ScanRecord.h"
#include "SocketWrapper.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kPort = 9100;
constexpr int kConnectAttempts = 2;
constexpr int kConnectPause = 10000;  // microseconds
constexpr int kTickleAttempts = 3;
constexpr int kReplyAttempts = 5;
constexpr long kNoLimit = -1;
constexpr int kNameSize = 255;

// The frame without payload that ends the page, counted from the last record on.
constexpr int kEmptyBlocks = 2;
std::atomic<int> tickleCounter{kEmptyBlocks};

void setOption(int fd, int level, int option, long value)
{
    const int number = static_cast<int>(value);
    setsockopt(fd, level, option, &number, sizeof number);
}

char* newDeviceName(const NValueObjects& scanner)
{
    const std::string full = scanner.deviceName();
    char* name = static_cast<char*>(malloc(kNameSize));
    if (name != nullptr) {
        snprintf(name, kNameSize, "%s", full.c_str());
    }
    return name;
}

// The first word of the text.
template <std::size_t size>
void copyField(char (&field)[size], const char* text)
{
    constexpr const char* kBlanks = " \t\n\v\f\r";
    const char* word = text != nullptr ? text + strspn(text, kBlanks) : "";
    const int length = static_cast<int>(std::min(strcspn(word, kBlanks), size - 1));
    snprintf(field, size, "%.*s", length, word);
}

int hexNumber(const char* text)
{
    return text != nullptr ? static_cast<int>(strtoul(text, nullptr, 16)) : 0;
}

}  // namespace

NetTimes NetComm::standardTimes;

NetComm::~NetComm()
{
    closeSockets();
}

// ---- names and discovery ------------------------------------------------------------

int NetComm::setDevice(const char* name)
{
    SL_START();
    SL_TRACE("device name: %s", name != nullptr ? name : "(null)");
    if (name == nullptr) {
        SL_RETURN(2);
    }
    pDeviceName = name;
    if (strstr(name, "libnet") != nullptr) {
        std::string fields = pDeviceName.substr(0, 255);
        char* rest = nullptr;
        strtok_r(fields.data(), ":", &rest);
        const auto next = [&rest] {
            return rest != nullptr ? strtok_r(nullptr, ":", &rest) : rest;
        };
        copyField(cMac, next());
        copyField(cIp, next());
        iVid = hexNumber(next());
        iPid = hexNumber(next());
    }
    SL_TRACE("MAC address: %s; IP address: %s; vid: %X; pid: %X", cMac, cIp,
             static_cast<unsigned>(iVid), static_cast<unsigned>(iPid));
    SL_RETURN(0);
}

int NetComm::getScanners(char*** names, int* count, void* conf)
{
    SL_START();
    Discovery discovery(times.discovery);
    const int result = discovery.search(static_cast<SaneConfReader*>(conf), &list);
    if (result == Discovery::NO_PORT) {
        SL_RETURN(result);
    }
    SL_TRACE("list size is %d", static_cast<int>(list.size()));
    if (list.empty()) {
        SL_RETURN(result);
    }
    NameList found;
    if (!found.allocate(static_cast<int>(list.size()))) {
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        const NValueObjects& scanner = list[i];
        found.names[i] = newDeviceName(scanner);
        if (found.names[i] == nullptr) {
            SL_RETURN(TRANSPORT_NO_COMMAND);
        }
        SL_TRACE("mac is %s", scanner.getMac().c_str());
        SL_TRACE("model is %s", scanner.getModel().c_str());
        SL_TRACE("ip is %s", scanner.getIp().c_str());
        SL_TRACE("man is %s", scanner.getManufacturer().c_str());
        SL_TRACE("vid is %X", scanner.getVid());
        SL_TRACE("pid is %X", scanner.getPid());
        SL_TRACE("%s", "");
    }
    *count = found.count;
    *names = found.release();
    SL_RETURN(result);
}

// One of the first two fields of the device name.
int NetComm::nameField(int number, const char* unknown, char* buf, int len) const
{
    if (buf == nullptr || len < 1) {
        return TRANSPORT_NO_COMMAND;
    }
    const std::size_t slash = pDeviceName.find('/');
    const std::size_t end = pDeviceName.find("/libnet:");
    std::string text = unknown;
    if (slash < end && end != std::string::npos) {
        text = number == 0 ? pDeviceName.substr(0, slash)
                           : pDeviceName.substr(slash + 1, end - slash - 1);
    }
    snprintf(buf, static_cast<std::size_t>(len), "%s", text.c_str());
    return TRANSPORT_OK;
}

int NetComm::getVendorName(char* buf, int len)
{
    return nameField(0, "Unknown Vendor", buf, len);
}

int NetComm::getProductName(char* buf, int len)
{
    return nameField(1, "Unknown Scanner", buf, len);
}

// ---- the connection -----------------------------------------------------------------

void NetComm::closeSockets()
{
    for (int* fd : {&iScanSock, &iClosedSock}) {
        if (*fd >= 0) {
            close(*fd);
        }
        *fd = -1;
    }
}

// The descriptor was closed below: its number may already belong to somebody else.
void NetComm::forgetSocket()
{
    iScanSock = -1;
    bConnected = false;
    bTick = false;
    frame = {};
}

// Without these a wait for a peer that was switched off never ends.
void NetComm::watchForVanishedPeer() const
{
    const auto probe = static_cast<long>(times.probe.count());
    const auto vanished = static_cast<long>(times.vanished.count());
    setOption(iScanSock, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(iScanSock, IPPROTO_TCP, TCP_KEEPIDLE, probe);
    setOption(iScanSock, IPPROTO_TCP, TCP_KEEPINTVL, probe);
    setOption(iScanSock, IPPROTO_TCP, TCP_KEEPCNT, std::max(vanished / probe - 1, 1L));
    setOption(iScanSock, IPPROTO_TCP, TCP_USER_TIMEOUT, vanished * 1000);
}

bool NetComm::connectOnce(const sockaddr_in& address)
{
    const auto tryToConnect = [this, &address] {
        return connect(iScanSock, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    };
    if (tryToConnect()) {
        return true;
    }
    if (errno != EINPROGRESS && errno != EALREADY) {
        return false;
    }
    const long limit = static_cast<long>(times.connect.count()) / kConnectAttempts;
    const int ready =
        SocketWrapper::wait(iScanSock, POLLOUT, limit / 1000, limit % 1000 * 1000, pCancel);
    // Asking again tells how the attempt ended, and makes the socket fit for the next one.
    return ready > 0 && tryToConnect();
}

bool NetComm::connectToScanner(const sockaddr_in& address)
{
    watchForVanishedPeer();
    for (int left = kConnectAttempts; left > 0; --left) {
        if (connectOnce(address)) {
            fcntl(iScanSock, F_SETFL, fcntl(iScanSock, F_GETFL) & ~O_NONBLOCK);
            bConnected = true;
            return true;
        }
        SL_TRACE("[WARN] Connect attempt failed.");
        if (left > 1) {
            SL_TRACE("before usleep(). %d ms", kConnectPause);
            usleep(kConnectPause);
            SL_TRACE("after usleep(). ");
            SL_TRACE("Attempting to connect again");
        }
    }
    return false;
}

int NetComm::openDevice()
{
    SL_START();
    if (bConnected) {
        SL_TRACE("[WARN] Already Connected");
        SL_RETURN(TRANSPORT_OK);
    }
    SL_TRACE("IP selected is %s strlen is %d", cIp, static_cast<int>(strlen(cIp)));
    if (cIp[0] == '\0') {
        SL_TRACE("[ERROR] IP is empty");
        SL_RETURN(TRANSPORT_NO_ADDRESS);
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    if (inet_pton(AF_INET, cIp, &address.sin_addr) != 1) {
        SL_TRACE("[ERROR] Invalid IP: %s", cIp);
        SL_RETURN(TRANSPORT_NO_ADDRESS);
    }
    closeSockets();
    forgetSocket();
    iScanSock = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iScanSock < 0) {
        SL_TRACE("[ERROR] Failed to created socket: %s", strerror(errno));
        SL_RETURN(TRANSPORT_NO_CONNECTION);
    }
    if (!connectToScanner(address)) {
        SL_TRACE("[ERROR] Exhausted connect retries");
        closeSockets();
        SL_RETURN(TRANSPORT_NO_CONNECTION);
    }
    SL_TRACE("Now connected to the scanner");
    if (isTickled()) {
        SL_TRACE("Tickle data arrived.");
        SL_RETURN(TRANSPORT_OK);
    }
    SL_TRACE("[ERROR] Not tickled. Closing device");
    closeDevice();
    closeSockets();
    SL_RETURN(TRANSPORT_NO_CONNECTION);
}

int NetComm::closeDevice()
{
    SL_START();
    if (bConnected) {
        SL_TRACE("disallowing read/write on socket");
        shutdown(iScanSock, SHUT_RDWR);
        iClosedSock = iScanSock;
        forgetSocket();
    }
    if (ScanData) {
        SL_TRACE("clearing scan data");
        ScanData.reset();
    }
    SL_RETURN(TRANSPORT_OK);
}

bool NetComm::sendTickle()
{
    unsigned char* bytes = nullptr;
    int len = 0;
    const int result = getTickleData(&bytes, &len);
    const std::unique_ptr<unsigned char[]> tickle(bytes);
    if (result != 0) {
        SL_TRACE("failed in creating intro message");
        return false;
    }
    int error = 0;
    const int sent = SocketWrapper::send(iScanSock, bytes, static_cast<unsigned long>(len),
                                         kNoLimit, kNoLimit, &error, pCancel);
    if (sent == SOCKET_LOST) {
        forgetSocket();
    }
    if (sent < len) {
        SL_TRACE("[ERROR] Unable to send intro message to scanner");
    }
    return sent >= len;
}

bool NetComm::receiveTickle()
{
    unsigned char header[kHeaderSize] = {};
    unsigned long size = sizeof header;
    const long limit = static_cast<long>(times.tickle.count());
    int error = 0;
    const int result = SocketWrapper::receive(iScanSock, header, &size, true, limit / 1000,
                                              limit % 1000 * 1000, &error, pCancel);
    if (result == SOCKET_LOST) {
        forgetSocket();
    }
    if (size < sizeof header) {
        return false;
    }
    if (CheckHeader(header, result) != 0) {
        SL_TRACE("[WARN] incorrect header;");
        return false;
    }
    return true;
}

bool NetComm::isTickled()
{
    SL_START();
    if (bTick) {
        SL_TRACE("Already tickled");
        SL_RETURN(true);
    }
    SL_TRACE("Not yet tickled; creating intro message...");
    if (isWaitOver() || !sendTickle()) {
        SL_RETURN(false);
    }
    for (int left = kTickleAttempts; left > 0 && !bTick && !isWaitOver(); --left) {
        bTick = receiveTickle();
        if (!bTick) {
            SL_TRACE("[WARN] tickle data not received. retries remaining: %d", left);
        }
    }
    SL_TRACE("::::::::::::::: METHOD END ::::::::::::::: this->bTick: %d", bTick);
    return bTick;
}

// ---- frames -------------------------------------------------------------------------

int NetComm::receivePart(unsigned char* buf, int size, int* errOut)
{
    unsigned long count = static_cast<unsigned long>(size);
    const int result =
        SocketWrapper::receive(iScanSock, buf, &count, true, kNoLimit, kNoLimit, errOut, pCancel);
    bTracing = debugEnabled();
    if (result == SOCKET_LOST) {
        SL_TRACE_IF(bTracing, "[ERROR] connection to scanner has been severed");
        forgetSocket();
    }
    return result;
}

int NetComm::receiveHeader()
{
    int error = 0;
    const int result =
        receivePart(frameBytes + frame.received, kHeaderSize - frame.received, &error);
    if (result < 0) {
        return TRANSPORT_READ_FAILED;
    }
    frame.received += result;
    if (frame.received < kHeaderSize) {
        SL_TRACE_IF(bTracing, "[WARN] less bytes have been read. needed: %d, received: %d",
                    kHeaderSize, frame.received);
        return TRANSPORT_READ_FAILED;
    }
    if (CheckHeader(frameBytes, kHeaderSize) != 0) {
        SL_TRACE_IF(bTracing, "[WARN] not HBN3 header; ignoring");
        frame = {};
        return 1;
    }
    const int length = getHBNSize(frameBytes, kHeaderSize);
    SL_TRACE_IF(bTracing, "size of data part: %d", length);
    if (length == -1) {
        SL_TRACE_IF(bTracing, "[WARN] data is not long enough to get size; ignoring");
    }
    frame.size = std::int64_t{length} + kHeaderSize;
    return TRANSPORT_OK;
}

int NetComm::receivePayload()
{
    const int needed = static_cast<int>(frame.size) - frame.received;
    if (needed == 0) {
        return TRANSPORT_OK;
    }
    int error = 0;
    const int result = receivePart(frameBytes + frame.received, needed, &error);
    SL_TRACE_IF(bTracing, "status:%d; dataSize: %d; errno:%d", result, std::max(result, 0), error);
    if (result < 0) {
        return TRANSPORT_READ_FAILED;
    }
    frame.received += result;
    if (result < needed) {
        SL_TRACE_IF(bTracing, "[ERROR] less bytes have been read. needed: %d, received: %d", needed,
                    result);
        SL_TRACE_IF(bTracing, "[ERROR] timeout must have elapsed");
        return TRANSPORT_READ_FAILED;
    }
    return TRANSPORT_OK;
}

// A whole frame is then in frameBytes, and stays the current one.
int NetComm::receiveFrame(int room)
{
    int result = frame.received < kHeaderSize ? receiveHeader() : TRANSPORT_OK;
    if (result == TRANSPORT_OK && (frame.size < kHeaderSize || frame.size > room)) {
        SL_TRACE_IF(bTracing, "[ERROR] no room for the data");
        frame = {};
        result = TRANSPORT_READ_FAILED;
    }
    return result == TRANSPORT_OK ? receivePayload() : result;
}

int NetComm::takeFrame()
{
    const int size = static_cast<int>(frame.size);
    frame = {};
    return size;
}

int NetComm::readMessage(int* size, int room)
{
    SL_START_IF(bTracing);
    const int result = receiveFrame(room);
    *size = result == TRANSPORT_OK ? takeFrame() : 0;
    SL_RETURN_IF(bTracing, result);
}

int NetComm::readMessage(unsigned char** msg, int* size)
{
    bTracing = debugEnabled();
    SL_START_IF(bTracing);
    *msg = nullptr;
    *size = 0;
    const int result = receiveFrame(kImageRoom);
    if (result != TRANSPORT_OK) {
        SL_RETURN_IF(bTracing, result);
    }
    *msg = static_cast<unsigned char*>(malloc(static_cast<std::size_t>(frame.size)));
    if (*msg == nullptr) {
        SL_RETURN_IF(bTracing, TRANSPORT_READ_FAILED);
    }
    *size = takeFrame();
    memcpy(*msg, frameBytes, static_cast<std::size_t>(*size));
    SL_RETURN_IF(bTracing, TRANSPORT_OK);
}

int NetComm::Write(unsigned char* buf, int len)
{
    SL_START();
    if (!bConnected || !bTick) {
        SL_TRACE("[WARN] No connection to device");
        SL_RETURN(TRANSPORT_CLOSED);
    }
    SL_TRACE("before SocketWrapper::send(). ");
    int error = 0;
    const int sent =
        SocketWrapper::send(iScanSock, buf, static_cast<unsigned long>(std::max(len, 0)), kNoLimit,
                            kNoLimit, &error, pCancel);
    SL_TRACE("after SocketWrapper::send(). ret: %d", sent);
    if (sent == SOCKET_LOST) {
        forgetSocket();
    }
    SL_RETURN(sent >= 0 && sent >= len ? TRANSPORT_OK : TRANSPORT_WRITE_FAILED);
}

// A frame without payload brings what is held back of an earlier reply, if anything.
void NetComm::appendHeld(unsigned char* buf, int room, int* size)
{
    const int held = std::min(iGlobalSize, room - kHeaderSize);
    memmove(buf + kHeaderSize, pGlobalBuff, static_cast<std::size_t>(held));
    memset(pGlobalBuff, 0, sizeof pGlobalBuff);
    *size = held;
    iGlobalSize = 0;
    buf[kHeaderSize - 1] = static_cast<unsigned char>(*size);
}

int NetComm::readInto(unsigned char* buf, int room, int* size)
{
    bTracing = debugEnabled();
    SL_START_IF(bTracing);
    if (!bConnected || !bTick) {
        SL_TRACE_IF(bTracing, "device is closed, open first");
        SL_RETURN_IF(bTracing, TRANSPORT_CLOSED);
    }
    SL_TRACE_IF(bTracing, "before readMessage. ");
    int count = 0;
    const int result = readMessage(&count, room);
    SL_TRACE_IF(bTracing, "after readMessage. ret: %d", result);
    SL_TRACE_IF(bTracing, "message size: %d", count);
    if (result != TRANSPORT_OK) {
        SL_TRACE_IF(bTracing, "[ERROR] reading data from device failed");
        *size = 0;
        SL_RETURN_IF(bTracing, TRANSPORT_READ_FAILED);
    }
    SL_TRACE_IF(bTracing, "header received");
    if (bTracing) {
        hex_dump(frameBytes, kHeaderSize);
    }
    if (count > kHeaderSize) {
        SL_TRACE_IF(bTracing, "checking header for read data");
        SL_TRACE_IF(bTracing, "ret greater than 9. ret: %d, size: %d", count, *size);
    } else {
        SL_TRACE_IF(bTracing, "size is exactly 9 !!!!");
    }
    if (buf != frameBytes) {
        memcpy(buf, frameBytes, static_cast<std::size_t>(count));
    }
    if (count > kHeaderSize) {
        *size = count;
        SL_TRACE_IF(bTracing, "ret greater than 9. ret: %d, size: %d", count, *size);
    } else {
        appendHeld(buf, room, size);
    }
    SL_TRACE_IF(bTracing, "size: %d", *size);
    SL_RETURN_IF(bTracing, TRANSPORT_OK);
}

int NetComm::Read(unsigned char* buf, int* len)
{
    return readInto(buf, kImageRoom, len);
}

// ---- commands -----------------------------------------------------------------------

int NetComm::setCommand(ICommand* cmd)
{
    pICmd = cmd;
    return TRANSPORT_OK;
}

int NetComm::sendCommand(int cmdId, const CommandTexts& texts)
{
    if (cmdId == COMMAND_START) {
        ScanData.reset(new (std::nothrow) DataBuffer);
        if (!ScanData) {
            return TRANSPORT_NO_COMMAND;
        }
    }
    std::unique_ptr<unsigned char[]> bytes;
    int length = 0;
    if (pICmd->encode(cmdId, &bytes, &length) != 0) {
        SL_TRACE("%s", texts.invalid);
        return TRANSPORT_BAD_COMMAND;
    }
    if (Write(bytes.get(), length) != TRANSPORT_OK) {
        SL_TRACE("%s", texts.notSent);
        return TRANSPORT_WRITE_FAILED;
    }
    if (pICmd->getCommandId() == COMMAND_START) {
        destroyBuffer();
    }
    return TRANSPORT_OK;
}

// After a cancel, silence is not waited for more than once.
bool NetComm::isWaitOver() const
{
    return pCancel != nullptr && (pCancel->shouldStop() || pCancel->isDraining());
}

// Copies the reply in pGlobalBuff to bytes; what follows it there moves to the front.
int NetComm::takeReply(unsigned char* bytes)
{
    if (CheckHeader(pGlobalBuff, iGlobalSize) != 0) {
        SL_TRACE("size to memcpy: %d", iGlobalSize);
        memcpy(bytes, pGlobalBuff, static_cast<std::size_t>(iGlobalSize));
        return iGlobalSize;
    }
    const int length = getHBNSize(pGlobalBuff, iGlobalSize);
    iGlobalSize -= kHeaderSize;
    SL_TRACE("%X %X iRead is", static_cast<unsigned>(pGlobalBuff[kHeaderSize - 2]),
             static_cast<unsigned>(pGlobalBuff[kHeaderSize - 1]));
    SL_TRACE("this->iGlobalSize is %d iRead is %d", iGlobalSize, length);
    const int count = std::clamp(length, 0, iGlobalSize);
    iGlobalSize -= count;
    const unsigned char* reply = pGlobalBuff + kHeaderSize;
    memcpy(bytes, reply, static_cast<std::size_t>(count));
    memmove(pGlobalBuff, reply + count, static_cast<std::size_t>(iGlobalSize));
    return count;
}

// One attempt; returns the number of the command that was answered.
int NetComm::readReply(CResponse* reply)
{
    memset(pGlobalBuff, 0, sizeof pGlobalBuff);
    SL_TRACE("Calling Read()");
    if (readInto(pGlobalBuff, kReplyRoom, &iGlobalSize) != TRANSPORT_OK) {
        return TRANSPORT_READ_FAILED;
    }
    SL_TRACE("global buffer contents:");
    hex_dump(pGlobalBuff, iGlobalSize);
    unsigned char bytes[kReplyRoom];
    const int count = takeReply(bytes);
    SL_TRACE("Global Buff: %d", iGlobalSize);
    SL_TRACE("Data Buff: %d", count);
    return reply->setHeader(bytes, count) == CResponse::kLost ? TRANSPORT_NO_MEMORY
                                                              : reply->getReply();
}

int NetComm::writeCommand(int cmdId, CResponse* reply)
{
    SL_START();
    if (pICmd == nullptr) {
        SL_TRACE("[ERROR] command object NULL");
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    int result = sendCommand(cmdId, {"[ERROR] invalid command", "[ERROR] unable to write command"});
    const int expected = pICmd->getCommandId();
    if (result != TRANSPORT_OK || !ICommand::isAnswered(expected)) {
        SL_RETURN(result);
    }
    CResponse unwanted;
    for (int left = kReplyAttempts; left > 0; --left) {
        SL_TRACE("entering read command after write command id %d", cmdId);
        result = readReply(reply != nullptr ? reply : &unwanted);
        if (result == expected || result == TRANSPORT_NO_MEMORY ||
            (result == TRANSPORT_READ_FAILED && isWaitOver())) {
            break;
        }
    }
    SL_RETURN(result);
}

int NetComm::writeCommandAndWaitReply(int cmdId, CResponse* reply)
{
    SL_START();
    if (pICmd == nullptr) {
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    int result =
        sendCommand(cmdId, {"invalid command", "[ERROR] unable to send command to scanner"});
    const int expected = pICmd->getCommandId();
    if (result != TRANSPORT_OK || !ICommand::isAnswered(expected)) {
        SL_RETURN(result);
    }
    int size = kHeaderSize;
    for (int left = kReplyAttempts; left > 0; --left) {
        SL_TRACE("wait for reply for command id: %d. retries remaining: %d", cmdId, left);
        memset(pGlobalBuff, 0, static_cast<std::size_t>(size));
        SL_TRACE("before readMessage(). ");
        bTracing = debugEnabled();
        result = readMessage(&size, kReplyRoom);
        SL_TRACE("after readMessage().  ret: %d", result);
        if (result == TRANSPORT_OK) {
            reply->setHeader(frameBytes, size);
            result = reply->getReply() == expected ? 0 : 1;
        }
        if (result == TRANSPORT_OK || (result == TRANSPORT_READ_FAILED && isWaitOver())) {
            break;
        }
    }
    SL_RETURN(result);
}

// ---- the image ----------------------------------------------------------------------

int NetComm::takeBlock(const unsigned char* block, int size, int* bytesRead, DataBuffer* buffer,
                       ImageData* image)
{
    const bool isScanning = ScanData && pICmd != nullptr;
    const int pending = isScanning ? pICmd->getPendingBlockSize(ScanData.get()) : 0;
    if (ScanRecord::isRecord(block, size, pending)) {
        tickleCounter = kEmptyBlocks;
        bReadBroken = false;
        // Image bytes without a block header may still wait for more that never came.
        const int moved =
            isScanning ? ScanRecord::moveImageBytes(pICmd, ScanData.get(), buffer, bTracing) : 0;
        if (moved < 0) {
            return TRANSPORT_NO_MEMORY;
        }
        *bytesRead += moved;
        const ScanRecord record;
        return record.process(block, size, image);
    }
    SL_TRACE_IF(bTracing, "image data acquired");
    if (!isScanning) {
        SL_TRACE_IF(bTracing, "[ERROR] unable to read image %d", TRANSPORT_READ_FAILED);
        return RECORD_END_OF_DATA;
    }
    const int moved =
        ScanRecord::addImageBytes(pICmd, ScanData.get(), block, size, buffer, bTracing);
    if (moved < 0) {
        return TRANSPORT_NO_MEMORY;
    }
    *bytesRead += moved;
    return TRANSPORT_OK;
}

int NetComm::readBlock(int* bytesRead, DataBuffer* buffer, ImageData* image)
{
    int size = kImageRoom;
    int result = readInto(frameBytes, kImageRoom, &size);
    if (result != TRANSPORT_OK) {
        SL_TRACE_IF(bTracing, "[ERROR] unable to read image %d", result);
        return RECORD_END_OF_DATA;
    }
    if (createBuffer() != 0) {
        return TRANSPORT_NO_MEMORY;
    }
    const unsigned char* payload = takeInPlace(frameBytes, &size);
    if (payload != nullptr) {
        return takeBlock(payload, size, bytesRead, buffer, image);
    }
    if (setHBNData(frameBytes, &size) != 0) {
        if (--tickleCounter > 0) {
            return RECORD_NO_DATA_YET;
        }
        tickleCounter = kEmptyBlocks;
        SL_TRACE_IF(bTracing, "[ERROR] unable to set/process HBN Data");
        return RECORD_END_OF_DATA;
    }
    result = getHBNData(frameBytes, &size);
    if (size < 1) {
        return result == 3 ? RECORD_NO_DATA_YET : result;
    }
    const int taken = takeBlock(frameBytes, size, bytesRead, buffer, image);
    return taken != TRANSPORT_OK ? taken : result;
}

int NetComm::ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image)
{
    SL_START();
    bReadBroken = true;
    const int result = readBlock(bytesRead, buffer, image);
    SL_RETURN_IF(bTracing, result);
}
