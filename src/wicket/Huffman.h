// SPDX-License-Identifier: LGPL-2.1-or-later
// Reads the bits of a chunk body and decodes its symbols.
#pragma once

#include "wicket/HuffCodec.h"

class Huffman {
public:
    static constexpr int kInputExhausted = 513;  // besides the statuses of HuffCodec

    // stuffed: 1 when a byte 0xFF is followed by one that carries no data.
    int Initialize(int stuffed);
    // Starts to read at data, which must stay until the last symbol is decoded.
    int DecodeData(const unsigned char* data, int len);

    // component 0 uses the luminance codes, any other the chrominance codes. A failed call
    // has consumed at most the code in front of the value that was missing.
    int DecodeDCSymbol(int* diff, int component);
    // *run: 0..15 zeros before *value, 16: sixteen zeros without a value, -1: end of block.
    int DecodeACSymbol(int* run, int* value, int component);
    int DecodeVLI(int size, int* value);

    // Bits consumed.
    int DecodeBitPosition() const { return iDecodeBitsUsed; }
    // 1 when the codec of that component (0 or 1) is ready, else 0.
    int CodecValid(int codec) const;

    const HuffCodec& codecOf(int component) const { return component == 0 ? m_codec1 : m_codec2; }

private:
    int refill(int bits);
    int peek(int bits) const;
    void consume(int bits);

    int iStuffedData = 0;
    const unsigned char* pbDecodeData = nullptr;
    int iDecodeDataSize = 0;
    int iDecodeDataLeft = 0;
    unsigned iDecodeBuff = 0;
    int iDecodeBuffBits = 0;
    int iDecodeBitsUsed = 0;
    int iCodecCount = 0;
    HuffCodec m_codec1;
    HuffCodec m_codec2;
};
