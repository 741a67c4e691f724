// SPDX-License-Identifier: LGPL-2.1-or-later
// The decompression stage: compressed chunks become lines.
#pragma once

#include "CLogger.h"
#include "ConfigReader.h"
#include "DataBuffer.h"
#include "ImageData.h"
#include "wicket/Decomp.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

// Chunks can only be found one behind the other. One of an impossible size, or one that the
// decompressor does not consume, hides all that follows on its page.
class DeCompHandler : public CLogger {
public:
    DeCompHandler() = default;
    DeCompHandler(const DeCompHandler&) = delete;
    DeCompHandler& operator=(const DeCompHandler&) = delete;
    virtual ~DeCompHandler();

    // Reads the settings of the coming scan and forgets the page before. Returns 1, or 0 without
    // memory for the decompressor.
    int Initialize(ConfigReader* cfg);

    // Handles one chunk on the raw side of in: it becomes finished lines at the end of
    // the processed part. Uncompressed data is marked processed as it is. 1: done, 0: no
    // chunk could be decompressed; its bytes stay raw.
    int Decompress(DataBuffer* in, ImageData* img);
    // The same for a caller that has asked debugEnabled() itself, once for many blocks.
    int Decompress(DataBuffer* in, ImageData* img, bool isTracing);

    // Drops the raw bytes of in once the page has a chunk that hides the rest, so that the
    // device can be read to its end without the bytes piling up. Else does nothing.
    void DropHidden(DataBuffer* in);

    // At the end of the data, of which in holds what could not be decompressed. false: lines
    // were lost with a part of the stream. Bytes behind a complete page cost none, and neither
    // do zeros; a page may be shorter than announced when all of its chunks are whole.
    bool Finish(DataBuffer* in) const;

protected:
    // The decompressor for a compression technology, or null.
    virtual std::unique_ptr<CDecomp> createDecompressor(int technology);

private:
    static bool isPadding(DataBuffer* in);
    int chunkSize(const unsigned char* raw, int rawSize) const;
    int outputSize(int chunk) const;
    bool isImpossible(int chunk) const;
    int blockSize(int chunk) const;
    void clearBlock(unsigned char* out, int outSize, int room) const;
    unsigned char* outputBlock(int size);
    int decompressChunk(DataBuffer* in, unsigned char* raw, int chunk);
    int wholeLines(int bytes, int room) const;
    void copyLines(const unsigned char* lines, int count, unsigned char* to) const;

    std::unique_ptr<CDecomp> DeCompressor;
    // Serves all chunks of a page; what an earlier one left is still in it.
    std::unique_ptr<unsigned char, decltype(&free)> outBlock{nullptr, free};
    int outCapacity = 0;
    bool isRestHidden = false;
    bool isRestLost = false;   // there was more in it than padding
    bool isChunkLost = false;  // one was consumed without all of its lines
    std::int64_t linesMade = 0;
    int CompressionType = 0;
    int width = 0;
    int height = 0;
    int channels = 0;
    int complevel = 0;
    int bits_per_channel = 8;
    int stride = 0;
};
