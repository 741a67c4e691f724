// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/FastDecoder.h"

#include "wicket/WicketTables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace {

using wicket::Extent;

// In place of a run; they lead to positions that say what happened.
constexpr unsigned kEnd = 127;
constexpr unsigned kLong = 191;
// From these positions on, a second code may belong to the next block.
constexpr unsigned kPairsEnd = 48;

// Zeros behind the body: more than a group reads on. Zeros alone decode, too; the largest such
// blocks take 24 bytes of luminance and half a byte each of chrominance.
constexpr std::size_t kSlack = 512;

// Beyond it, the kernels cannot round a lone DC coefficient.
constexpr int kLargestDC = 32767 - 4;

// Of a block whose first count coefficients, in zig-zag order, may be other than zero.
Extent extentOf(unsigned count)
{
    constexpr unsigned kCorner = 10;
    return count <= 1 ? Extent::dc : count <= kCorner ? Extent::corner : Extent::all;
}

bool isInt16(int value)
{
    return value == static_cast<std::int16_t>(value);
}

// A value of the given size, from the bits behind its code.
int valueOf(std::uint64_t bits, int size)
{
    const auto magnitude = static_cast<int>(bits >> 1 >> (63 - size));
    const bool isNegative = size > 0 && (bits >> 63) == 0;
    return isNegative ? magnitude - (1 << size) + 1 : magnitude;
}

// The bits that were peeked at behind a code of the given length.
std::uint64_t behindCode(unsigned peeked, int length)
{
    return std::uint64_t{peeked} << (64 - FastDecoder::kPeekBits + length);
}

}  // namespace

// The bits of the body, the next one on top.
struct FastDecoder::Bits {
    const unsigned char* next;
    const unsigned char* start;
    const unsigned char* end;
    std::uint64_t top = 0;
    unsigned held = 0;
    unsigned lastSymbol = 0;  // bits of the last end of a block, 0 when it ended full

    // At least 56 bits.
    void refill()
    {
        std::uint64_t word = 0;
        memcpy(&word, next, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        word = __builtin_bswap64(word);
#endif
        top |= word >> held;
        next += (63 - held) >> 3;
        held |= 56;
    }
    void refillBelow32()
    {
        if (held < 32) {
            refill();
        }
    }
    unsigned peek() const
    {
        return static_cast<unsigned>(top >> (64 - kPeekBits));
    }
    void consume(unsigned count)
    {
        top <<= count;
        held -= count;
    }
    std::int64_t position() const
    {
        return (next - start) * 8 - static_cast<std::int64_t>(held);
    }
};

FastDecoder::FastDecoder(const Huffman& huffman, bool isStuffed)
    : codes(huffman), hasStuffing(isStuffed)
{
    build(huffman.codecOf(0), tables[0]);
    build(huffman.codecOf(1), tables[1]);
}

void FastDecoder::build(const HuffCodec& codec, Tables& made)
{
    for (unsigned peeked = 0; peeked < kEntries; ++peeked) {
        made.dc[peeked] = dcEntry(codec, peeked);
        made.ac[peeked] = acEntry(codec, peeked);
    }
    made.endLength = static_cast<unsigned>(codec.lengthOfAC(HuffCodec::CodeIndex(0)));
}

FastDecoder::DCEntry FastDecoder::dcEntry(const HuffCodec& codec, unsigned peeked)
{
    int size = 0;
    int length = 0;
    const int lookahead = static_cast<int>(peeked << (16 - kPeekBits));
    if (codec.DecodeDCSymbol(lookahead, &size, &length) != 0 || length > kPeekBits) {
        return {0, 0, 0};
    }
    if (length + size > kPeekBits) {
        return {0, static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(size)};
    }
    return {static_cast<std::int16_t>(valueOf(behindCode(peeked, length), size)),
            static_cast<std::uint8_t>(length + size), 0};
}

// The first code of the bits alone.
FastDecoder::ACEntry FastDecoder::acSymbol(const HuffCodec& codec, unsigned peeked)
{
    const auto alone = [](int value, int again, unsigned run, int length) {
        const auto bits = static_cast<std::uint8_t>(length);
        return ACEntry{static_cast<std::int16_t>(value),
                       static_cast<std::int16_t>(again),
                       static_cast<std::uint8_t>(run),
                       0,
                       bits,
                       bits};
    };
    int symbol = 0;
    int length = 0;
    const int lookahead = static_cast<int>(peeked << (16 - kPeekBits));
    if (codec.DecodeACSymbol(lookahead, &symbol, &length) != 0 || length > kPeekBits) {
        return alone(0, 0, kLong, 0);
    }
    if (symbol == 0) {
        return alone(0, 0, kEnd, length);
    }
    const int size = symbol & 15;
    if (length + size > kPeekBits || symbol == 0xF0) {
        return alone(symbol, length, kLong, 0);
    }
    const int value = valueOf(behindCode(peeked, length), size);
    return alone(value, value, static_cast<unsigned>(symbol) >> 4, length + size);
}

FastDecoder::ACEntry FastDecoder::acEntry(const HuffCodec& codec, unsigned peeked)
{
    ACEntry entry = acSymbol(codec, peeked);
    if (entry.run >= kEnd) {
        return entry;
    }
    const ACEntry next = acSymbol(codec, peeked << entry.length & (kEntries - 1));
    if (next.run == kLong || entry.length + next.length > kPeekBits) {
        return entry;
    }
    entry.second = next.first;
    entry.step = static_cast<std::uint8_t>(next.run + 1);
    entry.length = static_cast<std::uint8_t>(entry.length + next.length);
    return entry;
}

bool FastDecoder::unstuff(const unsigned char* data, int len)
{
    const auto size = static_cast<std::size_t>(std::max(data != nullptr ? len : 0, 0));
    if (bodyRoom < size + kSlack) {
        bodyRoom = 0;
        body.reset(new (std::nothrow) unsigned char[size + size / 2 + kSlack]);
        if (!body) {
            return false;
        }
        bodyRoom = size + size / 2 + kSlack;
    }
    unsigned char* to = body.get();
    const unsigned char* from = data;
    const unsigned char* const end = data + size;
    while (from < end) {
        const auto left = static_cast<std::size_t>(end - from);
        const void* stuffed = hasStuffing ? memchr(from, 0xFF, left) : nullptr;
        const unsigned char* stop =
            stuffed != nullptr ? static_cast<const unsigned char*>(stuffed) + 1 : end;
        const auto count = static_cast<std::size_t>(stop - from);
        memcpy(to, from, count);
        to += count;
        from = stuffed != nullptr && stop < end ? stop + 1 : stop;
    }
    bodySize = static_cast<std::size_t>(to - body.get());
    memset(to, 0, kSlack);
    return true;
}

void FastDecoder::prepare(const wicket::Kernel& kernel, const int* luminance,
                          const int* chrominance)
{
    atOnce = static_cast<std::size_t>(kernel.blocksAtOnce);
    for (std::size_t k = 0; k < 64; ++k) {
        const auto natural = static_cast<std::size_t>(wicket::aiZigZagSequence[k]);
        places[k] = static_cast<std::uint16_t>(natural % 8 * 8 * atOnce + natural / 8);
        for (std::size_t b = 0; b < atOnce; ++b) {
            dequant[0][places[k] + b * 8] = static_cast<std::int16_t>(luminance[natural]);
            dequant[1][places[k] + b * 8] = static_cast<std::int16_t>(chrominance[natural]);
        }
    }
    std::fill(std::begin(places) + 64, std::end(places), std::uint16_t{0});
    std::fill(std::begin(previousDC), std::end(previousDC), 0);
}

// A code that does not fit into the tables, or its value.
inline __attribute__((always_inline)) bool FastDecoder::decodeLong(Bits& bits, int component,
                                                                   const ACEntry& entry,
                                                                   std::int16_t* block,
                                                                   unsigned* next)
{
    int symbol = entry.first;
    int length = entry.second;
    if (length == 0 && codes.codecOf(component).DecodeACSymbol(static_cast<int>(bits.top >> 48),
                                                               &symbol, &length) != 0) {
        return false;
    }
    bits.consume(static_cast<unsigned>(length));
    const unsigned k = *next + (static_cast<unsigned>(symbol) >> 4);
    *next = k + 1;
    if (symbol == 0xF0) {
        return true;
    }
    const int size = symbol & 15;
    const int value = valueOf(bits.top, size);
    bits.consume(static_cast<unsigned>(size));
    const std::uint16_t at = places[k];
    block[at] = static_cast<std::int16_t>(value);
    return isInt16(value * dequant[component == 0 ? 0 : 1][at]);
}

inline __attribute__((always_inline)) bool FastDecoder::decodeBlock(Bits& bits, int component,
                                                                    std::int16_t* block,
                                                                    Extent* extent)
{
    const Tables& table = tables[component == 0 ? 0 : 1];
    const std::int16_t* factors = dequant[component == 0 ? 0 : 1];
    bits.refill();
    const DCEntry dc = table.dc[bits.peek()];
    if (dc.length == 0) {
        return false;
    }
    bits.consume(dc.length);
    int previous = previousDC[component] + dc.value;
    if (dc.size > 0) {
        previous += valueOf(bits.top, dc.size);
        bits.consume(dc.size);
    }
    previousDC[component] = previous;
    if (std::abs(previous * factors[0]) > kLargestDC) {
        return false;
    }

    // The position tells what came last: too many coefficients, kEnd or kLong.
    bits.lastSymbol = 0;
    unsigned k = 1;
    do {
        const ACEntry* entry = table.ac;
        while (k < kPairsEnd) {
            bits.refillBelow32();
            entry = table.ac + bits.peek();
            bits.consume(entry->length);
            k += entry->run;
            block[places[k]] = entry->first;
            k += entry->step;
            block[places[k]] = entry->second;
            ++k;
        }
        if (k < 64) {
            bits.refillBelow32();
            entry = table.ac + bits.peek();
            bits.consume(entry->firstLength);
            k += entry->run;
            block[places[k]] = entry->first;
            ++k;
        }
        if (k > kLong) {
            k -= kLong + 1;
            if (!decodeLong(bits, component, *entry, block, &k)) {
                return false;
            }
        }
    } while (k < 64);
    if (k > kEnd) {
        k -= kEnd + 1;
        bits.lastSymbol = table.endLength;
    } else if (k > 64) {
        return false;
    }
    block[0] = static_cast<std::int16_t>(previous);
    *extent = std::max(*extent, extentOf(k));
    return true;
}

bool FastDecoder::decodeGroup(Bits& shared, int components, std::size_t count)
{
    const std::size_t used = (count + atOnce - 1) / atOnce * atOnce * 64;
    for (std::size_t c = 0; c < static_cast<std::size_t>(components); ++c) {
        memset(coefficients + c * kPlaneStep, 0, used * sizeof coefficients[0]);
    }
    std::fill(std::begin(extents), std::end(extents), Extent::dc);
    Bits bits = shared;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t group = i / atOnce;
        const std::size_t at = group * atOnce * 64 + i % atOnce * 8;
        for (int c = 0; c < components; ++c) {
            const auto plane = static_cast<std::size_t>(c);
            if (!decodeBlock(bits, c, coefficients + plane * kPlaneStep + at,
                             &extents[plane * kGroup + group])) {
                return false;
            }
        }
    }
    shared = bits;
    return bits.next <= bits.end + sizeof bits.top;
}

bool FastDecoder::decode(const wicket::Kernel& kernel, const unsigned char* data, int len,
                         const Plane& plane, const int* luminance, const int* chrominance,
                         std::int64_t* bitsUsed)
{
    if (!unstuff(data, len)) {
        return false;
    }
    prepare(kernel, luminance, chrominance);
    Bits bits = {body.get(), body.get(), body.get() + bodySize};
    const auto pixel = static_cast<std::size_t>(plane.components);
    const std::size_t stride = plane.width * pixel;
    for (std::size_t y = 0; y < plane.height; y += 8) {
        for (std::size_t x = 0; x < plane.width; x += kGroup * 8) {
            const std::size_t count = std::min(kGroup, (plane.width - x) / 8);
            if (!decodeGroup(bits, plane.components, count)) {
                return false;
            }
            unsigned char* out = plane.out + y * stride + x * pixel;
            const auto blocks = static_cast<int>(count);
            const bool isExact =
                plane.components == 1
                    ? kernel.grey(coefficients, dequant[0], extents, blocks, out, stride)
                    : kernel.colour(coefficients, kPlaneStep, dequant[0], dequant[1], extents,
                                    kGroup, blocks, out, stride);
            if (!isExact) {
                return false;
            }
        }
    }
    // Sixteen bits had to be there before the last symbol, and so before all others.
    const std::int64_t end = bits.position();
    const auto available = static_cast<std::int64_t>(bodySize) * 8;
    *bitsUsed = end;
    return end <= available && end - static_cast<std::int64_t>(bits.lastSymbol) + 16 <= available;
}
