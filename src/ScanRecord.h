// SPDX-License-Identifier: LGPL-2.1-or-later
// The records and blocks of the image stream, the same over every transport.
#pragma once

#include "CLogger.h"

class DataBuffer;
class ICommand;
class ImageData;

class ScanRecord : public CLogger {
public:
    // True for a scan record: a block of its own that starts 1B 53 02 and has a
    // response in byte 8, where image blocks have 0. Inside an image block of which
    // pending bytes are still to come, image bytes may look the same by chance; there
    // the record's own length must fit the block as well.
    static bool isRecord(const unsigned char* block, int size, int pending);

    // Passes the geometry of a page marker on to image; returns the record response.
    int process(const unsigned char* block, int size, ImageData* image) const;

    // Appends the bytes of an image block to scanData, then moves as below.
    static int addImageBytes(ICommand* cmd, DataBuffer* scanData, const unsigned char* block,
                             int size, DataBuffer* buffer, bool isTracing);
    // Frees the raw bytes of scanData from block headers and moves the image bytes to
    // the raw side of buffer. Returns their number, or -1 without memory.
    static int moveImageBytes(ICommand* cmd, DataBuffer* scanData, DataBuffer* buffer,
                              bool isTracing);

private:
    void processPageMarker(const unsigned char* block, int size, ImageData* image) const;
};
