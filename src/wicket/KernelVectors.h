// SPDX-License-Identifier: LGPL-2.1-or-later
// Vectors for the code of a Kernel: blocks of 128 bits side by side, which no operation mixes.
// Included once by each of its sources, behind their number kBlocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

using std::int16_t;
using std::size_t;

constexpr int kLanes = 8 * kBlocks;

using Vec16 = int16_t __attribute__((vector_size(16 * kBlocks)));
using Vec32 = std::int32_t __attribute__((vector_size(16 * kBlocks)));
using Vec64 = std::int64_t __attribute__((vector_size(16 * kBlocks)));

inline Vec16 load(const int16_t* from)
{
    Vec16 v;
    memcpy(&v, from, sizeof v);
    return v;
}

inline Vec16 all16(int16_t value)
{
    return Vec16{} + value;
}

inline Vec32 all32(std::int32_t value)
{
    return Vec32{} + value;
}

// The two values in turn.
inline Vec16 pair(int16_t even, int16_t odd)
{
    const auto both = static_cast<std::uint32_t>(static_cast<std::uint16_t>(odd)) << 16 |
                      static_cast<std::uint16_t>(even);
    return reinterpret_cast<Vec16>(all32(static_cast<std::int32_t>(both)));
}

inline Vec16 max16(Vec16 a, Vec16 b)
{
    return a > b ? a : b;
}

inline Vec16 min16(Vec16 a, Vec16 b)
{
    return a < b ? a : b;
}

// Lane i of a vector that takes turns with the halves of two others, the low or high ones of
// each block of the given number of lanes.
constexpr int zippedFrom(int i, int lanes, bool isHigh)
{
    const int block = i / lanes;
    const int inBlock = i % lanes;
    return block * lanes + inBlock / 2 + (isHigh ? lanes / 2 : 0) + inBlock % 2 * lanes * kBlocks;
}

template <bool kHigh, typename V, size_t... kLane>
inline V zip(V a, V b, std::index_sequence<kLane...>)
{
    constexpr int kPerBlock = static_cast<int>(sizeof...(kLane)) / kBlocks;
    return __builtin_shufflevector(a, b, zippedFrom(static_cast<int>(kLane), kPerBlock, kHigh)...);
}

template <bool kHigh, typename V>
inline Vec16 zipAs(Vec16 a, Vec16 b)
{
    constexpr auto kAll = std::make_index_sequence<sizeof(V) / sizeof(V{}[0])>();
    return reinterpret_cast<Vec16>(
        zip<kHigh>(reinterpret_cast<V>(a), reinterpret_cast<V>(b), kAll));
}

inline Vec16 zipLow16(Vec16 a, Vec16 b)
{
    return zipAs<false, Vec16>(a, b);
}

inline Vec16 zipHigh16(Vec16 a, Vec16 b)
{
    return zipAs<true, Vec16>(a, b);
}

inline Vec16 zipLow32(Vec16 a, Vec16 b)
{
    return zipAs<false, Vec32>(a, b);
}

inline Vec16 zipHigh32(Vec16 a, Vec16 b)
{
    return zipAs<true, Vec32>(a, b);
}

inline Vec16 zipLow64(Vec16 a, Vec16 b)
{
    return zipAs<false, Vec64>(a, b);
}

inline Vec16 zipHigh64(Vec16 a, Vec16 b)
{
    return zipAs<true, Vec64>(a, b);
}

// The first value of each block in all of its lanes.
template <size_t... kLane>
inline Vec16 firstOfBlock(Vec16 a, std::index_sequence<kLane...>)
{
    return __builtin_shufflevector(a, a, static_cast<int>(kLane / 8 * 8)...);
}

inline Vec16 firstOfBlock(Vec16 a)
{
    return firstOfBlock(a, std::make_index_sequence<static_cast<size_t>(kLanes)>());
}

}  // namespace
