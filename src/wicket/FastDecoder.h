// SPDX-License-Identifier: LGPL-2.1-or-later
// The fast path of the block-transform decoder.
#pragma once

#include "wicket/Huffman.h"
#include "wicket/Kernel.h"

#include <cstddef>
#include <cstdint>
#include <memory>

// Decodes whole planes of streams without errors. Whatever is unusual about a stream makes it
// give up: the plane then holds anything, and the scalar path decodes the stream from its start.
class FastDecoder {
public:
    // isStuffed: a byte behind 0xFF carries no data.
    FastDecoder(const Huffman& huffman, bool isStuffed);

    struct Plane {
        unsigned char* out;
        std::size_t width;
        std::size_t height;
        int components;  // 1 or 3
    };
    // dequant: tables in natural order. *bitsUsed: as the scalar path counts them. False: given
    // up.
    bool decode(const wicket::Kernel& kernel, const unsigned char* data, int len,
                const Plane& plane, const int* luminance, const int* chrominance,
                std::int64_t* bitsUsed);

    static constexpr int kPeekBits = 11;  // of the stream, looked up at once

private:
    static constexpr int kEntries = 1 << kPeekBits;

    // A code with its value, where both fit into kPeekBits.
    struct DCEntry {
        std::int16_t value;
        std::uint8_t length;  // 0: no code
        std::uint8_t size;    // of the value when it did not fit, else 0
    };
    // One or two codes with their values, as far as they fit. kEnd in place of a run ends the
    // block. kLong stands alone, for a code that does not fit or whose value does not: first is
    // its symbol then and second its length, or 0.
    struct ACEntry {
        std::int16_t first;
        std::int16_t second;  // the first again when there is none
        std::uint8_t run;
        std::uint8_t step;  // from the first coefficient to the second
        std::uint8_t firstLength;
        std::uint8_t length;  // of both
    };
    struct Tables {
        DCEntry dc[kEntries];
        ACEntry ac[kEntries];
        unsigned endLength;  // of the code that ends a block
    };
    struct Bits;

    static void build(const HuffCodec& codec, Tables& made);
    static DCEntry dcEntry(const HuffCodec& codec, unsigned peeked);
    static ACEntry acSymbol(const HuffCodec& codec, unsigned peeked);
    static ACEntry acEntry(const HuffCodec& codec, unsigned peeked);
    bool unstuff(const unsigned char* data, int len);
    void prepare(const wicket::Kernel& kernel, const int* luminance, const int* chrominance);
    bool decodeBlock(Bits& bits, int component, std::int16_t* block, wicket::Extent* extent);
    bool decodeLong(Bits& bits, int component, const ACEntry& entry, std::int16_t* block,
                    unsigned* next);
    bool decodeGroup(Bits& shared, int components, std::size_t count);

    static constexpr std::size_t kGroup = 16;  // positions that are decoded before they are drawn
    static constexpr std::size_t kPlaneStep = kGroup * 64;

    const Huffman& codes;
    bool hasStuffing;
    Tables tables[2];
    std::int16_t coefficients[3 * kPlaneStep];
    wicket::Extent extents[3 * kGroup];
    int previousDC[3];
    // Of the coefficients of the stream in an interleaved group; behind the 64th, that of DC.
    std::uint16_t places[256];
    std::int16_t dequant[2][4 * 64];
    std::size_t atOnce = 1;

    std::unique_ptr<unsigned char[]> body;  // without stuffing, zeros behind
    std::size_t bodyRoom = 0;
    std::size_t bodySize = 0;
};
