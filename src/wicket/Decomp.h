// SPDX-License-Identifier: LGPL-2.1-or-later
// The decompressor interface that the decompression stage drives.
#pragma once

class CDecomp {
public:
    static constexpr int DECOMP_ERROR = -1;
    static constexpr int DECOMP_DONE = 1;
    static constexpr int DECOMP_LINE_COMPLETED = 2;
    static constexpr int DECOMP_ERROR_MORE_DATA = 3;

    virtual ~CDecomp() = default;

    // Geometry of the finished lines: pixels, lines, channels a pixel, bits a pixel.
    virtual void StartDecomp(int width, int height, int channels, int bitsPerPixel) = 0;
    virtual void EndDecomp() = 0;
    // Decodes one chunk of inLen bytes into at most outLen bytes. *bytesConverted and
    // *bytesGen receive what was consumed and produced. Returns a status above.
    //
    // out may hold anything before, earlier lines too. Each byte of the lines that *bytesGen
    // announces, and of the pad bytes between them, is written or zeroed, as far as out goes.
    virtual int Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out,
                       int outLen, int* bytesGen) = 0;
    virtual void SetQualityFactor(int /*quality*/) {}
    virtual int GetMaxLinesPerBand() { return 1; }
    virtual int GetNumPadBytesPerLine() { return m_NumPadBytesPerLine; }

protected:
    // Bytes that the decoder leaves behind each output line.
    int m_NumPadBytesPerLine = 0;
};
