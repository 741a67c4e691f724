// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/jidctint.h"

#include <cstdint>

namespace {

// Corrupt streams drive the transform past 32 bits: it wraps instead of overflowing.
using Wrapping = std::uint32_t;

// round(x * 2^13)
constexpr Wrapping kFix0_298631336 = 2446;
constexpr Wrapping kFix0_390180644 = 3196;
constexpr Wrapping kFix0_541196100 = 4433;
constexpr Wrapping kFix0_765366865 = 6270;
constexpr Wrapping kFix0_899976223 = 7373;
constexpr Wrapping kFix1_175875602 = 9633;
constexpr Wrapping kFix1_501321110 = 12299;
constexpr Wrapping kFix1_847759065 = 15137;
constexpr Wrapping kFix1_961570560 = 16069;
constexpr Wrapping kFix2_053119869 = 16819;
constexpr Wrapping kFix2_562915447 = 20995;
constexpr Wrapping kFix3_072711026 = 25172;

constexpr int kFractionBits = 13;
constexpr int kPassBits = 2;  // extra bits between the passes

// One pass over eight values that lie step apart.
template <int kShift>
void transformLine(const int* in, int* out, int step)
{
    Wrapping x[8];
    for (int i = 0; i < 8; ++i) {
        x[i] = static_cast<Wrapping>(in[i * step]);
    }

    const Wrapping z1 = (x[2] + x[6]) * kFix0_541196100;
    const Wrapping even2 = z1 - x[6] * kFix1_847759065;
    const Wrapping even3 = z1 + x[2] * kFix0_765366865;
    const Wrapping even0 = (x[0] + x[4]) << kFractionBits;
    const Wrapping even1 = (x[0] - x[4]) << kFractionBits;
    const Wrapping even[4] = {even0 + even3, even1 + even2, even1 - even2, even0 - even3};

    const Wrapping z5 = (x[7] + x[3] + x[5] + x[1]) * kFix1_175875602;
    const Wrapping z71 = -((x[7] + x[1]) * kFix0_899976223);
    const Wrapping z53 = -((x[5] + x[3]) * kFix2_562915447);
    const Wrapping z73 = z5 - (x[7] + x[3]) * kFix1_961570560;
    const Wrapping z51 = z5 - (x[5] + x[1]) * kFix0_390180644;
    const Wrapping odd[4] = {x[1] * kFix1_501321110 + z71 + z51, x[3] * kFix3_072711026 + z53 + z73,
                             x[5] * kFix2_053119869 + z53 + z51,
                             x[7] * kFix0_298631336 + z71 + z73};

    const Wrapping rounding = Wrapping{1} << (kShift - 1);
    for (int i = 0; i < 4; ++i) {
        out[i * step] = static_cast<int>(even[i] + odd[i] + rounding) >> kShift;
        out[(7 - i) * step] = static_cast<int>(even[i] - odd[i] + rounding) >> kShift;
    }
}

}  // namespace

void jpeg_idct(const int* coefficients, int* samples)
{
    int between[64];
    for (int row = 0; row < 8; ++row) {
        transformLine<kFractionBits - kPassBits>(coefficients + row * 8, between + row * 8, 1);
    }
    for (int column = 0; column < 8; ++column) {
        transformLine<kFractionBits + kPassBits + 3>(between + column, samples + column, 8);
    }
}
