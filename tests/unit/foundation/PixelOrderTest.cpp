// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PixelOrder.h"
#include "TestSupport.h"

#include <algorithm>
#include <memory>
#include <random>

namespace {

// The lengths around whole blocks of vectors, and some that front ends have.
std::vector<std::size_t> counts()
{
    std::vector<std::size_t> all(420);
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = i;
    }
    all.insert(all.end(), {637, 2550, 5100});
    return all;
}

// Without a byte to spare, so that a sanitizer sees what reaches over the end.
class Pixels {
public:
    explicit Pixels(std::size_t size) : size_(size), bytes_(new unsigned char[size]) {}
    Pixels(std::size_t size, unsigned seed) : Pixels(size)
    {
        std::mt19937 random(seed);
        std::generate_n(bytes_.get(), size, [&] { return static_cast<unsigned char>(random()); });
    }
    unsigned char* data() { return bytes_.get(); }
    Bytes copy() const { return {bytes_.get(), bytes_.get() + size_}; }

private:
    std::size_t size_;
    std::unique_ptr<unsigned char[]> bytes_;
};

Bytes changed(std::size_t bytes, std::size_t count, void (*change)(unsigned char*, std::size_t))
{
    Pixels pixels(bytes, static_cast<unsigned>(count));
    change(pixels.data(), count);
    return pixels.copy();
}

Bytes merged(std::size_t pixelBytes, std::size_t pairs, decltype(PixelOrder::mergeGrey) merge)
{
    Pixels a(pixelBytes * pairs, 1);
    Pixels b(pixelBytes * pairs, 2);
    Pixels out(2 * pixelBytes * pairs);
    merge(a.data(), b.data(), out.data(), pairs);
    return out.copy();
}

TEST(PixelOrder, PlainCode)
{
    const PixelOrder& order = scalarPixelOrder();
    Bytes bytes = counting(9);
    order.swapColours(bytes.data(), 3);
    EXPECT_EQ(bytes, (Bytes{2, 1, 0, 5, 4, 3, 8, 7, 6}));
    bytes = counting(9);
    order.mirrorColour(bytes.data(), 3);
    EXPECT_EQ(bytes, (Bytes{6, 7, 8, 3, 4, 5, 0, 1, 2}));
    bytes = counting(5);
    order.mirrorGrey(bytes.data(), 5);
    EXPECT_EQ(bytes, (Bytes{4, 3, 2, 1, 0}));
    Bytes out(12);
    order.mergeColour(counting(6).data(), counting(6, 10).data(), out.data(), 2);
    EXPECT_EQ(out, (Bytes{0, 1, 2, 10, 11, 12, 3, 4, 5, 13, 14, 15}));
    out.resize(4);
    order.mergeGrey(counting(2).data(), counting(2, 10).data(), out.data(), 2);
    EXPECT_EQ(out, (Bytes{0, 10, 1, 11}));
}

TEST(PixelOrder, VectorsDoTheSame)
{
    const PixelOrder* vectors = avx2PixelOrder();
    if (vectors == nullptr) {
        // The plain code is what such a processor runs, so there are no two to compare.
        GTEST_SKIP() << "the processor has none";
    }
    const PixelOrder& plain = scalarPixelOrder();
    for (const std::size_t count : counts()) {
        SCOPED_TRACE(count);
        EXPECT_EQ(changed(3 * count, count, vectors->swapColours),
                  changed(3 * count, count, plain.swapColours));
        EXPECT_EQ(changed(3 * count, count, vectors->mirrorColour),
                  changed(3 * count, count, plain.mirrorColour));
        EXPECT_EQ(changed(count, count, vectors->mirrorGrey),
                  changed(count, count, plain.mirrorGrey));
        EXPECT_EQ(merged(3, count, vectors->mergeColour), merged(3, count, plain.mergeColour));
        EXPECT_EQ(merged(1, count, vectors->mergeGrey), merged(1, count, plain.mergeGrey));
    }
}

TEST(PixelOrder, BestIsTheWidest)
{
    const PixelOrder* vectors = avx2PixelOrder();
    EXPECT_STREQ(pixelOrder().name, vectors != nullptr ? "avx2" : "scalar");
}

}  // namespace
