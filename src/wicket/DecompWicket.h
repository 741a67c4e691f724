// SPDX-License-Identifier: LGPL-2.1-or-later
// The decompressor for chunks of the block-transform codec.
#pragma once

#include "CLogger.h"
#include "wicket/Decomp.h"

#include <memory>

class Wicket;

// A chunk starts with four 32-bit big-endian fields: its size (header included), its height
// and width in pixels, and its quality factor.
class CDecompWicket : public CDecomp, public CLogger {
public:
    static constexpr int kHeaderSize = 16;

    explicit CDecompWicket(int byteStuffing);
    CDecompWicket(const CDecompWicket&) = delete;
    CDecompWicket& operator=(const CDecompWicket&) = delete;
    ~CDecompWicket() override;

    // Of a chunk whose header is there.
    static int GetChunkSize(const void* chunk);
    static int GetChunkHeight(const void* chunk);
    static int GetChunkWidth(const void* chunk);
    static int GetChunkQualityFactor(const void* chunk);

    void StartDecomp(int width, int height, int channels, int bitsPerPixel) override;
    void EndDecomp() override {}
    // in is a ring of inLen bytes from which successive calls take successive chunks. Bytes of
    // a header that the ring is too short for read as zero.
    //
    // DECOMP_ERROR with nothing generated: the chunk does not fit into the ring or its blocks
    // into out; a chunk whose blocks do not fit is consumed all the same. A chunk of size 0, like
    // an empty ring, or of width 0 does nothing, *bytesConverted and *bytesGen included. Otherwise
    // all bytes of out that belong to the lines announced are written, which may be more lines
    // than out holds; what could not be decoded is described at Wicket.
    int Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out, int outLen,
               int* bytesGen) override;
    void SetQualityFactor(int quality) override { m_iQualityFactor = quality; }
    int GetMaxLinesPerBand() override { return 32; }

    // Writes a chunk to a file in /tmp, for diagnosis.
    void DumpCompressedData(const unsigned char* chunk, int index);

private:
    struct Header {
        int size;
        int height;
        int width;
        int quality;
    };

    void copyFromRing(const unsigned char* in, int inLen, unsigned char* dst, int count) const;
    int chunkSize(const unsigned char* in, int inLen) const;
    Header readHeader(const unsigned char* chunk, int size, int there);
    bool fits(const Header& header, int outLen) const;
    int paddedWidth(int width) const;
    int decodeBody(const unsigned char* chunk, const Header& header, unsigned char* out);
    void clearBehind(const Header& header, unsigned char* out, int outLen) const;
    int decodeChunk(const unsigned char* chunk, const Header& header, int* bytesConverted,
                    unsigned char* out, int outLen, int* bytesGen);
    static void writeDump(const unsigned char* chunk, int index);

    std::unique_ptr<Wicket> m_pWicket;
    int m_Height = 0;
    int m_Width = 0;
    int m_NumChannels = 0;
    int m_BytesPerChannel = 0;  // bits a pixel
    int m_InputIndex = 0;
    int m_iQualityFactor = 0;
    int m_ByteStuffing;
};
