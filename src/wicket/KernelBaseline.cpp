// SPDX-License-Identifier: LGPL-2.1-or-later
// SSE2, which every x86-64 processor has, or NEON on 64-bit Arm.
#include "wicket/Kernel.h"

#if defined(__x86_64__)

#include <emmintrin.h>

namespace {

constexpr int kBlocks = 1;

}  // namespace

#include "wicket/KernelVectors.h"

namespace {

inline __m128i bits(Vec16 a)
{
    return reinterpret_cast<__m128i>(a);
}

inline Vec32 madd(Vec16 a, Vec16 b)
{
    return reinterpret_cast<Vec32>(_mm_madd_epi16(bits(a), bits(b)));
}

inline Vec16 pack(Vec32 a, Vec32 b)
{
    return reinterpret_cast<Vec16>(
        _mm_packs_epi32(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
}

inline Vec16 addSaturated(Vec16 a, Vec16 b)
{
    return reinterpret_cast<Vec16>(_mm_adds_epi16(bits(a), bits(b)));
}

inline bool isAnySet(Vec16 a)
{
    return _mm_movemask_epi8(_mm_cmpeq_epi8(bits(a), _mm_setzero_si128())) != 0xFFFF;
}

inline void storeGrey(Vec16 a, Vec16 b, unsigned char* rowA, unsigned char* rowB)
{
    const __m128i both = _mm_packus_epi16(bits(a), bits(b));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(rowA), both);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(rowB), _mm_srli_si128(both, 8));
}

// Two pixels of four bytes in each half become six bytes.
inline __m128i closeUp(__m128i pixels)
{
    const __m128i first = _mm_and_si128(pixels, _mm_set1_epi64x(0xFFFFFF));
    const __m128i second =
        _mm_and_si128(_mm_srli_epi64(pixels, 8), _mm_set1_epi64x(0xFFFFFF000000));
    return _mm_or_si128(first, second);
}

inline void storeColour(Vec16 red, Vec16 green, Vec16 blue, unsigned char* row)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i r = _mm_packus_epi16(bits(red), bits(red));
    const __m128i g = _mm_packus_epi16(bits(green), bits(green));
    const __m128i b = _mm_packus_epi16(bits(blue), bits(blue));
    const __m128i rg = _mm_unpacklo_epi8(r, g);
    const __m128i bz = _mm_unpacklo_epi8(b, zero);
    const __m128i low = closeUp(_mm_unpacklo_epi16(rg, bz));
    const __m128i high = closeUp(_mm_unpackhi_epi16(rg, bz));
    const auto q0 = static_cast<std::uint64_t>(_mm_cvtsi128_si64(low));
    const auto q1 = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_srli_si128(low, 8)));
    const auto q2 = static_cast<std::uint64_t>(_mm_cvtsi128_si64(high));
    const auto q3 = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_srli_si128(high, 8)));
    const std::uint64_t words[3] = {q0 | q1 << 48, q1 >> 16 | q2 << 32, q2 >> 32 | q3 << 16};
    memcpy(row, words, sizeof words);
}

}  // namespace

#include "wicket/KernelCode.h"

const wicket::Kernel* wicket::baselineKernel()
{
    static const Kernel kernel = {"sse2", kBlocks, greyBlocks, colourBlocks};
    return &kernel;
}

#elif defined(__aarch64__)

#include <arm_neon.h>

namespace {

constexpr int kBlocks = 1;

}  // namespace

#include "wicket/KernelVectors.h"

namespace {

inline Vec32 madd(Vec16 a, Vec16 b)
{
    return vpaddq_s32(vmull_s16(vget_low_s16(a), vget_low_s16(b)), vmull_high_s16(a, b));
}

inline Vec16 pack(Vec32 a, Vec32 b)
{
    return vcombine_s16(vqmovn_s32(a), vqmovn_s32(b));
}

inline Vec16 addSaturated(Vec16 a, Vec16 b)
{
    return vqaddq_s16(a, b);
}

inline bool isAnySet(Vec16 a)
{
    return vmaxvq_u16(vreinterpretq_u16_s16(a)) != 0;
}

inline void storeGrey(Vec16 a, Vec16 b, unsigned char* rowA, unsigned char* rowB)
{
    vst1_u8(rowA, vqmovun_s16(a));
    vst1_u8(rowB, vqmovun_s16(b));
}

inline void storeColour(Vec16 red, Vec16 green, Vec16 blue, unsigned char* row)
{
    const uint8x8x3_t pixels = {{vqmovun_s16(red), vqmovun_s16(green), vqmovun_s16(blue)}};
    vst3_u8(row, pixels);
}

}  // namespace

#include "wicket/KernelCode.h"

const wicket::Kernel* wicket::baselineKernel()
{
    static const Kernel kernel = {"neon", kBlocks, greyBlocks, colourBlocks};
    return &kernel;
}

#else

const wicket::Kernel* wicket::baselineKernel()
{
    return nullptr;
}

#endif
