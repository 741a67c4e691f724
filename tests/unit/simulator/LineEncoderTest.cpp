// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LineEncoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace scansim::test {

namespace {

Bytes pageLine(std::uint32_t pixels, std::uint32_t channels)
{
    Bytes line(std::size_t{pixels} * channels);
    std::iota(line.begin(), line.end(), std::uint8_t{1});
    return line;
}

Bytes encoded(const LineLayout& layout, std::uint32_t pixels, std::uint32_t channels)
{
    LineEncoder encoder(layout, pixels, channels);
    Bytes device(encoder.deviceLineSize());
    encoder.encode(pageLine(pixels, channels).data(), device.data());
    return device;
}

// How a host puts the half-lines together: alternately by the parity of the byte position, behind
// the trimmed pixels, then cut to the wanted ones.
Bytes merged(const Bytes& device, const LineLayout& layout, std::uint32_t pixels,
             std::uint32_t channels)
{
    const std::size_t half = device.size() / 2;
    Bytes line(device.size());
    std::size_t fromA = std::size_t{layout.trim} * channels;
    std::size_t fromB = fromA;
    for (std::size_t p = 0; p < device.size(); p += channels) {
        std::size_t& from = p % 2 == 0 ? fromA : fromB;
        for (std::size_t c = 0; c < channels; ++c) {
            const std::size_t at = from + c;
            line[p + c] = at < half ? device[at + (p % 2 == 0 ? 0 : half)] : std::uint8_t{0};
        }
        from += channels;
    }
    const auto first = line.begin() + static_cast<long>(std::size_t{layout.offsetX} * channels);
    return Bytes(first, first + static_cast<long>(std::size_t{pixels} * channels));
}

}  // namespace

TEST(LineEncoder, RawIsThePageItself)
{
    EXPECT_EQ(encoded({}, 5, 3), pageLine(5, 3));
    EXPECT_EQ(encoded({}, 5, 1), pageLine(5, 1));
}

TEST(LineEncoder, MirrorsPixels)
{
    LineLayout layout;
    layout.isMirrored = true;
    EXPECT_EQ(encoded(layout, 3, 3), (Bytes{7, 8, 9, 4, 5, 6, 1, 2, 3}));
    EXPECT_EQ(encoded(layout, 3, 1), (Bytes{3, 2, 1}));
}

TEST(LineEncoder, SwapsColoursButNotGrey)
{
    LineLayout layout;
    layout.isBgr = true;
    EXPECT_EQ(encoded(layout, 2, 3), (Bytes{3, 2, 1, 6, 5, 4}));
    EXPECT_EQ(encoded(layout, 2, 1), (Bytes{1, 2}));
}

TEST(LineEncoder, HalfLinesWithJunkAroundThem)
{
    LineLayout layout;
    layout.isInterleaved = true;
    layout.offsetX = 1;
    layout.trim = 1;
    // merged: junk 1 2 3 4; so A holds junk(trim) junk 2 4, B junk(trim) 1 3 junk
    EXPECT_EQ(encoded(layout, 4, 1), (Bytes{0xA5, 0xA5, 2, 4, 0xA5, 1, 3, 0xA5}));
}

TEST(LineEncoder, HostsMergeGivesThePageBack)
{
    for (std::uint32_t channels : {1U, 3U}) {
        for (std::uint32_t pixels : {1U, 2U, 7U, 8U, 25U}) {
            for (std::uint32_t offset : {0U, 1U, 2U, 5U}) {
                for (std::uint32_t trim : {0U, 1U, 4U}) {
                    LineLayout layout;
                    layout.isInterleaved = true;
                    layout.offsetX = offset;
                    layout.trim = trim;
                    EXPECT_EQ(merged(encoded(layout, pixels, channels), layout, pixels, channels),
                              pageLine(pixels, channels))
                        << pixels << " pixels, " << channels << " channels, offset " << offset
                        << ", trim " << trim;
                }
            }
        }
    }
}

}  // namespace scansim::test
