// SPDX-License-Identifier: LGPL-2.1-or-later
// AVX2. Compiled for it as a whole: nothing here may run before the processor was asked, and
// nothing of the standard library that another unit could share.
#include "PixelOrder.h"

#if defined(__AVX2__)

#include "GreyLoops.h"

#include <cstring>

#include <immintrin.h>

// Products of small constants.
// NOLINTBEGIN(bugprone-implicit-widening-of-multiplication-result)
namespace {

using std::size_t;

// Pixels of three bytes are taken in blocks of whole vectors.
constexpr int kVector = 32;
constexpr int kLane = 16;
constexpr int kBlock = 3 * kVector;
constexpr int kBlockPixels = kVector;
// What a lane of reordered bytes needs lies within two loads of its size, these many bytes
// before and behind the lane's own place.
constexpr int kReach = 2;

using Vector = __m256i;

Vector load(const unsigned char* from)
{
    return _mm256_loadu_si256(reinterpret_cast<const Vector*>(from));
}

void store(unsigned char* to, Vector v)
{
    _mm256_storeu_si256(reinterpret_cast<Vector*>(to), v);
}

// For each byte of a vector: its index in a lane, or -1 for none.
struct alignas(kVector) Choice {
    signed char index[kVector];

    Vector vector() const { return _mm256_load_si256(reinterpret_cast<const Vector*>(index)); }
};

Vector choose(Vector a, const Choice& fromA, Vector b, const Choice& fromB)
{
    return _mm256_or_si256(_mm256_shuffle_epi8(a, fromA.vector()),
                           _mm256_shuffle_epi8(b, fromB.vector()));
}

constexpr int swappedFrom(int at)
{
    return at - at % 3 + 2 - at % 3;
}

constexpr int mirroredFrom(int at)
{
    return kBlock - 3 - at + at % 3 * 2;
}

// Of vector number v of a block; isLate: those in the second of two loads only.
constexpr Choice swapChoice(int v, bool isLate)
{
    Choice choice{};
    for (int i = 0; i < kVector; ++i) {
        const int lane = v * kVector + i - i % kLane;
        const int inEarly = swappedFrom(v * kVector + i) - (lane - kReach);
        const bool isInEarly = inEarly < kLane;
        const int index = isLate ? inEarly - 2 * kReach : inEarly;
        choice.index[i] = static_cast<signed char>(isInEarly != isLate ? index : -1);
    }
    return choice;
}

// The vector's lanes change places afterwards.
constexpr Choice mirrorChoice(int v, bool isLate)
{
    Choice choice{};
    for (int i = 0; i < kVector; ++i) {
        const int at = v * kVector + (i + kLane) % kVector;
        const int opposite = kBlock - kLane - (at - at % kLane);
        const int inEarly = mirroredFrom(at) - (opposite - kReach);
        const bool isInEarly = inEarly < kLane;
        const int index = isLate ? inEarly - 2 * kReach : inEarly;
        choice.index[i] = static_cast<signed char>(isInEarly != isLate ? index : -1);
    }
    return choice;
}

constexpr Choice kSwapEarly[] = {swapChoice(0, false), swapChoice(1, false), swapChoice(2, false)};
constexpr Choice kSwapLate[] = {swapChoice(0, true), swapChoice(1, true), swapChoice(2, true)};
constexpr Choice kMirrorEarly[] = {mirrorChoice(0, false), mirrorChoice(1, false),
                                   mirrorChoice(2, false)};
constexpr Choice kMirrorLate[] = {mirrorChoice(0, true), mirrorChoice(1, true),
                                  mirrorChoice(2, true)};

// What reaches over a block is loaded before its neighbour is stored: a load of bytes that were
// just stored in another cut has to wait for them.
void swapColours(unsigned char* pixels, size_t count)
{
    const PixelOrder& scalar = scalarPixelOrder();
    if (count < 3 * kBlockPixels) {
        scalar.swapColours(pixels, count);
        return;
    }
    scalar.swapColours(pixels, 1);
    unsigned char* p = pixels + 3;
    size_t left = count - 1;
    Vector first = load(p - kReach);
    for (; left >= 2 * kBlockPixels; left -= kBlockPixels, p += kBlock) {
        const Vector a = choose(first, kSwapEarly[0], load(p + kReach), kSwapLate[0]);
        const Vector b = choose(load(p + kVector - kReach), kSwapEarly[1],
                                load(p + kVector + kReach), kSwapLate[1]);
        const Vector c = choose(load(p + 2 * kVector - kReach), kSwapEarly[2],
                                load(p + 2 * kVector + kReach), kSwapLate[2]);
        first = load(p + kBlock - kReach);
        store(p, a);
        store(p + kVector, b);
        store(p + 2 * kVector, c);
    }
    scalar.swapColours(p, left);
}

struct Block {
    Vector v[3];
};

// The loads at both ends reach over the block.
Vector loadFirst(const unsigned char* block)
{
    return load(block - kReach);
}

Vector loadLast(const unsigned char* block)
{
    return load(block + kBlock - kVector + kReach);
}

Block mirrored(const unsigned char* block, Vector first, Vector last)
{
    const unsigned char* middle = block + kVector;
    Block out = {
        {choose(load(middle + kVector - kReach), kMirrorEarly[0], last, kMirrorLate[0]),
         choose(load(middle - kReach), kMirrorEarly[1], load(middle + kReach), kMirrorLate[1]),
         choose(first, kMirrorEarly[2], load(block + kReach), kMirrorLate[2])}};
    for (Vector& v : out.v) {
        v = _mm256_permute2x128_si256(v, v, 1);
    }
    return out;
}

void store(unsigned char* to, const Block& block)
{
    for (int i = 0; i < 3; ++i) {
        store(to + i * kVector, block.v[i]);
    }
}

void mirrorColour(unsigned char* line, size_t count)
{
    const PixelOrder& scalar = scalarPixelOrder();
    if (count < 2 * kBlockPixels + 2) {
        scalar.mirrorColour(line, count);
        return;
    }
    // The outermost pixels first, since a block's neighbours are read with it.
    unsigned char outermost[3];
    unsigned char* right = line + count * 3 - 3;
    memcpy(outermost, line, 3);
    memcpy(line, right, 3);
    memcpy(right, outermost, 3);
    unsigned char* left = line + 3;
    Vector leftFirst = loadFirst(left);
    Vector rightLast = loadLast(right - kBlock);
    for (count -= 2; count >= 2 * kBlockPixels; count -= 2 * kBlockPixels, left += kBlock) {
        right -= kBlock;
        const Block toRight = mirrored(left, leftFirst, loadLast(left));
        const Block toLeft = mirrored(right, loadFirst(right), rightLast);
        leftFirst = loadFirst(left + kBlock);
        rightLast = loadLast(right - kBlock);
        store(left, toLeft);
        store(right, toRight);
    }
    scalar.mirrorColour(left, count);
}

// Where in a block of either half the bytes begin that a lane of merged ones takes of it. The last
// lane's load ends with the block.
constexpr int kMergedFrom[] = {0, 7, 15, 23, 31, 32};

constexpr Choice mergeChoice(int v, bool isFromB)
{
    Choice choice{};
    for (int i = 0; i < kVector; ++i) {
        const int at = v * kVector + i;
        const bool isChosen = (at / 3 % 2 != 0) == isFromB;
        const int index = at / 6 * 3 + at % 3 - kMergedFrom[at / kLane];
        choice.index[i] = static_cast<signed char>(isChosen ? index : -1);
    }
    return choice;
}

constexpr Choice kMergeA[] = {mergeChoice(0, false), mergeChoice(1, false), mergeChoice(2, false)};
constexpr Choice kMergeB[] = {mergeChoice(0, true), mergeChoice(1, true), mergeChoice(2, true)};

Vector loadLanes(const unsigned char* half, int v)
{
    const auto lane = [half](int number) {
        return reinterpret_cast<const __m128i*>(half + kMergedFrom[number]);
    };
    return _mm256_loadu2_m128i(lane(2 * v + 1), lane(2 * v));
}

void mergeColour(const unsigned char* a, const unsigned char* b, unsigned char* out, size_t pairs)
{
    for (; pairs >= kBlockPixels / 2; pairs -= kBlockPixels / 2) {
        for (int v = 0; v < 3; ++v) {
            store(out + v * kVector,
                  choose(loadLanes(a, v), kMergeA[v], loadLanes(b, v), kMergeB[v]));
        }
        a += kBlock / 2;
        b += kBlock / 2;
        out += kBlock;
    }
    scalarPixelOrder().mergeColour(a, b, out, pairs);
}

}  // namespace

const PixelOrder* avx2PixelOrder()
{
    static const PixelOrder order = {"avx2",     swapColours, mirrorColour,
                                     mirrorGrey, mergeColour, mergeGrey};
    return __builtin_cpu_supports("avx2") ? &order : nullptr;
}

// NOLINTEND(bugprone-implicit-widening-of-multiplication-result)

#else

const PixelOrder* avx2PixelOrder()
{
    return nullptr;
}

#endif
