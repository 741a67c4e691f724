// SPDX-License-Identifier: LGPL-2.1-or-later
// AVX2. Compiled for it as a whole: nothing here may run before the processor was asked.
#include "wicket/Kernel.h"

#if defined(__AVX2__)

#include <immintrin.h>

namespace {

constexpr int kBlocks = 2;

}  // namespace

#include "wicket/KernelVectors.h"

namespace {

inline __m256i bits(Vec16 a)
{
    return reinterpret_cast<__m256i>(a);
}

inline Vec32 madd(Vec16 a, Vec16 b)
{
    return reinterpret_cast<Vec32>(_mm256_madd_epi16(bits(a), bits(b)));
}

inline Vec16 pack(Vec32 a, Vec32 b)
{
    return reinterpret_cast<Vec16>(
        _mm256_packs_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}

inline Vec16 addSaturated(Vec16 a, Vec16 b)
{
    return reinterpret_cast<Vec16>(_mm256_adds_epi16(bits(a), bits(b)));
}

inline bool isAnySet(Vec16 a)
{
    return _mm256_testz_si256(bits(a), bits(a)) == 0;
}

inline void storeGrey(Vec16 a, Vec16 b, unsigned char* rowA, unsigned char* rowB)
{
    const __m256i both = _mm256_permute4x64_epi64(_mm256_packus_epi16(bits(a), bits(b)), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rowA), _mm256_castsi256_si128(both));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rowB), _mm256_extracti128_si256(both, 1));
}

inline void storeColour(Vec16 red, Vec16 green, Vec16 blue, unsigned char* row)
{
    const __m256i rg = _mm256_packus_epi16(bits(red), bits(green));
    const __m256i b = _mm256_packus_epi16(bits(blue), bits(blue));
    const __m256i rgFirst = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 8, -1, 1, 9, -1, 2, 10, -1, 3, 11, -1, 4, 12, -1, 5));
    const __m256i bFirst = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(-1, -1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1));
    const __m256i rgLast = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(13, -1, 6, 14, -1, 7, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m256i bLast = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(-1, 5, -1, -1, 6, -1, -1, 7, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m256i first =
        _mm256_or_si256(_mm256_shuffle_epi8(rg, rgFirst), _mm256_shuffle_epi8(b, bFirst));
    const __m256i last =
        _mm256_or_si256(_mm256_shuffle_epi8(rg, rgLast), _mm256_shuffle_epi8(b, bLast));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row), _mm256_castsi256_si128(first));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(row + 16), _mm256_castsi256_si128(last));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 24), _mm256_extracti128_si256(first, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(row + 40), _mm256_extracti128_si256(last, 1));
}

}  // namespace

#include "wicket/KernelCode.h"

const wicket::Kernel* wicket::avx2Kernel()
{
    static const Kernel kernel = {"avx2", kBlocks, greyBlocks, colourBlocks};
    return __builtin_cpu_supports("avx2") ? &kernel : nullptr;
}

#else

const wicket::Kernel* wicket::avx2Kernel()
{
    return nullptr;
}

#endif
