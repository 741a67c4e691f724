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
    struct ACEntry {
        std::int16_t value;
        std::uint8_t run;  // or one of the marks
        std::uint8_t length;
    };
    struct Tables {
        DCEntry dc[kEntries];
        ACEntry ac[kEntries];
    };
    struct Bits;

    static void build(const HuffCodec& codec, Tables& tables);
    static DCEntry dcEntry(const HuffCodec& codec, unsigned peeked);
    static ACEntry acEntry(const HuffCodec& codec, unsigned peeked);
    bool unstuff(const unsigned char* data, int len);
    void prepare(const wicket::Kernel& kernel, const int* luminance, const int* chrominance);
    bool decodeBlock(Bits& bits, int component, std::int16_t* block, wicket::Extent* extent);
    bool decodeLong(Bits& bits, int component, ACEntry entry, std::int16_t* block, unsigned* next);
    bool decodeGroup(Bits& bits, int components, std::size_t count);

    static constexpr std::size_t kGroup = 16;  // positions that are decoded before they are drawn
    static constexpr std::size_t kPlaneStep = kGroup * 64;

    const Huffman& codes;
    bool hasStuffing;
    Tables tables[2];
    std::int16_t coefficients[3 * kPlaneStep];
    wicket::Extent extents[3 * kGroup];
    int previousDC[3];
    std::uint16_t places[64];  // of the coefficients of the stream in an interleaved group
    std::int16_t dequant[2][4 * 64];
    std::size_t atOnce = 1;

    std::unique_ptr<unsigned char[]> body;  // without stuffing, zeros behind
    std::size_t bodyRoom = 0;
    std::size_t bodySize = 0;
};
