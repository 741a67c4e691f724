// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/HuffCodec.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace {

constexpr int kEndOfBlock = 160;
constexpr int kSixteenZeros = 161;

std::int64_t total(const int* counts)
{
    std::int64_t sum = 0;
    for (int i = 0; i < HuffCodec::kLengths; ++i) {
        sum += std::max(counts[i], 0);
    }
    return sum;
}

}  // namespace

int HuffCodec::Initialize(const int* dcCounts, const int* acCounts, const int* acValues)
{
    m_bInitialized = false;
    const int status = GenerateCodes(dcCounts, acCounts, acValues);
    if (status != 0) {
        return status;
    }
    m_bInitialized = true;
    buildDCIndex();
    buildACTable();
    return 0;
}

int HuffCodec::GenerateCodes(const int* dcCounts, const int* acCounts, const int* acValues)
{
    iTableReady = 0;
    int status = generateDCCodes(dcCounts);
    if (status == 0) {
        status = generateACCodes(acCounts, acValues);
    }
    if (status == 0) {
        iTableReady = 1;
    }
    return status;
}

int HuffCodec::generateDCCodes(const int* counts)
{
    std::fill(std::begin(asDCHuffman), std::end(asDCHuffman), Code{});
    if (total(counts) != kDCSymbols) {
        return kBadDCTotal;
    }
    int code = 0;
    int symbol = 0;
    for (int length = 1; length <= kLengths; ++length) {
        for (int i = 0; i < counts[length - 1]; ++i) {
            asDCHuffman[symbol++] = {code++, length, 1};
        }
        code <<= 1;
    }
    return 0;
}

int HuffCodec::generateACCodes(const int* counts, const int* values)
{
    std::fill(std::begin(asHuffman), std::end(asHuffman), Code{});
    bool isTwice = false;
    int code = 0;
    int next = 0;
    for (int length = 1; length <= kLengths; ++length) {
        iMinCodeForLength[length] = code;
        iOffsetForLength[length] = next;
        for (int i = 0; i < counts[length - 1] && next < kACSymbols; ++i) {
            const int index = CodeIndex(values[next++]);
            if (index < 0) {
                return kNoCodeIndex;
            }
            isTwice = isTwice || asHuffman[index].iUsed != 0;
            asHuffman[index] = {code++, length, 1};
        }
        iMaxCodeForLength[length] = code - 1;
        code <<= 1;
    }
    if (total(counts) != kACSymbols) {
        return kBadACTotal;
    }
    // As many symbols as there are indices: one is missing only if another occurs twice.
    return isTwice ? kBadACSymbols : 0;
}

int HuffCodec::CodeIndex(int rs)
{
    if (rs == 0) {
        return kEndOfBlock;
    }
    if (rs == 0xF0) {
        return kSixteenZeros;
    }
    const int run = rs >> 4;
    const int size = rs & 15;
    if (size < 1 || size > 10 || run < 0 || run > 15) {
        return -1;
    }
    return (size - 1) * 16 + run;
}

int HuffCodec::RSSymbol(int index)
{
    if (index < 0 || index > kSixteenZeros) {
        return -1;
    }
    if (index == kEndOfBlock) {
        return 0;
    }
    if (index == kSixteenZeros) {
        return 0xF0;
    }
    return (index & 15) * 16 + (index >> 4) + 1;
}

void HuffCodec::buildDCIndex()
{
    std::fill(std::begin(aiDecodeDCIndex), std::end(aiDecodeDCIndex), -1);
    for (int k = 0; k < kDCSlots; ++k) {
        const Code& code = asDCHuffman[k];
        if (code.iUsed == 0) {
            continue;
        }
        if (code.iLength <= 8) {
            const int first = std::min(code.iCode << (8 - code.iLength), 256);
            std::fill(aiDecodeDCIndex + first, std::end(aiDecodeDCIndex), k);
        } else if (aiDecodeDCIndex[k] == -1) {
            // Looks at the entry of the symbol, not of the prefix: long codes are found by
            // the upward search, and the results depend on it.
            aiDecodeDCIndex[(code.iCode >> (code.iLength - 8)) & 255] = k;
        }
    }
}

void HuffCodec::buildACTable()
{
    std::fill(std::begin(asDecodeTable), std::end(asDecodeTable), asTableEntry{});
    for (int index = 0; index < kACSymbols; ++index) {
        const Code& code = asHuffman[index];
        const int free = kLengths - code.iLength;
        // Counts that overfill the code space make codes beyond 16 bits.
        const std::int64_t first = static_cast<std::int64_t>(code.iCode) << free;
        const std::int64_t last = std::min<std::int64_t>(first | ((1 << free) - 1), 65535);
        for (std::int64_t entry = first; entry <= last; ++entry) {
            asDecodeTable[entry] = {RSSymbol(index), code.iLength};
        }
    }
}

int HuffCodec::DecodeDCSymbol(int lookahead16, int* symbol, int* length) const
{
    const int first = aiDecodeDCIndex[(lookahead16 >> 8) & 255];
    if (first < 0) {
        return kNoSuchCode;
    }
    int k = first;
    if (asDCHuffman[k].iUsed == 0 || asDCHuffman[k].iLength >= 8) {
        const auto matches = [&](const Code& code) {
            return code.iUsed != 0 &&
                   code.iCode == (lookahead16 & 0xFFFF) >> (kLengths - code.iLength);
        };
        while (k < kDCSlots && !matches(asDCHuffman[k])) {
            ++k;
        }
        if (k == kDCSlots) {
            return kNoSuchCode;
        }
    }
    *symbol = k;
    *length = asDCHuffman[k].iLength;
    return 0;
}

int HuffCodec::DecodeACSymbol(int lookahead16, int* symbol, int* length) const
{
    const asTableEntry& entry = asDecodeTable[lookahead16 & 0xFFFF];
    if (entry.iLength == 0) {
        return kNoSuchCode;
    }
    *symbol = entry.iSymbol;
    *length = entry.iLength;
    return 0;
}
