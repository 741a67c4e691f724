// The transport to a scanner on the network.
#pragma once

#include "CLogger.h"
#include "ICommunication.h"

// Network scanners cannot be reached yet: none is listed, and a name given to
// setDevice learns no address, so that openDevice fails.
class NetComm : public virtual ICommunication, public CLogger {
public:
    int Write(unsigned char* buf, int len) override;
    int Read(unsigned char* buf, int* len) override;
    int ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image) override;
    int setDevice(const char* name) override;
    int getVid() override { return iVid; }
    int getPid() override { return iPid; }
    int getScanners(char*** list, int* count, void* conf) override;
    int openDevice() override;
    int closeDevice() override;
    int getProductName(char* buf, int len) override;
    int getVendorName(char* buf, int len) override;
    int writeCommand(int cmdId, CResponse* reply) override;
    int setCommand(ICommand* cmd) override;

private:
    int iVid = 0;
    int iPid = 0;
    ICommand* pICmd = nullptr;
};
