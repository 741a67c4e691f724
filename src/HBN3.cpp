// SPDX-License-Identifier: LGPL-2.1-or-later
#include "HBN3.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

namespace {

constexpr unsigned char kMagic[4] = {'H', 'B', 'N', '3'};
constexpr int kLengthOffset = 5;
constexpr int kSmallestPiece = 2;
// Magic, four zero bytes, 2.
constexpr unsigned char kTickle[HBN3::kHeaderSize] = {'H', 'B', 'N', '3', 0, 0, 0, 0, 2};

int bigEndian32(const unsigned char* data)
{
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value = value << 8 | data[i];
    }
    return static_cast<int>(value);
}

}  // namespace

HBN3::HBN3()
{
    createBuffer();
}

HBN3::~HBN3()
{
    destroyBuffer();
}

int HBN3::CheckHeader(const unsigned char* buf, int len)
{
    return len >= kHeaderSize && memcmp(buf, kMagic, sizeof kMagic) == 0 ? 0 : 1;
}

int HBN3::getHBNSize(const unsigned char* buf, int len)
{
    return len >= kHeaderSize ? bigEndian32(buf + kLengthOffset) : -1;
}

int HBN3::getTickleData(unsigned char** buf, int* len)
{
    *buf = new (std::nothrow) unsigned char[kHeaderSize];
    if (*buf == nullptr) {
        return 1;
    }
    memcpy(*buf, kTickle, kHeaderSize);
    *len = kHeaderSize;
    return 0;
}

int HBN3::createBuffer()
{
    if (!pBuff) {
        pBuff.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(iBuffSize)]());
    }
    return pBuff ? 0 : 1;
}

void HBN3::destroyBuffer()
{
    pBuff.reset();
    iSize = 0;
    iPtr = 0;
}

// Takes bytes out of the front of the buffer; what they leave behind is zero.
void HBN3::take(int count)
{
    iPtr -= count;
    memmove(pBuff.get(), pBuff.get() + count, static_cast<std::size_t>(iPtr));
    memset(pBuff.get() + iPtr, 0, static_cast<std::size_t>(count));
}

int HBN3::updateSize()
{
    const int result = CheckHeader(pBuff.get(), iPtr);
    if (result != 0) {
        return result;
    }
    const int length = getHBNSize(pBuff.get(), iPtr);
    if (length != 0) {
        iSize = length;
    }
    take(kHeaderSize);
    return 0;
}

int HBN3::setHBNData(const unsigned char* data, const int* size)
{
    SL_START_TO(log);
    if (createBuffer() != 0) {
        SL_RETURN_TO(log, 1);
    }
    if (data == nullptr || *size < 1) {
        SL_RETURN_TO(log, 3);
    }
    if (*size > iBuffSize - iPtr) {
        SL_RETURN_TO(log, 1);
    }
    memcpy(pBuff.get() + iPtr, data, static_cast<std::size_t>(*size));
    iPtr += *size;
    updateSize();
    SL_RETURN_TO(log, 0);
}

const unsigned char* HBN3::takeInPlace(const unsigned char* data, int* size)
{
    const int length = *size - kHeaderSize;
    const bool isWholeFrame = length >= kSmallestPiece && *size <= iBuffSize &&
                              CheckHeader(data, *size) == 0 && getHBNSize(data, *size) == length;
    if (!isWholeFrame || iPtr > 0 || CLogger::debugEnabled()) {
        return nullptr;
    }
    iSize = 0;
    *size = length;
    return data + kHeaderSize;
}

// The second line does not tell anything: a search for the magic never gets to the last
// byte, where a match has no room.
void HBN3::traceMagic(const unsigned char* data, int size) const
{
    if (std::search(data, data + size, std::begin(kMagic), std::end(kMagic)) != data + size) {
        SL_TRACE_TO(
            log, "12found unwanted tickle data //////////////////////////////////////////////////");
    }
    SL_TRACE_TO(log,
                "found unwanted tickle data //////////////////////////////////////////////////");
}

int HBN3::getHBNData(unsigned char* out, int* size)
{
    SL_START_TO(log);
    *size = 0;
    if (iSize < 0) {
        if (iPtr > 0) {
            updateSize();
        }
        SL_RETURN_TO(log, 1);
    }
    const int piece = std::min(iPtr, iSize);
    if (piece < kSmallestPiece) {
        SL_RETURN_TO(log, 3);
    }
    memcpy(out, pBuff.get(), static_cast<std::size_t>(piece));
    *size = piece;
    iSize -= piece;
    take(piece);
    const int result = iPtr > 0 ? updateSize() : 0;
    if (CLogger::debugEnabled()) {
        traceMagic(out, piece);
    }
    SL_RETURN_TO(log, result);
}
