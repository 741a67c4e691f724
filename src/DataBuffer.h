// SPDX-License-Identifier: LGPL-2.1-or-later
// A growable byte store whose front is processed and whose tail is raw.
#pragma once

#include <cstddef>

// Bytes are appended on the raw side, marked processed from the front of the raw
// part, and taken out from the front of the store. All sizes are in bytes.
//
// The block behind the bytes grows by doubling and is kept when bytes are taken
// out, so a store that is filled and drained over and over allocates only until
// it has seen its largest load.
class DataBuffer {
public:
    DataBuffer() = default;
    DataBuffer(const DataBuffer&) = delete;
    DataBuffer& operator=(const DataBuffer&) = delete;
    ~DataBuffer();

    // Appends a copy of len bytes. 1: done; 0: nothing to append, or no memory
    // (the store is then unchanged).
    int SetRawData(const unsigned char* data, int len);
    // The first raw byte, or null when there is none.
    unsigned char* GetRawDataPtr();
    int GetRawDataSize() const { return iTotalSize - iProcessedDataSize; }

    // Marks n more bytes processed (at most all). 0 for a negative n, else 1.
    int SetProcessedDataSize(int n);
    int GetProcessedDataSize() const { return iProcessedDataSize; }
    int GetAllDataSize() const { return iTotalSize; }

    // Takes up to cap processed bytes out of the front; returns their number.
    int GetProcessedData(unsigned char* dst, int cap);
    // The same into another store, where they arrive on the raw side. 0 also when
    // that store has no memory for them; they then stay here.
    int GetProcessedData(DataBuffer* to, int cap);
    // Copies everything, takes nothing out. 0 when cap is smaller than the content.
    int GetAllData(unsigned char* dst, int cap) const;

    // Empties the store and frees its block.
    void Reset();

    // ---- in-place access for the pipeline stages ----

    // The first processed byte, or null when nothing is processed.
    unsigned char* GetProcessedDataPtr();
    // Drops up to n processed bytes from the front; returns their number.
    int DiscardProcessedData(int n);
    // Appends len bytes of room on the raw side for the caller to fill; null when
    // len is below 1 or there is no memory.
    unsigned char* ExtendRawData(int len);
    // Takes up to n bytes off the end of the raw part.
    void ShrinkRawData(int n);
    // Drops up to n bytes from the front of the raw part.
    void DiscardRawData(int n);
    // Replaces the first consumed raw bytes by len processed ones, for the caller to fill at
    // *room. false: no memory, nothing changed.
    bool ReplaceRawData(int consumed, int len, unsigned char** room);

protected:
    // Empties the store without giving up its block.
    void Clear();

private:
    bool reserve(std::size_t extra);

    unsigned char* pBlock = nullptr;  // malloc'd
    std::size_t iCapacity = 0;        // size of the block
    unsigned char* pImage = nullptr;  // the first byte held, inside the block
    int iTotalSize = 0;
    int iProcessedDataSize = 0;
};
