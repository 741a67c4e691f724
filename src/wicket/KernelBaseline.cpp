// SSE2, which every x86-64 processor has, or NEON on 64-bit Arm.
#include "wicket/Kernel.h"

#if defined(__SSE2__)

#include <cstring>

#include <emmintrin.h>

namespace {

struct Vec {
    static constexpr int kBlocks = 1;
    __m128i v;
    static Vec load(const std::int16_t* from)
    {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(from))};
    }
    static Vec all16(short value) { return {_mm_set1_epi16(value)}; }
    static Vec all32(int value) { return {_mm_set1_epi32(value)}; }
    static Vec pair(short even, short odd)
    {
        return {_mm_set1_epi32(static_cast<int>(static_cast<unsigned>(odd) << 16 |
                                                (static_cast<unsigned>(even) & 0xFFFF)))};
    }
};

inline Vec madd(Vec a, Vec b)
{
    return {_mm_madd_epi16(a.v, b.v)};
}

inline Vec add32(Vec a, Vec b)
{
    return {_mm_add_epi32(a.v, b.v)};
}

inline Vec sub32(Vec a, Vec b)
{
    return {_mm_sub_epi32(a.v, b.v)};
}

inline Vec pack32(Vec a, Vec b)
{
    return {_mm_packs_epi32(a.v, b.v)};
}

inline Vec multiplyLow(Vec a, Vec b)
{
    return {_mm_mullo_epi16(a.v, b.v)};
}

inline Vec multiplyHigh(Vec a, Vec b)
{
    return {_mm_mulhi_epi16(a.v, b.v)};
}

inline Vec addSaturated16(Vec a, Vec b)
{
    return {_mm_adds_epi16(a.v, b.v)};
}

inline Vec max16(Vec a, Vec b)
{
    return {_mm_max_epi16(a.v, b.v)};
}

inline Vec min16(Vec a, Vec b)
{
    return {_mm_min_epi16(a.v, b.v)};
}

inline Vec equal16(Vec a, Vec b)
{
    return {_mm_cmpeq_epi16(a.v, b.v)};
}

inline Vec or16(Vec a, Vec b)
{
    return {_mm_or_si128(a.v, b.v)};
}

inline Vec xor16(Vec a, Vec b)
{
    return {_mm_xor_si128(a.v, b.v)};
}

inline Vec zipLow16(Vec a, Vec b)
{
    return {_mm_unpacklo_epi16(a.v, b.v)};
}

inline Vec zipHigh16(Vec a, Vec b)
{
    return {_mm_unpackhi_epi16(a.v, b.v)};
}

inline Vec zipLow32(Vec a, Vec b)
{
    return {_mm_unpacklo_epi32(a.v, b.v)};
}

inline Vec zipHigh32(Vec a, Vec b)
{
    return {_mm_unpackhi_epi32(a.v, b.v)};
}

inline Vec zipLow64(Vec a, Vec b)
{
    return {_mm_unpacklo_epi64(a.v, b.v)};
}

inline Vec zipHigh64(Vec a, Vec b)
{
    return {_mm_unpackhi_epi64(a.v, b.v)};
}

template <int kBits>
inline Vec shiftRight32(Vec a)
{
    return {_mm_srai_epi32(a.v, kBits)};
}

template <int kBits>
inline Vec shiftRight16(Vec a)
{
    return {_mm_srai_epi16(a.v, kBits)};
}

inline bool isAnySet(Vec a)
{
    return _mm_movemask_epi8(_mm_cmpeq_epi8(a.v, _mm_setzero_si128())) != 0xFFFF;
}

// The first value of each block in all of its lanes.
inline Vec firstOfBlock(Vec a)
{
    return {_mm_shuffle_epi32(_mm_shufflelo_epi16(a.v, 0), 0)};
}

inline void storeGrey(Vec a, Vec b, unsigned char* rowA, unsigned char* rowB)
{
    const __m128i both = _mm_packus_epi16(a.v, b.v);
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

inline void storeColour(Vec red, Vec green, Vec blue, unsigned char* row)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i r = _mm_packus_epi16(red.v, red.v);
    const __m128i g = _mm_packus_epi16(green.v, green.v);
    const __m128i b = _mm_packus_epi16(blue.v, blue.v);
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
    static const Kernel kernel = {"sse2", Vec::kBlocks, greyBlocks, colourBlocks};
    return &kernel;
}

#elif defined(__aarch64__)

#include <arm_neon.h>

namespace {

struct Vec {
    static constexpr int kBlocks = 1;
    int16x8_t v;

    static Vec load(const std::int16_t* from) { return {vld1q_s16(from)}; }
    static Vec all16(short value) { return {vdupq_n_s16(value)}; }
    static Vec all32(int value) { return {vreinterpretq_s16_s32(vdupq_n_s32(value))}; }
    static Vec pair(short even, short odd)
    {
        return {vzip1q_s16(vdupq_n_s16(even), vdupq_n_s16(odd))};
    }
};

inline int32x4_t wide(Vec a)
{
    return vreinterpretq_s32_s16(a.v);
}

inline Vec narrow(int32x4_t a)
{
    return {vreinterpretq_s16_s32(a)};
}

inline Vec madd(Vec a, Vec b)
{
    return narrow(
        vpaddq_s32(vmull_s16(vget_low_s16(a.v), vget_low_s16(b.v)), vmull_high_s16(a.v, b.v)));
}

inline Vec add32(Vec a, Vec b)
{
    return narrow(vaddq_s32(wide(a), wide(b)));
}

inline Vec sub32(Vec a, Vec b)
{
    return narrow(vsubq_s32(wide(a), wide(b)));
}

inline Vec pack32(Vec a, Vec b)
{
    return {vcombine_s16(vqmovn_s32(wide(a)), vqmovn_s32(wide(b)))};
}

inline Vec multiplyLow(Vec a, Vec b)
{
    // Unsigned, since the product wraps.
    return {
        vreinterpretq_s16_u16(vmulq_u16(vreinterpretq_u16_s16(a.v), vreinterpretq_u16_s16(b.v)))};
}

inline Vec multiplyHigh(Vec a, Vec b)
{
    const int32x4_t low = vmull_s16(vget_low_s16(a.v), vget_low_s16(b.v));
    const int32x4_t high = vmull_high_s16(a.v, b.v);
    return {vuzp2q_s16(vreinterpretq_s16_s32(low), vreinterpretq_s16_s32(high))};
}

inline Vec addSaturated16(Vec a, Vec b)
{
    return {vqaddq_s16(a.v, b.v)};
}

inline Vec max16(Vec a, Vec b)
{
    return {vmaxq_s16(a.v, b.v)};
}

inline Vec min16(Vec a, Vec b)
{
    return {vminq_s16(a.v, b.v)};
}

inline Vec or16(Vec a, Vec b)
{
    return {vorrq_s16(a.v, b.v)};
}

inline Vec xor16(Vec a, Vec b)
{
    return {veorq_s16(a.v, b.v)};
}

inline Vec zipLow16(Vec a, Vec b)
{
    return {vzip1q_s16(a.v, b.v)};
}

inline Vec zipHigh16(Vec a, Vec b)
{
    return {vzip2q_s16(a.v, b.v)};
}

inline Vec equal16(Vec a, Vec b)
{
    return {vreinterpretq_s16_u16(vceqq_s16(a.v, b.v))};
}

inline Vec zipLow32(Vec a, Vec b)
{
    return narrow(vzip1q_s32(wide(a), wide(b)));
}

inline Vec zipHigh32(Vec a, Vec b)
{
    return narrow(vzip2q_s32(wide(a), wide(b)));
}

inline Vec zipLow64(Vec a, Vec b)
{
    return {vcombine_s16(vget_low_s16(a.v), vget_low_s16(b.v))};
}

inline Vec zipHigh64(Vec a, Vec b)
{
    return {vcombine_s16(vget_high_s16(a.v), vget_high_s16(b.v))};
}

template <int kBits>
inline Vec shiftRight32(Vec a)
{
    return narrow(vshrq_n_s32(wide(a), kBits));
}

template <int kBits>
inline Vec shiftRight16(Vec a)
{
    return {vshrq_n_s16(a.v, kBits)};
}

inline bool isAnySet(Vec a)
{
    return vmaxvq_u16(vreinterpretq_u16_s16(a.v)) != 0;
}

// The first value of each block in all of its lanes.
inline Vec firstOfBlock(Vec a)
{
    return {vdupq_laneq_s16(a.v, 0)};
}

inline void storeGrey(Vec a, Vec b, unsigned char* rowA, unsigned char* rowB)
{
    vst1_u8(rowA, vqmovun_s16(a.v));
    vst1_u8(rowB, vqmovun_s16(b.v));
}

inline void storeColour(Vec red, Vec green, Vec blue, unsigned char* row)
{
    const uint8x8x3_t pixels = {{vqmovun_s16(red.v), vqmovun_s16(green.v), vqmovun_s16(blue.v)}};
    vst3_u8(row, pixels);
}

}  // namespace

#include "wicket/KernelCode.h"

const wicket::Kernel* wicket::baselineKernel()
{
    static const Kernel kernel = {"neon", Vec::kBlocks, greyBlocks, colourBlocks};
    return &kernel;
}

#else

const wicket::Kernel* wicket::baselineKernel()
{
    return nullptr;
}

#endif
