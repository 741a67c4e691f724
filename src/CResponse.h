// SPDX-License-Identifier: LGPL-2.1-or-later
// One reply block of the scanner.
#pragma once

#include "CLogger.h"
#include "CProps.h"

#include <memory>

// Byte 0 is ESC, byte 1 the command class, byte 2 the command code, bytes 4-5 the
// length of what follows byte 7 (little-endian), byte 6 the status, byte 7 the feeder
// status, byte 8 the record response, byte 9 the flip flag. The data of a properties
// reply starts at byte 8.
class CResponse : public CLogger {
public:
    // Copies a reply, in the place of an earlier one. 0, 2 for null or no memory,
    // 3 for fewer than 6 bytes (the earlier reply stays).
    int setHeader(const unsigned char* data, int size);
    static constexpr int kLost = 2;

    // The number of the command that the reply answers; 0 also for an unknown reply.
    int getReply() const;
    // The byte, or -1 when it has not arrived.
    int getStatus() const;
    int getADFStatus() const;
    int getRecordResponse() const;
    // 1 when the page is flipped, else 0.
    int isFlipped() const;
    // The parsed properties, or null. They belong to this object.
    CProps* getProperties() const;
    // Parses the reply as properties; 0, or 2 for no memory.
    int processProps();

private:
    int replyCode() const;

    std::unique_ptr<unsigned char[]> pData;
    std::unique_ptr<CProps> property;
    int iSize = 0;
};
