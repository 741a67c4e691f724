// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CResponse.h"

#include "RecordBytes.h"

#include <algorithm>
#include <new>

namespace {

constexpr int kSmallestReply = 6;
constexpr int kDataOffset = 8;
constexpr unsigned char kEscape = 0x1B;
constexpr unsigned char kPropertiesCode = 0x03;
constexpr unsigned char kWakeCode = 0x04;

// The command number for a code of class "S"; 0 for one that is not known.
int commandOfCode(unsigned char code)
{
    switch (code) {
    case 0x04:
        return 1;
    case kPropertiesCode:
        return 2;
    case 0x05:
        return 3;
    case 0x01:
        return 4;
    case 0x06:
        return 5;
    case 0x02:
        return 7;
    default:
        return 0;
    }
}

}  // namespace

int CResponse::setHeader(const unsigned char* data, int size)
{
    if (data == nullptr) {
        return kLost;
    }
    if (size < kSmallestReply) {
        return 3;
    }
    auto copy = RecordBytes::copyPadded(data, size, size);
    if (!copy) {
        return kLost;
    }
    pData = std::move(copy);
    iSize = size;
    property.reset();
    return pData[2] == kPropertiesCode ? processProps() : 0;
}

int CResponse::processProps()
{
    property.reset(new (std::nothrow) CProps);
    if (!property || !pData) {
        return kLost;
    }
    const int offset = std::min(kDataOffset, iSize);
    const int length = RecordBytes::int16(pData.get() + 4);
    return property->setData(pData.get() + offset, std::min(length, iSize - offset));
}

int CResponse::replyCode() const
{
    if (!pData || pData[0] != kEscape) {
        return 0;
    }
    if (pData[1] == 'S') {
        return commandOfCode(pData[2]);
    }
    if (pData[1] == 'D' && pData[2] == kWakeCode) {
        log_debug("entering command wake");
        return 6;
    }
    return 0;
}

int CResponse::getReply() const
{
    const int reply = replyCode();
    log_debug("getReply value of %d", reply);
    return reply;
}

int CResponse::getStatus() const
{
    const bool isReply = pData && pData[0] == kEscape && pData[1] == 'S';
    const int status = isReply ? RecordBytes::byteAt(pData.get(), iSize, 6) : -1;
    log_debug("getStatus value of %d", status);
    return status;
}

int CResponse::getADFStatus() const
{
    return RecordBytes::byteAt(pData.get(), iSize, 7);
}

int CResponse::getRecordResponse() const
{
    return RecordBytes::byteAt(pData.get(), iSize, 8);
}

int CResponse::isFlipped() const
{
    return RecordBytes::byteAt(pData.get(), iSize, 9) == 1 ? 1 : 0;
}

CProps* CResponse::getProperties() const
{
    return property.get();
}
