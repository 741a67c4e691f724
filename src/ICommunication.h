// SPDX-License-Identifier: LGPL-2.1-or-later
// The transport interface: one scanner behind USB or behind the network.
#pragma once

class CancelToken;
class CResponse;
class DataBuffer;
class ICommand;
class ImageData;

// Results of transport operations. ReadImage also returns the record response of the
// device, whose values share these numbers.
enum TransportStatus {
    TRANSPORT_NO_MEMORY = -1,  // for what was read, which is lost; no device says so
    TRANSPORT_OK = 0,
    TRANSPORT_NO_CONNECTION = 1,  // the scanner cannot be reached
    TRANSPORT_NO_COMMAND = 2,     // no command object, or no memory
    TRANSPORT_NO_ADDRESS = 3,     // no IP address in the device name
    TRANSPORT_CLOSED = 4,         // device not open
    TRANSPORT_BAD_COMMAND = 5,    // the command could not be encoded
    TRANSPORT_NO_ENDPOINT = 6,
    TRANSPORT_NOT_FOUND = 7,      // no such device
    TRANSPORT_OPEN_FAILED = 8,    // the engine takes this for a busy device
    TRANSPORT_NO_PERMISSION = 9,  // configuration refused
    TRANSPORT_CLAIM_FAILED = 10,  // also after the kernel driver was detached
    TRANSPORT_CLOSE_FAILED = 12,
    TRANSPORT_RELEASE_FAILED = 13,
    TRANSPORT_WRITE_FAILED = 14,
    TRANSPORT_READ_FAILED = 15,
};

// Record responses that the engine acts on.
enum RecordResponse {
    RECORD_END_OF_DATA = 1,
    RECORD_NO_MEMORY = 2,
    RECORD_STOPPED = 3,
    RECORD_CANCELLED = 4,
    RECORD_PAPER_JAM = 5,
    RECORD_PAGE_MARKER = 9,
    RECORD_DEVICE_FAILURE = 15,
    RECORD_NO_DATA_YET = 18,
};

class ICommunication {
public:
    virtual ~ICommunication() = default;

    virtual int Write(unsigned char* buf, int len) = 0;
    // *len: room in buf, then bytes read.
    virtual int Read(unsigned char* buf, int* len) = 0;
    // Reads one block of the image stream. Adds the image bytes that went to the raw
    // side of buffer to *bytesRead; page geometry goes to image.
    virtual int ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image) = 0;
    // Binds to the device of that name, without opening it. 0: accepted.
    virtual int setDevice(const char* name) = 0;
    virtual int getVid() = 0;
    virtual int getPid() = 0;
    // conf is the SaneConfReader. *list: malloc'd array of malloc'd device names, both
    // freed by the caller.
    virtual int getScanners(char*** list, int* count, void* conf) = 0;
    virtual int openDevice() = 0;
    virtual int closeDevice() = 0;
    virtual int getProductName(char* buf, int len) = 0;
    virtual int getVendorName(char* buf, int len) = 0;
    // Sends a command and reads until its reply is there. The command number on
    // success.
    virtual int writeCommand(int cmdId, CResponse* reply) = 0;
    // The command object is not owned and must outlive its use here.
    virtual int setCommand(ICommand* cmd) = 0;

    // Asked about a ReadImage that gave RECORD_END_OF_DATA: true when it only could not read
    // on, and the device has not ended the page.
    virtual bool isReadBroken() const { return false; }
    // The token (not owned) that ends long waits; null: none does.
    virtual void watchCancel(const CancelToken* /*token*/) {}
};
