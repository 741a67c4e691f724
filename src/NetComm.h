// SPDX-License-Identifier: LGPL-2.1-or-later
// The transport to a scanner on the network.
#pragma once

#include "CLogger.h"
#include "DataBuffer.h"
#include "HBN3.h"
#include "ICommunication.h"
#include "NValueObjects.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sockaddr_in;

// How long the network is waited for.
struct NetTimes {
    std::chrono::milliseconds connect{15000};  // over all attempts
    std::chrono::milliseconds tickle{15000};   // each of three times
    std::chrono::milliseconds discovery{10000};
    // A peer that does not answer is probed this often, and given up after that long.
    std::chrono::seconds probe{15};
    std::chrono::seconds vanished{60};
};

// Device names as in Device.h. Commands go out as they are; what the scanner sends comes in
// frames (HBN3). Results are those of TransportStatus.
class NetComm : public virtual ICommunication, public CLogger, public HBN3 {
public:
    NetComm() = default;
    NetComm(const NetComm&) = delete;
    NetComm& operator=(const NetComm&) = delete;
    ~NetComm() override;

    int Write(unsigned char* buf, int len) override;
    // Reads one whole frame with its header. *len is not looked at: buf has room for the
    // largest frame, 80000 bytes. Longer ones are a failed read.
    int Read(unsigned char* buf, int* len) override;
    // Takes one frame. A failure has the number of the end of the page, 1, too; isReadBroken
    // tells them apart.
    int ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image) override;
    bool isReadBroken() const override { return bReadBroken; }
    // A name without an address is accepted, too; openDevice then fails.
    int setDevice(const char* name) override;
    int getVid() override { return iVid; }
    int getPid() override { return iPid; }
    // Appends the scanners that answer to those found before and lists all. Also
    // Discovery::Result; *names and *count are left alone where there is no scanner.
    int getScanners(char*** names, int* count, void* conf) override;
    int openDevice() override;
    // Ends the connection. The descriptor is freed at the next open or with the object.
    int closeDevice() override;
    int getProductName(char* buf, int len) override;
    int getVendorName(char* buf, int len) override;
    int writeCommand(int cmdId, CResponse* reply) override;
    int setCommand(ICommand* cmd) override;
    void watchCancel(const CancelToken* token) override { pCancel = token; }

    // Like writeCommand, but hands each frame to reply (not null) with its header, and gives
    // 0 for the awaited answer, 1 for another one.
    int writeCommandAndWaitReply(int cmdId, CResponse* reply);
    // Receives one frame. 0: *msg is freed by the caller with free; 1: not a frame; 15. A
    // frame that a cancel cuts is continued by the next call.
    int readMessage(unsigned char** msg, int* size);
    bool isTickled();

protected:
    // What objects wait from their construction on. Only tests change it.
    static NetTimes standardTimes;

    static constexpr int kReplyRoom = 40000;
    static constexpr int kImageRoom = 80000;

    int iScanSock = -1;
    int iVid = 0;
    int iPid = 0;
    bool bConnected = false;
    bool bTick = false;
    std::string pDeviceName;
    char cMac[32] = "";
    char cIp[32] = "";
    ICommand* pICmd = nullptr;
    std::unique_ptr<DataBuffer> ScanData;
    unsigned char pGlobalBuff[kReplyRoom] = {};
    int iGlobalSize = 0;
    std::vector<NValueObjects> list;

private:
    // Log lines in which the two ways to send a command differ.
    struct CommandTexts {
        const char* invalid;
        const char* notSent;
    };
    // The frame that is being received.
    struct Frame {
        std::int64_t size = 0;  // with the header; 0 while it is not known
        int received = 0;       // with the header
    };

    bool connectToScanner(const sockaddr_in& address);
    bool connectOnce(const sockaddr_in& address);
    void watchForVanishedPeer() const;
    bool sendTickle();
    bool receiveTickle();
    void forgetSocket();
    void closeSockets();

    int receivePart(unsigned char* buf, int size, int* errOut);
    int receiveHeader();
    int receivePayload();
    int receiveFrame(int room);
    int takeFrame();
    // The frame is then in frameBytes.
    int readMessage(int* size, int room);
    int readInto(unsigned char* buf, int room, int* size);
    void appendHeld(unsigned char* buf, int room, int* size);

    int sendCommand(int cmdId, const CommandTexts& texts);
    bool isAnswerAwaited();
    bool isWaitOver() const;
    int readReply(CResponse* reply);
    int takeReply(unsigned char* bytes);

    int readBlock(int* bytesRead, DataBuffer* buffer, ImageData* image);
    int takeBlock(const unsigned char* block, int size, int* bytesRead, DataBuffer* buffer,
                  ImageData* image);
    int nameField(int number, const char* unknown, char* buf, int len) const;

    const NetTimes times = standardTimes;
    const CancelToken* pCancel = nullptr;
    Frame frame;
    int iClosedSock = -1;  // shut down, but not closed yet
    bool bReadBroken = false;
    bool bTracing = false;                      // the switch for the log, read for each receive
    unsigned char frameBytes[kImageRoom] = {};  // of the current frame, or the last one
};
