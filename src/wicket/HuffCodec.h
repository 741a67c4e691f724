// SPDX-License-Identifier: LGPL-2.1-or-later
// One pair of DC and AC code tables of the block-transform codec, ready for decoding.
#pragma once

class HuffCodec {
public:
    static constexpr int kLengths = 16;
    static constexpr int kDCSymbols = 12;
    static constexpr int kACSymbols = 162;
    static constexpr int kDCSlots = 16;

    // Statuses; 0 is success.
    static constexpr int kNoCodeIndex = 1;
    static constexpr int kBadDCTotal = 257;
    static constexpr int kBadACTotal = 258;
    static constexpr int kBadACSymbols = 259;
    static constexpr int kNoSuchCode = 261;

    // Takes the number of codes of each length 1..16 and, for AC, as many symbol values as
    // the counts announce (at most 162 are read). Builds the codes and the decode tables.
    int Initialize(const int* dcCounts, const int* acCounts, const int* acValues);
    int GenerateCodes(const int* dcCounts, const int* acCounts, const int* acValues);

    // AC symbol value to code index, -1 for none, and back.
    static int CodeIndex(int rs);
    static int RSSymbol(int index);

    // Decode the code at the top of 16 bits. Nothing is written on failure.
    int DecodeDCSymbol(int lookahead16, int* symbol, int* length) const;
    int DecodeACSymbol(int lookahead16, int* symbol, int* length) const;

    bool isReady() const { return iTableReady != 0 && m_bInitialized; }
    int codeOfAC(int index) const { return asHuffman[index].iCode; }
    int lengthOfAC(int index) const { return asHuffman[index].iLength; }

private:
    struct Code {
        int iCode;
        int iLength;
        int iUsed;
    };
    struct asTableEntry {
        int iSymbol;
        int iLength;
    };

    int generateDCCodes(const int* counts);
    int generateACCodes(const int* counts, const int* values);
    void buildDCIndex();
    void buildACTable();

    Code asDCHuffman[kDCSlots] = {};
    Code asHuffman[kACSymbols] = {};
    int aiDecodeDCIndex[256] = {};
    asTableEntry asDecodeTable[65536] = {};
    int iMinCodeForLength[kLengths + 1] = {};
    int iMaxCodeForLength[kLengths + 1] = {};
    int iOffsetForLength[kLengths + 1] = {};
    int iTableReady = 0;
    bool m_bInitialized = false;
};
