// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Samples.h"

#include "wicket/Wicket.h"
#include "wicket/WicketTables.h"
#include "wicket/jidctint.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <random>

using samples::BitWriter;
using samples::Bytes;
using samples::Image;
using samples::Pattern;
using testing::Each;
using testing::ElementsAreArray;

namespace {

class WicketTest : public testing::Test {
protected:
    // Decodes into a plane that held 0xEE; the status goes to status.
    Bytes decode(const Bytes& body, int width, int height, int channels)
    {
        Bytes out(static_cast<std::size_t>(width * height * channels), 0xEE);
        const int len = static_cast<int>(body.size());
        generated = converted = -7;
        status = channels == 1 ? decoder->DecompressOnePlane(body.data(), len, out.data(), width,
                                                             height, &generated, &converted)
                               : decoder->DecompressThreePlanes(body.data(), len, out.data(), width,
                                                                height, &generated, &converted);
        return out;
    }

    // The grey level that a block of one DC coefficient gets at quality 100.
    static BitWriter& flat(BitWriter& writer, int diff, int component = 0)
    {
        return writer.dc(diff, component).endOfBlock(component);
    }

    std::unique_ptr<Wicket> decoder = std::make_unique<Wicket>(1);
    int status = 0;
    int generated = 0;
    int converted = 0;
};

// ---- tables ------------------------------------------------------------------------------

TEST_F(WicketTest, QualityScalesTheTables)
{
    for (const int component : {0, 1, 2}) {
        const int* base = component == 0 ? wicket::aiDefaultLuminanceQuantTable
                                         : wicket::aiDefaultChrominanceQuantTable;
        for (const int q : {INT_MIN, -1, 0, 1, 10, 15, 49, 50, 51, 75, 80, 99, 100, 101, INT_MAX}) {
            EXPECT_EQ(decoder->QualityFactor(q), 0);
            const std::int64_t scale = q <= 0   ? 10000
                                       : q < 50 ? 5000 / q
                                                : 200 - 2 * static_cast<std::int64_t>(q);
            for (int i = 0; i < 64; ++i) {
                const std::int64_t expected =
                    std::clamp<std::int64_t>((base[i] * scale + 50) / 100, 1, 255);
                ASSERT_EQ(decoder->dequantTable(component)[i], expected) << q;
                ASSERT_EQ(decoder->quantTable(component)[i], 8 * expected) << q;
            }
        }
    }
}

TEST_F(WicketTest, QualitiesWithPlainTables)
{
    EXPECT_EQ(decoder->dequantTable(0)[0], (16 * 40 + 50) / 100);  // as constructed: 80
    decoder->QualityFactor(50);
    EXPECT_EQ(decoder->dequantTable(0)[63], 99);
    EXPECT_EQ(decoder->dequantTable(0)[1], 11);
    EXPECT_EQ(decoder->dequantTable(0)[8], 12);
    EXPECT_EQ(decoder->dequantTable(1)[0], 17);
    decoder->QualityFactor(100);
    EXPECT_THAT(std::vector<int>(decoder->dequantTable(0), decoder->dequantTable(0) + 64), Each(1));
    decoder->QualityFactor(0);
    EXPECT_EQ(decoder->dequantTable(0)[63], 255);
    EXPECT_EQ(decoder->dequantTable(0)[0], 255);
    decoder->QualityFactor(50, 100);
    EXPECT_EQ(decoder->dequantTable(0)[0], 16);
    EXPECT_EQ(decoder->dequantTable(2)[0], 1);
}

TEST(WicketTables, TheZigZagVisitsEveryPlaceOnce)
{
    std::vector<int> places(wicket::aiZigZagSequence, wicket::aiZigZagSequence + 64);
    for (int k = 1; k < 64; ++k) {
        const int row = places[static_cast<std::size_t>(k)] / 8;
        const int col = places[static_cast<std::size_t>(k)] % 8;
        const int before = places[static_cast<std::size_t>(k) - 1];
        EXPECT_LE(std::abs(row - before / 8), 1);
        EXPECT_LE(std::abs(col - before % 8), 1);
        EXPECT_LE(std::abs(row + col - before / 8 - before % 8), 1);
    }
    EXPECT_EQ(places[1], 1);
    EXPECT_EQ(places[2], 8);
    std::sort(places.begin(), places.end());
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(places[static_cast<std::size_t>(i)], i);
    }
}

TEST_F(WicketTest, TransposeSwapsRowsAndColumns)
{
    int block[64];
    for (int i = 0; i < 64; ++i) {
        block[i] = i;
    }
    Wicket::Transpose(block);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(block[i], i % 8 * 8 + i / 8);
    }
}

// ---- transform ---------------------------------------------------------------------------

TEST(Transform, FollowsTheFormula)
{
    const double pi = std::acos(-1.0);
    std::mt19937 random(4);
    for (int round = 0; round < 200; ++round) {
        int block[64];
        for (int& c : block) {
            c = static_cast<int>(random() % 200) - 100;
        }
        int out[64];
        jpeg_idct(block, out);
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 8; ++x) {
                double sum = 0;
                for (int v = 0; v < 8; ++v) {
                    for (int u = 0; u < 8; ++u) {
                        sum += (u == 0 ? std::sqrt(0.5) : 1) * (v == 0 ? std::sqrt(0.5) : 1) *
                               block[v * 8 + u] * std::cos((2 * x + 1) * u * pi / 16) *
                               std::cos((2 * y + 1) * v * pi / 16) / 4;
                    }
                }
                ASSERT_NEAR(out[y * 8 + x], sum, 1.0);
            }
        }
    }
}

// Rows before columns: the order decides how these are rounded.
TEST(Transform, RoundsRowsFirst)
{
    std::mt19937 random(5);
    std::uint64_t hash = 0;
    int different = 0;
    for (int round = 0; round < 300; ++round) {
        int block[64];
        int turned[64];
        for (int i = 0; i < 64; ++i) {
            block[i] = static_cast<int>(random() % 301) - 150;
            turned[i % 8 * 8 + i / 8] = block[i];
        }
        int out[64];
        int turnedOut[64];
        jpeg_idct(block, out);
        jpeg_idct(turned, turnedOut);
        Wicket::Transpose(turnedOut);
        different += std::equal(out, out + 64, turnedOut) ? 0 : 1;
        for (const int s : out) {
            hash = (hash ^ static_cast<unsigned>(s)) * 1099511628211U;
        }
    }
    EXPECT_GT(different, 0);
    EXPECT_EQ(hash, 0x26190780f22cecf8U);
}

TEST(Transform, WrapsBeyond32Bits)
{
    for (const int extreme : {INT_MIN, INT_MAX, 1 << 20, -(1 << 19)}) {
        int block[64];
        std::fill(block, block + 64, extreme);
        int out[64];
        jpeg_idct(block, out);
        EXPECT_TRUE(std::all_of(out, out + 64, [](int s) { return s >= -8192 && s <= 8191; }));
    }
    int block[64] = {1 << 18};
    int out[64];
    jpeg_idct(block, out);
    EXPECT_THAT(out, Each(0));  // 2^18 << 13 leaves 32 bits for good
}

// ---- colour ------------------------------------------------------------------------------

TEST_F(WicketTest, ColoursFollowTheirFormulas)
{
    std::mt19937 random(6);
    for (int round = 0; round < 500; ++round) {
        int blocks[192];
        for (int& s : blocks) {
            s = static_cast<int>(random() % 600) - 300;
        }
        Bytes out(20 * 3 * 8, 7);
        decoder->YCbCrToRGB(blocks, out.data(), 20);
        for (int i = 0; i < 64; ++i) {
            const int y = (blocks[i] + 128) * 1024 + 128;
            const int cb = blocks[64 + i];
            const int cr = blocks[128 + i];
            const int expected[3] = {(y + 1436 * cr) >> 10, (y - 352 * cb - 731 * cr) >> 10,
                                     (y + 1815 * cb) >> 10};
            for (int channel = 0; channel < 3; ++channel) {
                ASSERT_EQ(out[static_cast<std::size_t>((i / 8 * 20 + i % 8) * 3 + channel)],
                          std::clamp(expected[channel], 0, 255));
            }
        }
        EXPECT_EQ(out[24], 7);
        EXPECT_EQ(out[59], 7);
    }
}

// ---- planes ------------------------------------------------------------------------------

TEST_F(WicketTest, PlanesAreWholeBlocks)
{
    for (const auto& [stuffing, width, height, grey, colour] :
         {std::tuple(1, 4, 8, 769, 769), std::tuple(1, 8, 4, 770, 770),
          std::tuple(1, 9, 9, 769, 769), std::tuple(0, 16, 8, 769, 0),
          std::tuple(0, 8, 8, 769, 769), std::tuple(0, 48, 8, 0, 0), std::tuple(0, 48, 7, 770, 770),
          std::tuple(2, 4, 8, 769, 769), std::tuple(2, 8, 8, 0, 0), std::tuple(1, 0, 0, 0, 0)}) {
        decoder = std::make_unique<Wicket>(stuffing);
        BitWriter writer;
        for (int i = 0; i < 6; ++i) {
            flat(flat(flat(writer, 0), 0, 1), 0, 2);
        }
        const Bytes good = writer.finish(20);
        const Bytes plane = decode(good, width, height, 1);
        EXPECT_EQ(status, grey) << stuffing << " " << width << " " << height;
        EXPECT_TRUE(grey == 0 || plane == Bytes(plane.size(), 0));
        const Bytes out = decode(good, width, height, 3);
        EXPECT_EQ(status, colour) << stuffing << " " << width << " " << height;
        EXPECT_EQ(generated, colour == 0 ? width * height * 3 : -7);
        EXPECT_TRUE(colour == 0 || out == Bytes(out.size(), 0));
    }
}

TEST_F(WicketTest, GreyEndsAreReached)
{
    decoder->QualityFactor(100);
    for (const auto& [sample, byte] :
         {std::pair(127, 255), std::pair(128, 255), std::pair(126, 254), std::pair(-127, 1),
          std::pair(-128, 0), std::pair(-129, 0), std::pair(0, 128), std::pair(250, 255),
          std::pair(-250, 0)}) {
        BitWriter writer;
        const Bytes out = decode(flat(writer, sample * 8).finish(), 8, 8, 1);
        EXPECT_EQ(status, 0);
        EXPECT_THAT(out, Each(byte)) << sample;
        EXPECT_EQ(generated, 64);
    }
}

TEST_F(WicketTest, ColourPlaneOfTwoBlocks)
{
    decoder->QualityFactor(100);
    BitWriter writer;
    flat(flat(flat(writer, 80), 0, 1), 0, 2);  // Y 10
    flat(flat(flat(writer, 80), 0, 1), 0, 2);  // Y 20: the difference counts
    const Bytes out = decode(writer.finish(), 16, 8, 3);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(generated, 384);
    for (std::size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(out[i], i % 48 < 24 ? 138 : 148) << i;
    }
}

TEST_F(WicketTest, CountsOfConsumedBytesDiffer)
{
    decoder->QualityFactor(100);
    BitWriter grey;
    flat(flat(grey, 0), 0);
    decode(grey.finish(), 16, 8, 1);
    EXPECT_EQ(converted, (12 + 511) / 64 * 512);
    BitWriter colour;
    flat(flat(flat(colour, 0), 0, 1), 0, 2);
    decode(colour.finish(), 8, 8, 3);
    EXPECT_EQ(converted, (14 + 511) / 512 * 64);
}

TEST_F(WicketTest, PredictorsRestartWithEveryChunk)
{
    decoder->QualityFactor(100);
    BitWriter writer;
    const Bytes body = flat(writer, 80).finish();
    EXPECT_EQ(decode(body, 8, 8, 1), decode(body, 8, 8, 1));
    BitWriter three;
    const Bytes colour = flat(flat(flat(three, 80), 40, 1), -40, 2).finish();
    EXPECT_EQ(decode(colour, 8, 8, 3), decode(colour, 8, 8, 3));
}

// ---- streams with errors -------------------------------------------------------------------

struct Broken {
    const char* name;
    Bytes body;
    int status;
};

std::vector<Broken> brokenStreams()
{
    std::vector<Broken> streams;
    BitWriter tooManyZeros;
    tooManyZeros.dc(8, 0);
    BitWriter tooFarARun;
    tooFarARun.dc(8, 0);
    for (int i = 0; i < 3; ++i) {
        tooManyZeros.sixteenZeros(0);
        tooFarARun.sixteenZeros(0);
    }
    tooManyZeros.ac(0, 1, 0).sixteenZeros(0);
    tooFarARun.ac(15, 1, 0);
    streams.push_back({"zeros", tooManyZeros.finish(), 771});
    streams.push_back({"run", tooFarARun.finish(), 771});
    streams.push_back({"dc code", BitWriter().bits(0xFFFF, 16).finish(), 261});
    streams.push_back({"ac code", BitWriter().dc(8, 0).bits(0xFFFF, 16).finish(), 261});
    streams.push_back({"empty", {}, 513});
    streams.push_back({"one byte", {0x28}, 513});
    streams.push_back({"inside a symbol", BitWriter().dc(2000, 0).finish(0), 513});
    return streams;
}

TEST_F(WicketTest, ErrorsHaveTheirStatus)
{
    for (const Broken& broken : brokenStreams()) {
        const Bytes out = decode(broken.body, 8, 8, 3);
        EXPECT_EQ(status, broken.status) << broken.name;
        EXPECT_THAT(out, Each(0)) << broken.name;
        EXPECT_EQ(generated, -7);
        const Bytes grey = decode(broken.body, 8, 8, 1);
        EXPECT_EQ(status, 0) << broken.name;
        EXPECT_EQ(generated, 64);
        EXPECT_THAT(grey, Each(128)) << broken.name;
    }
}

TEST_F(WicketTest, BlocksMayEndWithoutASymbol)
{
    decoder->QualityFactor(100);
    BitWriter full;
    full.dc(8, 0);
    for (int i = 0; i < 63; ++i) {
        full.ac(0, 1, 0);
    }
    flat(full, 8);
    BitWriter zeros;  // 3 x 16 zeros, 15 values
    zeros.dc(8, 0).sixteenZeros(0).sixteenZeros(0).sixteenZeros(0);
    for (int i = 0; i < 15; ++i) {
        zeros.ac(0, 1, 0);
    }
    flat(zeros, 8);
    BitWriter exact;  // sixteen zeros that end the block
    exact.dc(8, 0);
    for (int i = 0; i < 15; ++i) {
        exact.ac(0, 1, 0);
    }
    flat(exact.sixteenZeros(0).sixteenZeros(0).sixteenZeros(0), 8);
    for (const wicket::Kernel* kernel :
         {Wicket::bestKernel(), static_cast<const wicket::Kernel*>(nullptr)}) {
        decoder->useKernel(kernel);
        for (const BitWriter& writer : {full, zeros, exact}) {
            const Bytes out = decode(writer.finish(), 16, 8, 1);
            EXPECT_EQ(status, 0);
            EXPECT_NE(out[0], 128) << "the block is there";
            for (std::size_t row = 0; row < 8; ++row) {
                for (std::size_t col = 8; col < 16; ++col) {
                    ASSERT_EQ(out[row * 16 + col], 130);
                }
            }
        }
    }
}

TEST_F(WicketTest, ColourEndsAtTheFirstError)
{
    decoder->QualityFactor(100);
    BitWriter writer;
    flat(flat(flat(writer, 80), 0, 1), 0, 2);
    flat(writer, 80).bits(0xFFFF, 16).bits(0x28A2, 16);
    const Bytes out = decode(writer.finish(50), 24, 16, 3);
    EXPECT_EQ(status, 261);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const bool isFirst = i < 8 * 72 && i % 72 < 24;
        ASSERT_EQ(out[i], isFirst ? 138 : 0) << i;
    }
}

// The last good block stands in for one that cannot be decoded.
TEST_F(WicketTest, GreyGoesOnBehindAnError)
{
    decoder->QualityFactor(100);
    BitWriter writer;
    flat(writer, 80);
    const Bytes out = decode(writer.bits(0xFFFF, 16).finish(50), 24, 8, 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(generated, 24 * 8);
    EXPECT_THAT(out, Each(138));
    // A block that fails behind its DC coefficient leaves that in the predictor.
    BitWriter more;
    flat(more, 80).dc(80, 0);
    for (int i = 0; i < 4; ++i) {
        more.sixteenZeros(0);
    }
    const Bytes next = decode(flat(more, 80).finish(50), 24, 8, 1);
    EXPECT_EQ(next[0], 138);
    EXPECT_EQ(next[8], 138);
    EXPECT_EQ(next[16], 158);
}

TEST_F(WicketTest, TheDecoderNeedsSixteenBitsBehindTheLastSymbol)
{
    const Image image = samples::page(Pattern::photo, 64, 16, 3);
    decoder->QualityFactor(80);
    const Bytes body = samples::encode(image, 80);
    const Bytes whole = decode(body, 64, 16, 3);
    EXPECT_EQ(status, 0);
    const Bytes cut(body.begin(), body.end() - 2);
    const Bytes part = decode(cut, 64, 16, 3);
    EXPECT_EQ(status, 513);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 8 * 192, part.begin()));
}

// ---- pages -------------------------------------------------------------------------------

struct Digest {
    int channels;
    int quality;
    std::uint64_t expected;
};

void PrintTo(const Digest& digest, std::ostream* out)
{
    *out << (digest.channels == 1 ? "grey" : "colour") << digest.quality;
}

class Pages : public WicketTest, public testing::WithParamInterface<Digest> {};

// The whole picture at every size, and the tolerance within which libjpeg sees the same.
TEST_P(Pages, HaveTheirDigest)
{
    const auto [channels, quality, expected] = GetParam();
    decoder->QualityFactor(quality);
    std::uint64_t digest = 0;
    for (const Pattern pattern : samples::kPatterns) {
        for (const int width : {8, 40, 100, 133, 264}) {
            for (const int lines : {8, 16, 32, 5}) {
                const Image image = samples::page(pattern, width, lines, channels);
                const Bytes out = decode(samples::encode(image, quality), (width + 7) / 8 * 8,
                                         (lines + 7) / 8 * 8, channels);
                ASSERT_EQ(status, 0);
                digest = digest * 31 + samples::fnv1a(out);
            }
        }
    }
    EXPECT_EQ(digest, expected) << std::hex << "0x" << digest;
}

INSTANTIATE_TEST_SUITE_P(
    Wicket, Pages,
    testing::Values(Digest{1, 0, 0xa958d780b5a231adU}, Digest{1, 1, 0xa958d780b5a231adU},
                    Digest{1, 10, 0xa712ec6d07a38482U}, Digest{1, 50, 0x3d187a8aa0125017U},
                    Digest{1, 75, 0x99cb811d428188e4U}, Digest{1, 90, 0xef881f90b6c20c1cU},
                    Digest{1, 100, 0x8e2f71548ece7a23U}, Digest{3, 0, 0x647431f5bf6faa78U},
                    Digest{3, 1, 0x647431f5bf6faa78U}, Digest{3, 10, 0xd0c13c9f9aaa56caU},
                    Digest{3, 50, 0x4d7fb33958d08cbcU}, Digest{3, 75, 0xc03390ada4e9a95fU},
                    Digest{3, 90, 0x1d71ade244b4b2d8U}, Digest{3, 100, 0xf1c91427a56d6ef8U}));

TEST_F(WicketTest, LibjpegSeesTheSame)
{
    for (const int channels : {1, 3}) {
        for (const int quality : {30, 75, 85, 95}) {
            decoder->QualityFactor(quality);
            for (const Pattern pattern : samples::kPatterns) {
                const Image image = samples::page(pattern, 104, 32, channels);
                const Bytes out = decode(samples::encode(image, quality), 104, 32, channels);
                const Bytes other = samples::oracle(image, quality);
                ASSERT_EQ(out.size(), other.size());
                int worst = 0;
                long sum = 0;
                for (std::size_t i = 0; i < out.size(); ++i) {
                    worst = std::max(worst, std::abs(out[i] - other[i]));
                    sum += std::abs(out[i] - other[i]);
                }
                const bool isNoise = pattern == Pattern::noise || pattern == Pattern::text;
                const int tolerance = channels == 1 ? 1 : quality >= 75 && !isNoise ? 4 : 200;
                EXPECT_LE(worst, tolerance)
                    << channels << " " << quality << " " << static_cast<int>(pattern);
                EXPECT_LT(sum, static_cast<long>(out.size()) * (isNoise ? 8 : 1) / 2)
                    << channels << " " << quality << " " << static_cast<int>(pattern);
            }
        }
    }
}

}  // namespace
