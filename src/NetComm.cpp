#include "NetComm.h"

namespace {

constexpr int kNoAddress = 3;

}  // namespace

int NetComm::Write(unsigned char* /*buf*/, int /*len*/)
{
    SL_TRACE("[WARN] No connection to device");
    return TRANSPORT_CLOSED;
}

int NetComm::Read(unsigned char* /*buf*/, int* len)
{
    SL_TRACE("device is closed, open first");
    *len = 0;
    return TRANSPORT_CLOSED;
}

int NetComm::ReadImage(int* /*bytesRead*/, DataBuffer* /*buffer*/, ImageData* /*image*/)
{
    SL_TRACE("device is closed, open first");
    return TRANSPORT_CLOSED;
}

int NetComm::setDevice(const char* name)
{
    SL_TRACE("device name: %s", name != nullptr ? name : "(null)");
    return name != nullptr ? 0 : 2;
}

int NetComm::getScanners(char*** /*list*/, int* /*count*/, void* /*conf*/)
{
    SL_TRACE("list size is %d", 0);
    return TRANSPORT_OK;
}

int NetComm::openDevice()
{
    SL_TRACE("[ERROR] IP is empty");
    return kNoAddress;
}

int NetComm::closeDevice()
{
    return TRANSPORT_OK;
}

int NetComm::getProductName(char* /*buf*/, int /*len*/)
{
    return TRANSPORT_OK;
}

int NetComm::getVendorName(char* /*buf*/, int /*len*/)
{
    return TRANSPORT_OK;
}

int NetComm::writeCommand(int /*cmdId*/, CResponse* /*reply*/)
{
    if (pICmd == nullptr) {
        SL_TRACE("[ERROR] command object NULL");
        return TRANSPORT_NO_COMMAND;
    }
    SL_TRACE("[ERROR] unable to write command");
    return TRANSPORT_WRITE_FAILED;
}

int NetComm::setCommand(ICommand* cmd)
{
    pICmd = cmd;
    return TRANSPORT_OK;
}
