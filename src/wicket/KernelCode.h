// SPDX-License-Identifier: LGPL-2.1-or-later
// The code of a Kernel: groups of 8x8 blocks, eight values of each block in a vector. Included
// once by each of its sources, behind the operations of its processor:
//
//   madd(a, b)        32-bit sums of the products of two neighbours
//   pack(a, b)        32 bits to 16, saturated; in each block first a, then b
//   addSaturated(a, b)
//   isAnySet(a)
//   storeGrey, storeColour: rows of pixels, saturated to 8 bits
#pragma once

#include "wicket/Kernel.h"
#include "wicket/KernelVectors.h"

namespace {

using wicket::Extent;

constexpr int kMaxPixelBytes = 3;

// One-dimensional transforms of half of the lanes, from pairs of inputs. The products of the
// constants are summed up beforehand, which changes nothing: no sum leaves 32 bits.
template <int kShift>
inline void putSums(const Vec32* even, const Vec32* odd, Vec32* sums)
{
    for (int i = 0; i < 4; ++i) {
        sums[i] = (even[i] + odd[i]) >> kShift;
        sums[7 - i] = (even[i] - odd[i]) >> kShift;
    }
}

template <int kShift>
inline void transformHalf(Vec16 x04, Vec16 x26, Vec16 x13, Vec16 x57, Vec32* sums)
{
    const Vec32 rounding = all32(1 << (kShift - 1));
    const Vec32 even0 = madd(x04, pair(8192, 8192)) + rounding;
    const Vec32 even1 = madd(x04, pair(8192, -8192)) + rounding;
    const Vec32 even2 = madd(x26, pair(4433, -10704));
    const Vec32 even3 = madd(x26, pair(10703, 4433));
    const Vec32 even[4] = {even0 + even3, even1 + even2, even1 - even2, even0 - even3};
    const Vec32 odd[4] = {madd(x13, pair(11363, 9633)) + madd(x57, pair(6437, 2260)),
                          madd(x13, pair(9633, -2259)) + madd(x57, pair(-11362, -6436)),
                          madd(x13, pair(6437, -11362)) + madd(x57, pair(2261, 9633)),
                          madd(x13, pair(2260, -6436)) + madd(x57, pair(9633, -11363))};
    putSums<kShift>(even, odd, sums);
}

// The same where the last four inputs are zero.
template <int kShift>
inline void transformHalf(Vec16 x02, Vec16 x13, Vec32* sums)
{
    const Vec32 rounding = all32(1 << (kShift - 1));
    const Vec32 even[4] = {
        madd(x02, pair(8192, 10703)) + rounding, madd(x02, pair(8192, 4433)) + rounding,
        madd(x02, pair(8192, -4433)) + rounding, madd(x02, pair(8192, -10703)) + rounding};
    const Vec32 odd[4] = {madd(x13, pair(11363, 9633)), madd(x13, pair(9633, -2259)),
                          madd(x13, pair(6437, -11362)), madd(x13, pair(2260, -6436))};
    putSums<kShift>(even, odd, sums);
}

template <int kShift>
inline void transformPass(Vec16* x)
{
    Vec32 low[8];
    Vec32 high[8];
    transformHalf<kShift>(zipLow16(x[0], x[4]), zipLow16(x[2], x[6]), zipLow16(x[1], x[3]),
                          zipLow16(x[5], x[7]), low);
    transformHalf<kShift>(zipHigh16(x[0], x[4]), zipHigh16(x[2], x[6]), zipHigh16(x[1], x[3]),
                          zipHigh16(x[5], x[7]), high);
    for (int i = 0; i < 8; ++i) {
        x[i] = pack(low[i], high[i]);
    }
}

inline void transposeBlocks(Vec16* x)
{
    Vec16 a[8];
    Vec16 b[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = zipLow16(x[2 * i], x[2 * i + 1]);
        a[2 * i + 1] = zipHigh16(x[2 * i], x[2 * i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            b[4 * i + 2 * j] = zipLow32(a[4 * i + j], a[4 * i + 2 + j]);
            b[4 * i + 2 * j + 1] = zipHigh32(a[4 * i + j], a[4 * i + 2 + j]);
        }
    }
    for (int i = 0; i < 4; ++i) {
        x[2 * i] = zipLow64(b[i], b[4 + i]);
        x[2 * i + 1] = zipHigh64(b[i], b[4 + i]);
    }
}

// Packing the results of the first pass to 16 bits may have saturated them.
template <int kCount>
inline bool mayBeSaturated(const Vec16* x)
{
    Vec16 largest = x[0];
    Vec16 smallest = x[0];
    for (int i = 1; i < kCount; ++i) {
        largest = max16(largest, x[i]);
        smallest = min16(smallest, x[i]);
    }
    return isAnySet((largest == 32767) | (smallest == -32768));
}

template <int kColumns>
inline void dequantise(const int16_t* coefficients, const int16_t* dequant, Vec16* x)
{
    for (int i = 0; i < kColumns; ++i) {
        x[i] = load(coefficients + i * kLanes) * load(dequant + i * kLanes);
    }
}

// Both passes of a lone DC coefficient d: 4 d, then (4 d + 16) >> 5.
inline void fillFlat(Vec16 d, Vec16* x)
{
    const Vec16 sample = (firstOfBlock(d) + 4) >> 3;
    for (int i = 0; i < 8; ++i) {
        x[i] = sample;
    }
}

// Only the first four rows and columns have coefficients: the first pass is done for four
// rows, and both take four inputs.
inline bool transformCorner(Vec16* x)
{
    Vec32 sums[8];
    transformHalf<11>(zipLow16(x[0], x[2]), zipLow16(x[1], x[3]), sums);
    Vec16 a[4];
    for (int i = 0; i < 4; ++i) {
        a[i] = pack(sums[i], sums[4 + i]);
    }
    if (mayBeSaturated<4>(a)) {
        return false;
    }
    const Vec16 low01 = zipLow16(a[0], a[1]);
    const Vec16 low23 = zipLow16(a[2], a[3]);
    const Vec16 high01 = zipHigh16(a[0], a[1]);
    const Vec16 high23 = zipHigh16(a[2], a[3]);
    const Vec16 rows01[2] = {zipLow32(low01, low23), zipLow32(high01, high23)};
    const Vec16 rows23[2] = {zipHigh32(low01, low23), zipHigh32(high01, high23)};
    const Vec16 y[4] = {zipLow64(rows01[0], rows01[1]), zipHigh64(rows01[0], rows01[1]),
                        zipLow64(rows23[0], rows23[1]), zipHigh64(rows23[0], rows23[1])};
    Vec32 low[8];
    Vec32 high[8];
    transformHalf<18>(zipLow16(y[0], y[2]), zipLow16(y[1], y[3]), low);
    transformHalf<18>(zipHigh16(y[0], y[2]), zipHigh16(y[1], y[3]), high);
    for (int i = 0; i < 8; ++i) {
        x[i] = pack(low[i], high[i]);
    }
    return true;
}

inline bool transformAll(Vec16* x)
{
    transformPass<11>(x);
    if (mayBeSaturated<8>(x)) {
        return false;
    }
    transposeBlocks(x);
    transformPass<18>(x);
    return true;
}

// Samples of a group, a vector for each row. False: 16 bits do not do.
inline bool transformGroup(const int16_t* coefficients, const int16_t* dequant, Extent extent,
                           Vec16* x)
{
    if (extent == Extent::dc) {
        dequantise<1>(coefficients, dequant, x);
        fillFlat(x[0], x);
        return true;
    }
    if (extent == Extent::corner) {
        dequantise<4>(coefficients, dequant, x);
        return transformCorner(x);
    }
    dequantise<8>(coefficients, dequant, x);
    return transformAll(x);
}

// A row of red, green and blue. Only what the 10-bit shift keeps of luma is added behind it.
inline void convertRow(Vec16 y, Vec16 cb, Vec16 cr, Vec16* rgb)
{
    const Vec16 low = zipLow16(cb, cr);
    const Vec16 high = zipHigh16(cb, cr);
    const Vec16 luma = addSaturated(y, all16(128));
    const Vec16 factors[3] = {pair(0, 1436), pair(-352, -731), pair(1815, 0)};
    for (int i = 0; i < 3; ++i) {
        const Vec16 chroma =
            pack((madd(low, factors[i]) + 128) >> 10, (madd(high, factors[i]) + 128) >> 10);
        rgb[i] = addSaturated(luma, chroma);
    }
}

// Where the pixels of a group go: straight to the plane, or through a block of its own when
// the group reaches over the end of the line.
struct Target {
    Target(unsigned char* first, size_t step, int left, int pixelBytes)
        : plane(first),
          planeStep(step),
          bytes(static_cast<size_t>(left * 8 * pixelBytes)),
          isWhole(left >= kBlocks)
    {
    }
    unsigned char* row(int i)
    {
        return isWhole ? plane + static_cast<size_t>(i) * planeStep : spare[i];
    }
    void finish()
    {
        for (size_t i = 0; !isWhole && i < 8; ++i) {
            memcpy(plane + i * planeStep, spare[i], bytes);
        }
    }

    unsigned char* plane;
    size_t planeStep;
    size_t bytes;
    bool isWhole;
    unsigned char spare[8][kLanes * kMaxPixelBytes];
};

bool greyBlocks(const int16_t* coefficients, const int16_t* dequant, const Extent* extent,
                int count, unsigned char* out, size_t stride)
{
    for (int done = 0; done < count; done += kBlocks) {
        Vec16 x[8];
        if (!transformGroup(coefficients + done * 64, dequant, *extent++, x)) {
            return false;
        }
        Target target(out + done * 8, stride, count - done, 1);
        for (int i = 0; i < 8; i += 2) {
            const Vec16 middle = all16(128);
            storeGrey(addSaturated(x[i], middle), addSaturated(x[i + 1], middle), target.row(i),
                      target.row(i + 1));
        }
        target.finish();
    }
    return true;
}

bool colourBlocks(const int16_t* coefficients, size_t planeStep, const int16_t* luminance,
                  const int16_t* chrominance, const Extent* extent, size_t extentStep, int count,
                  unsigned char* out, size_t stride)
{
    for (int done = 0; done < count; done += kBlocks) {
        Vec16 x[3][8];
        for (size_t i = 0; i < 3; ++i) {
            if (!transformGroup(coefficients + i * planeStep + done * 64,
                                i == 0 ? luminance : chrominance, extent[i * extentStep], x[i])) {
                return false;
            }
        }
        ++extent;
        Target target(out + done * 24, stride, count - done, 3);
        for (int i = 0; i < 8; ++i) {
            Vec16 rgb[3];
            convertRow(x[0][i], x[1][i], x[2][i], rgb);
            storeColour(rgb[0], rgb[1], rgb[2], target.row(i));
        }
        target.finish();
    }
    return true;
}

}  // namespace
