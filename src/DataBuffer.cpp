// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DataBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t kSmallestBlock = 4096;

}  // namespace

DataBuffer::~DataBuffer()
{
    free(pBlock);
}

// Makes room for extra bytes behind the last one: by moving the content to the front
// of the block where at least half of the block is free, else by a larger block.
bool DataBuffer::reserve(std::size_t extra)
{
    const std::size_t held = static_cast<std::size_t>(iTotalSize);
    if (extra > static_cast<std::size_t>(std::numeric_limits<int>::max()) - held) {
        return false;
    }
    const std::size_t front = static_cast<std::size_t>(pImage - pBlock);
    if (front + held + extra <= iCapacity) {
        return true;
    }
    if (pBlock != nullptr && held + extra <= iCapacity / 2) {
        memmove(pBlock, pImage, held);
        pImage = pBlock;
        return true;
    }
    const std::size_t capacity = std::max({kSmallestBlock, 2 * iCapacity, 2 * (held + extra)});
    unsigned char* block = static_cast<unsigned char*>(malloc(capacity));
    if (block == nullptr) {
        return false;
    }
    if (held > 0) {
        memcpy(block, pImage, held);
    }
    free(pBlock);
    pBlock = block;
    pImage = block;
    iCapacity = capacity;
    return true;
}

unsigned char* DataBuffer::ExtendRawData(int len)
{
    if (len < 1 || !reserve(static_cast<std::size_t>(len))) {
        return nullptr;
    }
    unsigned char* room = pImage + iTotalSize;
    iTotalSize += len;
    return room;
}

int DataBuffer::SetRawData(const unsigned char* data, int len)
{
    if (data == nullptr) {
        return 0;
    }
    // The bytes may be the store's own, and growing moves those.
    const std::less<> isBefore;
    const bool isOwn =
        iTotalSize > 0 && !isBefore(data, pImage) && isBefore(data, pImage + iTotalSize);
    const std::ptrdiff_t offset = isOwn ? data - pImage : 0;
    unsigned char* room = ExtendRawData(len);
    if (room == nullptr) {
        return 0;
    }
    memcpy(room, isOwn ? pImage + offset : data, static_cast<std::size_t>(len));
    return 1;
}

unsigned char* DataBuffer::GetRawDataPtr()
{
    return GetRawDataSize() > 0 ? pImage + iProcessedDataSize : nullptr;
}

unsigned char* DataBuffer::GetProcessedDataPtr()
{
    return iProcessedDataSize > 0 ? pImage : nullptr;
}

int DataBuffer::SetProcessedDataSize(int n)
{
    if (n < 0) {
        return 0;
    }
    iProcessedDataSize += std::min(n, GetRawDataSize());
    return 1;
}

int DataBuffer::DiscardProcessedData(int n)
{
    n = std::clamp(n, 0, iProcessedDataSize);
    iProcessedDataSize -= n;
    iTotalSize -= n;
    pImage = iTotalSize > 0 ? pImage + n : pBlock;
    return n;
}

int DataBuffer::GetProcessedData(unsigned char* dst, int cap)
{
    if (cap < 1 || dst == nullptr || iProcessedDataSize < 1) {
        return 0;
    }
    const int n = std::min(iProcessedDataSize, cap);
    memcpy(dst, pImage, static_cast<std::size_t>(n));
    return DiscardProcessedData(n);
}

int DataBuffer::GetProcessedData(DataBuffer* to, int cap)
{
    const int n = std::min(iProcessedDataSize, cap);
    if (to == nullptr || n < 1) {
        return 0;
    }
    if (to->iTotalSize == 0 && n == iTotalSize) {
        // Everything goes into an empty store: hand over the block instead of a copy.
        std::swap(pBlock, to->pBlock);
        std::swap(iCapacity, to->iCapacity);
        std::swap(pImage, to->pImage);
        to->iTotalSize = n;
        Clear();
        return n;
    }
    return to->SetRawData(pImage, n) != 0 ? DiscardProcessedData(n) : 0;
}

int DataBuffer::GetAllData(unsigned char* dst, int cap) const
{
    if (dst == nullptr || iTotalSize < 1 || iTotalSize > cap) {
        return 0;
    }
    memcpy(dst, pImage, static_cast<std::size_t>(iTotalSize));
    return iTotalSize;
}

void DataBuffer::ShrinkRawData(int n)
{
    iTotalSize -= std::clamp(n, 0, GetRawDataSize());
}

// What is smaller moves: the processed part in front of the gap, or the raw one behind it.
void DataBuffer::DiscardRawData(int n)
{
    n = std::clamp(n, 0, GetRawDataSize());
    const int behind = GetRawDataSize() - n;
    if (iProcessedDataSize <= behind) {
        if (iProcessedDataSize > 0) {
            memmove(pImage + n, pImage, static_cast<std::size_t>(iProcessedDataSize));
        }
        pImage += n;
    } else if (behind > 0) {
        unsigned char* raw = pImage + iProcessedDataSize;
        memmove(raw, raw + n, static_cast<std::size_t>(behind));
    }
    iTotalSize -= n;
}

bool DataBuffer::ReplaceRawData(int consumed, int len, unsigned char** room)
{
    consumed = std::clamp(consumed, 0, GetRawDataSize());
    len = std::max(len, 0);
    if (len > consumed && !reserve(static_cast<std::size_t>(len - consumed))) {
        return false;
    }
    *room = pImage + iProcessedDataSize;
    if (consumed < GetRawDataSize()) {
        memmove(*room + len, *room + consumed,
                static_cast<std::size_t>(GetRawDataSize() - consumed));
    }
    iTotalSize += len - consumed;
    iProcessedDataSize += len;
    return true;
}

void DataBuffer::Clear()
{
    pImage = pBlock;
    iTotalSize = 0;
    iProcessedDataSize = 0;
}

void DataBuffer::Reset()
{
    free(pBlock);
    pBlock = nullptr;
    iCapacity = 0;
    Clear();
}
