// SPDX-License-Identifier: LGPL-2.1-or-later
// The transport to a scanner on USB, over libusb 0.1.
#pragma once

#include "CLogger.h"
#include "DataBuffer.h"
#include "ICommunication.h"

#include <chrono>
#include <memory>
#include <string>

struct usb_bus;
struct usb_config_descriptor;
struct usb_dev_handle;
struct usb_device;
class SaneConfReader;

// Device names read "<vendor>/<product>/libusb:<bus>:<device file>". Results are those
// of TransportStatus; openDevice also passes negative results of libusb on.
class IOComm : public virtual ICommunication, public CLogger {
public:
    // Takes the list of busses and devices; later arrivals are not seen.
    IOComm();
    IOComm(const IOComm&) = delete;
    IOComm& operator=(const IOComm&) = delete;
    // Closes a device that is still open.
    ~IOComm() override;

    int Write(unsigned char* buf, int len) override;
    int Read(unsigned char* buf, int* len) override;
    int ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image) override;
    int setDevice(const char* name) override;
    int getVid() override { return iVid; }
    int getPid() override { return iPid; }
    // A device is listed once for every interface that fits.
    int getScanners(char*** list, int* count, void* conf) override;
    int openDevice() override;
    int closeDevice() override;
    int getProductName(char* buf, int len) override;
    int getVendorName(char* buf, int len) override;
    int writeCommand(int cmdId, CResponse* reply) override;
    int setCommand(ICommand* cmd) override;
    void watchCancel(const CancelToken* token) override { pCancel = token; }

private:
    using Clock = std::chrono::steady_clock;

    // One transfer of the image stream.
    struct Block {
        unsigned char* bytes;
        int size;
        bool isImage;
        bool isLost;  // image bytes that there was no memory for
    };

    struct usb_device* findDevice();
    void chooseInterface(const usb_config_descriptor& config);
    int claimInterface();
    void forgetHandle();
    int getName(int descriptorIndex, char* buf, int len, const char* unknown) const;

    int sendCommand(int cmdId);
    int awaitReply(CResponse* reply);
    int readReply(CResponse* reply);
    bool isWaitOver(Clock::time_point lastHeard) const;

    int Read(unsigned char* buf, int* len, bool isTracing);
    int readBlock(unsigned char* spare, Block* block, bool isTracing);
    int takeBlock(const Block& block, int* bytesRead, DataBuffer* buffer, ImageData* image,
                  bool isTracing);
    void traceHeader(const unsigned char* block, int size) const;

    struct usb_device* usbDev = nullptr;
    usb_bus* busses = nullptr;
    usb_dev_handle* usbHandle = nullptr;
    int iOpen = -1;
    int iVid = -1;
    int iPid = -1;
    int iIfaceNum = 0;
    int iEndPointIn = -1;
    int iEndPointOut = -1;
    std::string pDeviceName;
    char cBus[16] = "";
    char cDev[16] = "";
    ICommand* pICmd = nullptr;
    std::unique_ptr<DataBuffer> ScanData;

    // String descriptor indices of the open device: its record in libusb's list may go
    // when the busses are searched again.
    int iManufacturerIndex = 0;
    int iProductIndex = 0;
    const CancelToken* pCancel = nullptr;
};
