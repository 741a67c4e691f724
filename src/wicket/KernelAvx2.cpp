// AVX2. Compiled for it as a whole: nothing here may run before the processor was asked.
#include "wicket/Kernel.h"

#if defined(__AVX2__)

#include <immintrin.h>

namespace {

struct Vec {
    static constexpr int kBlocks = 2;
    __m256i v;
    static Vec load(const std::int16_t* from)
    {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from))};
    }
    static Vec all16(short value) { return {_mm256_set1_epi16(value)}; }
    static Vec all32(int value) { return {_mm256_set1_epi32(value)}; }
    static Vec pair(short even, short odd)
    {
        return {_mm256_set1_epi32(static_cast<int>(static_cast<unsigned>(odd) << 16 |
                                                   (static_cast<unsigned>(even) & 0xFFFF)))};
    }
};

inline Vec madd(Vec a, Vec b)
{
    return {_mm256_madd_epi16(a.v, b.v)};
}

inline Vec add32(Vec a, Vec b)
{
    return {_mm256_add_epi32(a.v, b.v)};
}

inline Vec sub32(Vec a, Vec b)
{
    return {_mm256_sub_epi32(a.v, b.v)};
}

inline Vec pack32(Vec a, Vec b)
{
    return {_mm256_packs_epi32(a.v, b.v)};
}

inline Vec multiplyLow(Vec a, Vec b)
{
    return {_mm256_mullo_epi16(a.v, b.v)};
}

inline Vec multiplyHigh(Vec a, Vec b)
{
    return {_mm256_mulhi_epi16(a.v, b.v)};
}

inline Vec addSaturated16(Vec a, Vec b)
{
    return {_mm256_adds_epi16(a.v, b.v)};
}

inline Vec max16(Vec a, Vec b)
{
    return {_mm256_max_epi16(a.v, b.v)};
}

inline Vec min16(Vec a, Vec b)
{
    return {_mm256_min_epi16(a.v, b.v)};
}

inline Vec equal16(Vec a, Vec b)
{
    return {_mm256_cmpeq_epi16(a.v, b.v)};
}

inline Vec or16(Vec a, Vec b)
{
    return {_mm256_or_si256(a.v, b.v)};
}

inline Vec xor16(Vec a, Vec b)
{
    return {_mm256_xor_si256(a.v, b.v)};
}

inline Vec zipLow16(Vec a, Vec b)
{
    return {_mm256_unpacklo_epi16(a.v, b.v)};
}

inline Vec zipHigh16(Vec a, Vec b)
{
    return {_mm256_unpackhi_epi16(a.v, b.v)};
}

inline Vec zipLow32(Vec a, Vec b)
{
    return {_mm256_unpacklo_epi32(a.v, b.v)};
}

inline Vec zipHigh32(Vec a, Vec b)
{
    return {_mm256_unpackhi_epi32(a.v, b.v)};
}

inline Vec zipLow64(Vec a, Vec b)
{
    return {_mm256_unpacklo_epi64(a.v, b.v)};
}

inline Vec zipHigh64(Vec a, Vec b)
{
    return {_mm256_unpackhi_epi64(a.v, b.v)};
}

template <int kBits>
inline Vec shiftRight32(Vec a)
{
    return {_mm256_srai_epi32(a.v, kBits)};
}

template <int kBits>
inline Vec shiftRight16(Vec a)
{
    return {_mm256_srai_epi16(a.v, kBits)};
}

inline bool isAnySet(Vec a)
{
    return _mm256_testz_si256(a.v, a.v) == 0;
}

// The first value of each block in all of its lanes.
inline Vec firstOfBlock(Vec a)
{
    return {_mm256_shuffle_epi32(_mm256_shufflelo_epi16(a.v, 0), 0)};
}

inline void storeGrey(Vec a, Vec b, unsigned char* rowA, unsigned char* rowB)
{
    const __m256i both = _mm256_permute4x64_epi64(_mm256_packus_epi16(a.v, b.v), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rowA), _mm256_castsi256_si128(both));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rowB), _mm256_extracti128_si256(both, 1));
}

inline void storeColour(Vec red, Vec green, Vec blue, unsigned char* row)
{
    const __m256i rg = _mm256_packus_epi16(red.v, green.v);
    const __m256i b = _mm256_packus_epi16(blue.v, blue.v);
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
    static const Kernel kernel = {"avx2", Vec::kBlocks, greyBlocks, colourBlocks};
    return __builtin_cpu_supports("avx2") ? &kernel : nullptr;
}

#else

const wicket::Kernel* wicket::avx2Kernel()
{
    return nullptr;
}

#endif
