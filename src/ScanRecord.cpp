// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScanRecord.h"

#include "DataBuffer.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "ImageData.h"
#include "RecordBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr int kHeaderSize = 8;  // what the length field does not count
constexpr int kResponseOffset = 8;
constexpr int kInterleaveOffset = 10;
constexpr int kGeometryOffset = 11;
constexpr int kPageMarkerSize = 31;

}  // namespace

bool ScanRecord::isRecord(const unsigned char* block, int size, int pending)
{
    if (size <= kResponseOffset || block[0] != 0x1B || block[1] != 'S' || block[2] != 0x02 ||
        block[kResponseOffset] == 0) {
        return false;
    }
    return pending <= 0 || RecordBytes::int16(block + 4) + kHeaderSize == size;
}

void ScanRecord::processPageMarker(const unsigned char* block, int size, ImageData* image) const
{
    unsigned char marker[kPageMarkerSize] = {};
    memcpy(marker, block, static_cast<std::size_t>(std::min(size, kPageMarkerSize)));
    const auto field = [&marker](std::size_t n) {
        return RecordBytes::int32(marker + kGeometryOffset + 4 * n);
    };
    const int width = field(0);
    const int height = field(1);
    const int offsetX = field(2);
    const int offsetY = field(3);
    const int trim = field(4);

    SL_TRACE("values from scan record data w/ page marker:");
    SL_TRACE(" -> width = %d", width);
    SL_TRACE(" -> height = %d", height);
    SL_TRACE(" -> offsetx = %d", offsetX);
    SL_TRACE(" -> offsety = %d", offsetY);
    SL_TRACE(" -> trim = %d", trim);
    image->RecordAttributes(width, height);
    if (marker[kInterleaveOffset] == 1) {
        SL_TRACE("interleaving is needed");
        image->SetInterleaveInfo(width, height, offsetX, offsetY, trim);
    } else {
        SL_TRACE("interleaving is NOT needed");
    }
}

int ScanRecord::process(const unsigned char* block, int size, ImageData* image) const
{
    if (block[kResponseOffset] == RECORD_PAGE_MARKER) {
        processPageMarker(block, size, image);
    }
    // Without a CResponse: the end of a page must not get lost for want of memory.
    return RecordBytes::byteAt(block, size, kResponseOffset);
}

int ScanRecord::addImageBytes(ICommand* cmd, DataBuffer* scanData, const unsigned char* block,
                              int size, DataBuffer* buffer, bool isTracing)
{
    if (scanData->SetRawData(block, size) == 0) {
        return -1;
    }
    return moveImageBytes(cmd, scanData, buffer, isTracing);
}

int ScanRecord::moveImageBytes(ICommand* cmd, DataBuffer* scanData, DataBuffer* buffer,
                               bool isTracing)
{
    int moved = 0;
    bool isMore = true;
    while (isMore) {
        isMore = cmd->removeBlockHeaders(scanData, isTracing) != 0;
        const int ready = scanData->GetProcessedDataSize();
        if (ready > 0 && scanData->GetProcessedData(buffer, ready) != ready) {
            return -1;
        }
        moved += ready;
    }
    return moved;
}
