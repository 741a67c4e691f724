// SPDX-License-Identifier: LGPL-2.1-or-later
// The block-transform decoder: the body of a chunk becomes grey or RGB lines.
#pragma once

#include "wicket/FastDecoder.h"
#include "wicket/Huffman.h"
#include "wicket/Kernel.h"

#include <memory>

class Wicket {
public:
    // Besides the statuses of Huffman and HuffCodec.
    static constexpr int kBadWidth = 769;
    static constexpr int kBadHeight = 770;
    static constexpr int kTooManyCoefficients = 771;

    explicit Wicket(int byteStuffing);

    // Of the following chunks. Returns 0.
    int QualityFactor(int q) { return QualityFactor(q, q); }
    int QualityFactor(int luminance, int chrominance);

    // Decode a chunk body of len bytes. out takes width * height samples (one plane) or three
    // times as many bytes (three planes); all of them are written.
    //
    // Grey goes on behind a block that cannot be decoded: the samples of the last good block
    // stand in for it, or mid-grey when there was none. Colour ends at the first such block
    // with its status, and what is left is zero; the blocks above it are kept.
    int DecompressOnePlane(const unsigned char* data, int len, unsigned char* out, int width,
                           int height, int* bytesGen, int* bytesConverted);
    int DecompressThreePlanes(const unsigned char* data, int len, unsigned char* out, int width,
                              int height, int* bytesGen, int* bytesConverted);

    // One block, from the data given to decoder(). samples stay as they are on failure.
    int DecompressBlock(int* samples, int component);
    int DequantizeBlock(int* block, int component) const;
    // blocks: 64 samples each of Y, Cb, Cr. out is the first pixel; width: pixels of a line.
    int YCbCrToRGB(const int* blocks, unsigned char* out, int width);
    static void Transpose(int* block);

    // Streams without errors take the fast path, by default with the best kernel that the
    // processor has; null: never. The results are the same.
    void useKernel(const wicket::Kernel* kernel) { m_pKernel = kernel; }
    static const wicket::Kernel* bestKernel();

    Huffman& decoder() { return m_Huff; }
    const int* quantTable(int component) const;
    const int* dequantTable(int component) const;

private:
    int checkPlane(int width, int height, int unstuffedUnit) const;
    bool decodeFast(const unsigned char* data, int len, const FastDecoder::Plane& plane,
                    int* bitsUsed);
    void decodeGrey(unsigned char* out, int width, int height);
    int decodeColour(unsigned char* out, int width, int height);
    int decodeCoefficients(int* coefficients, int component);
    static void ScaleTable(const int* base, int* quant, int* dequant, int q, int factor);

    int iStatus = 0;
    int aiPreviousDC[3] = {};
    const int m_iRGBShiftBits = 10;
    const int m_iRoundAdder = 128;
    int m_aiLuminanceQuantTable[64] = {};
    int m_aiChrominanceQuantTable[64] = {};
    int m_aiLuminanceDequantTable[64] = {};
    int m_aiChrominanceDequantTable[64] = {};
    int m_iNumBytesGenerated = 0;
    Huffman m_Huff;
    int m_ByteStuffing;
    std::unique_ptr<FastDecoder> m_pFast;
    const wicket::Kernel* m_pKernel;
};
