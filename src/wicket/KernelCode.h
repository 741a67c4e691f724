// The vector code of every Kernel. Included once by each of their sources, behind the vector
// type: a group of 8x8 blocks, eight 16-bit values of each block in a vector.
#pragma once

#include "wicket/Kernel.h"

#include <cstring>

namespace {

using std::int16_t;
using std::size_t;
using wicket::Extent;

constexpr int kLanes = 8 * Vec::kBlocks;
constexpr int kMaxPixelBytes = 3;

// One-dimensional transforms of half of the lanes, from pairs of inputs. The products of the
// constants are summed up beforehand; modulo 2^32 nothing changes.
template <int kShift>
inline void putSums(const Vec* even, const Vec* odd, Vec* sums)
{
    for (int i = 0; i < 4; ++i) {
        sums[i] = shiftRight32<kShift>(add32(even[i], odd[i]));
        sums[7 - i] = shiftRight32<kShift>(sub32(even[i], odd[i]));
    }
}

template <int kShift>
inline void transformHalf(Vec x04, Vec x26, Vec x13, Vec x57, Vec* sums)
{
    const Vec rounding = Vec::all32(1 << (kShift - 1));
    const Vec even0 = add32(madd(x04, Vec::pair(8192, 8192)), rounding);
    const Vec even1 = add32(madd(x04, Vec::pair(8192, -8192)), rounding);
    const Vec even2 = madd(x26, Vec::pair(4433, -10704));
    const Vec even3 = madd(x26, Vec::pair(10703, 4433));
    const Vec even[4] = {add32(even0, even3), add32(even1, even2), sub32(even1, even2),
                         sub32(even0, even3)};
    const Vec odd[4] = {
        add32(madd(x13, Vec::pair(11363, 9633)), madd(x57, Vec::pair(6437, 2260))),
        add32(madd(x13, Vec::pair(9633, -2259)), madd(x57, Vec::pair(-11362, -6436))),
        add32(madd(x13, Vec::pair(6437, -11362)), madd(x57, Vec::pair(2261, 9633))),
        add32(madd(x13, Vec::pair(2260, -6436)), madd(x57, Vec::pair(9633, -11363)))};
    putSums<kShift>(even, odd, sums);
}

// The same where the last four inputs are zero.
template <int kShift>
inline void transformHalf(Vec x02, Vec x13, Vec* sums)
{
    const Vec rounding = Vec::all32(1 << (kShift - 1));
    const Vec even[4] = {add32(madd(x02, Vec::pair(8192, 10703)), rounding),
                         add32(madd(x02, Vec::pair(8192, 4433)), rounding),
                         add32(madd(x02, Vec::pair(8192, -4433)), rounding),
                         add32(madd(x02, Vec::pair(8192, -10703)), rounding)};
    const Vec odd[4] = {madd(x13, Vec::pair(11363, 9633)), madd(x13, Vec::pair(9633, -2259)),
                        madd(x13, Vec::pair(6437, -11362)), madd(x13, Vec::pair(2260, -6436))};
    putSums<kShift>(even, odd, sums);
}

template <int kShift>
inline void transformPass(Vec* x)
{
    Vec low[8];
    Vec high[8];
    transformHalf<kShift>(zipLow16(x[0], x[4]), zipLow16(x[2], x[6]), zipLow16(x[1], x[3]),
                          zipLow16(x[5], x[7]), low);
    transformHalf<kShift>(zipHigh16(x[0], x[4]), zipHigh16(x[2], x[6]), zipHigh16(x[1], x[3]),
                          zipHigh16(x[5], x[7]), high);
    for (int i = 0; i < 8; ++i) {
        x[i] = pack32(low[i], high[i]);
    }
}

inline void transposeBlocks(Vec* x)
{
    Vec a[8];
    Vec b[8];
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
inline bool mayBeSaturated(const Vec* x)
{
    Vec largest = x[0];
    Vec smallest = x[0];
    for (int i = 1; i < kCount; ++i) {
        largest = max16(largest, x[i]);
        smallest = min16(smallest, x[i]);
    }
    return isAnySet(
        or16(equal16(largest, Vec::all16(32767)), equal16(smallest, Vec::all16(-32768))));
}

template <int kColumns>
inline void dequantise(const int16_t* coefficients, const int16_t* dequant, Vec* x)
{
    for (int i = 0; i < kColumns; ++i) {
        x[i] = multiplyLow(Vec::load(coefficients + i * kLanes), Vec::load(dequant + i * kLanes));
    }
}

// Both passes of a lone DC coefficient d: 4 d, then (4 d + 16) >> 5.
inline void fillFlat(Vec d, Vec* x)
{
    const Vec sample = shiftRight16<3>(addSaturated16(firstOfBlock(d), Vec::all16(4)));
    for (int i = 0; i < 8; ++i) {
        x[i] = sample;
    }
}

// Only the first four rows and columns have coefficients: the first pass is done for four
// rows, and both take four inputs.
inline bool transformCorner(Vec* x)
{
    Vec sums[8];
    transformHalf<11>(zipLow16(x[0], x[2]), zipLow16(x[1], x[3]), sums);
    Vec a[4];
    for (int i = 0; i < 4; ++i) {
        a[i] = pack32(sums[i], sums[4 + i]);
    }
    if (mayBeSaturated<4>(a)) {
        return false;
    }
    const Vec low01 = zipLow16(a[0], a[1]);
    const Vec low23 = zipLow16(a[2], a[3]);
    const Vec high01 = zipHigh16(a[0], a[1]);
    const Vec high23 = zipHigh16(a[2], a[3]);
    const Vec rows01[2] = {zipLow32(low01, low23), zipLow32(high01, high23)};
    const Vec rows23[2] = {zipHigh32(low01, low23), zipHigh32(high01, high23)};
    const Vec y[4] = {zipLow64(rows01[0], rows01[1]), zipHigh64(rows01[0], rows01[1]),
                      zipLow64(rows23[0], rows23[1]), zipHigh64(rows23[0], rows23[1])};
    Vec low[8];
    Vec high[8];
    transformHalf<18>(zipLow16(y[0], y[2]), zipLow16(y[1], y[3]), low);
    transformHalf<18>(zipHigh16(y[0], y[2]), zipHigh16(y[1], y[3]), high);
    for (int i = 0; i < 8; ++i) {
        x[i] = pack32(low[i], high[i]);
    }
    return true;
}

inline bool transformAll(Vec* x)
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
                           Vec* x)
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
inline void convertRow(Vec y, Vec cb, Vec cr, Vec* rgb)
{
    const Vec rounding = Vec::all32(128);
    const Vec low = zipLow16(cb, cr);
    const Vec high = zipHigh16(cb, cr);
    const Vec luma = addSaturated16(y, Vec::all16(128));
    const Vec factors[3] = {Vec::pair(0, 1436), Vec::pair(-352, -731), Vec::pair(1815, 0)};
    for (int i = 0; i < 3; ++i) {
        const Vec chroma = pack32(shiftRight32<10>(add32(madd(low, factors[i]), rounding)),
                                  shiftRight32<10>(add32(madd(high, factors[i]), rounding)));
        rgb[i] = addSaturated16(luma, chroma);
    }
}

// Where the pixels of a group go: straight to the plane, or through a block of its own when
// the group reaches over the end of the line.
struct Target {
    Target(unsigned char* first, size_t step, int left, int pixelBytes)
        : plane(first),
          planeStep(step),
          bytes(static_cast<size_t>(left * 8 * pixelBytes)),
          isWhole(left >= Vec::kBlocks)
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
    for (int done = 0; done < count; done += Vec::kBlocks) {
        Vec x[8];
        if (!transformGroup(coefficients + done * 64, dequant, *extent++, x)) {
            return false;
        }
        Target target(out + done * 8, stride, count - done, 1);
        for (int i = 0; i < 8; i += 2) {
            const Vec middle = Vec::all16(128);
            storeGrey(addSaturated16(x[i], middle), addSaturated16(x[i + 1], middle), target.row(i),
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
    for (int done = 0; done < count; done += Vec::kBlocks) {
        Vec x[3][8];
        for (size_t i = 0; i < 3; ++i) {
            if (!transformGroup(coefficients + i * planeStep + done * 64,
                                i == 0 ? luminance : chrominance, extent[i * extentStep], x[i])) {
                return false;
            }
        }
        ++extent;
        Target target(out + done * 24, stride, count - done, 3);
        for (int i = 0; i < 8; ++i) {
            Vec rgb[3];
            convertRow(x[0][i], x[1][i], x[2][i], rgb);
            storeColour(rgb[0], rgb[1], rgb[2], target.row(i));
        }
        target.finish();
    }
    return true;
}

}  // namespace
