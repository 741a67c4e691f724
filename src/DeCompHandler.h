// The decompression stage: compressed chunks become lines.
#pragma once

#include "CLogger.h"
#include "ConfigReader.h"
#include "DataBuffer.h"
#include "ImageData.h"
#include "wicket/Decomp.h"

#include <memory>

class DeCompHandler : public CLogger {
public:
    DeCompHandler() = default;
    DeCompHandler(const DeCompHandler&) = delete;
    DeCompHandler& operator=(const DeCompHandler&) = delete;
    virtual ~DeCompHandler();

    // Reads the settings of the coming scan. Returns 1.
    int Initialize(ConfigReader* cfg);

    // Handles one chunk on the raw side of in: it becomes finished lines at the end of
    // the processed part. Uncompressed data is marked processed as it is. 1: done, 0: no
    // chunk could be decompressed; its bytes stay raw.
    int Decompress(DataBuffer* in, ImageData* img);

protected:
    // The decompressor for a compression technology, or null.
    virtual std::unique_ptr<CDecomp> createDecompressor(int technology);

private:
    int chunkSize(const unsigned char* raw, int rawSize) const;
    int decompressChunk(DataBuffer* in, unsigned char* raw, int chunk);
    int packLines(unsigned char* lines, int bytes, int room) const;

    std::unique_ptr<CDecomp> DeCompressor;
    int CompressionType = 0;
    int width = 0;
    int height = 0;
    int channels = 0;
    int complevel = 0;
    int bits_per_channel = 8;
    int stride = 0;
};
