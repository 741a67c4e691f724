// SPDX-License-Identifier: LGPL-2.1-or-later
// The frames of the network protocol: a stream of frames becomes their payloads.
#pragma once

#include "CLogger.h"

#include <memory>

// A frame is a header of nine bytes, "HBN3", an unused byte and the length of the payload
// (4 bytes, big-endian), followed by the payload.
class HBN3 {
public:
    HBN3();
    HBN3(const HBN3&) = delete;
    HBN3& operator=(const HBN3&) = delete;
    ~HBN3();

    static constexpr int kHeaderSize = 9;

    // 0 if buf starts with a frame header, else 1.
    static int CheckHeader(const unsigned char* buf, int len);
    // The payload length as a signed number; -1 also when the header has not arrived.
    static int getHBNSize(const unsigned char* buf, int len);
    // The greeting, freed by the caller with delete[]. 0, or 1 without memory.
    static int getTickleData(unsigned char** buf, int* len);

    // 0, or 1 without memory.
    int createBuffer();
    // Forgets everything received.
    void destroyBuffer();

    // Appends *size received bytes. 0, 1: no room or no memory (nothing is appended),
    // 3: nothing given.
    int setHBNData(const unsigned char* data, const int* size);
    // Hands out what is there of the current payload; out has room for the whole buffer,
    // *size becomes the number of bytes. 0, 1: nothing there, or the next frame does not
    // start with a header, 3: fewer than two bytes, which are never handed out.
    int getHBNData(unsigned char* out, int* size);
    // What the two together make of a whole frame while nothing is held, without a copy: its
    // payload, inside of data. Null where it takes the two, and while they are traced.
    const unsigned char* takeInPlace(const unsigned char* data, int* size);
    // Strips a header off the front of the buffer. 0, or 1 when there is none. A header
    // with length 0 leaves the size of the current payload as it is.
    int updateSize();

protected:
    static constexpr int kCapacity = 80000;

    int iSize = 0;  // bytes of the current payload not yet handed out
    std::unique_ptr<unsigned char[]> pBuff;
    int iPtr = 0;  // bytes in the buffer
    int iBuffSize = kCapacity;
    CLogger log;

private:
    void take(int count);
    void traceMagic(const unsigned char* data, int size) const;
};
