// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ChunkEncoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

namespace scansim::test {

namespace {

const unsigned kLuminance[64] = {16,  11,  10,  16,  24, 40, 51,  61,  12,  12,  14,  19,  26,
                                 58,  60,  55,  14,  13, 16, 24,  40,  57,  69,  56,  14,  17,
                                 22,  29,  51,  87,  80, 62, 18,  22,  37,  56,  68,  109, 103,
                                 77,  24,  35,  55,  64, 81, 104, 113, 92,  49,  64,  78,  87,
                                 103, 121, 120, 101, 72, 92, 95,  98,  112, 100, 103, 99};
const unsigned kChrominance[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                   24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                   99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                   99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

struct Picture {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t channels;
    Bytes samples;
};

// Soft slopes with some edges, as paper has them.
Picture makePicture(std::uint32_t width, std::uint32_t height, std::uint32_t channels)
{
    Picture picture{width, height, channels, {}};
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            for (std::uint32_t c = 0; c < channels; ++c) {
                const std::uint32_t ink = (x / 13 + y / 11) % 5 == 0 ? 90 : 0;
                picture.samples.push_back(
                    static_cast<std::uint8_t>(60 + (x + 2 * y + 40 * c) % 100 + ink));
            }
        }
    }
    return picture;
}

// The same with the edges repeated up to whole blocks of 8 x 8.
Picture padded(const Picture& source)
{
    Picture out{(source.width + 7) / 8 * 8, (source.height + 7) / 8 * 8, source.channels, {}};
    for (std::uint32_t y = 0; y < out.height; ++y) {
        for (std::uint32_t x = 0; x < out.width; ++x) {
            const std::size_t row = std::min(y, source.height - 1);
            const std::size_t at = row * source.width + std::min(x, source.width - 1);
            for (std::uint32_t c = 0; c < source.channels; ++c) {
                out.samples.push_back(source.samples[at * source.channels + c]);
            }
        }
    }
    return out;
}

// A JPEG file with all its markers; the tables are scaled here, apart from the simulator.
Bytes makeJpeg(const Picture& picture, int quality)
{
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* file = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &file, &size);
    info.image_width = picture.width;
    info.image_height = picture.height;
    info.input_components = static_cast<int>(picture.channels);
    info.in_color_space = picture.channels == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&info);
    const int scale = quality <= 0 ? 10000 : quality >= 50 ? 200 - 2 * quality : 5000 / quality;
    jpeg_add_quant_table(&info, 0, kLuminance, scale, TRUE);
    if (picture.channels == 3) {
        jpeg_add_quant_table(&info, 1, kChrominance, scale, TRUE);
        info.comp_info[0].h_samp_factor = 1;
        info.comp_info[0].v_samp_factor = 1;
    }
    jpeg_start_compress(&info, TRUE);
    Bytes samples = picture.samples;
    const std::size_t stride = std::size_t{picture.width} * picture.channels;
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        JSAMPROW row = samples.data() + y * stride;
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    Bytes bytes(file, file + size);
    jpeg_destroy_compress(&info);
    std::free(file);
    return bytes;
}

struct Decoded {
    Bytes samples;
    long warnings = 0;
};

Decoded decode(const Bytes& file)
{
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&info, TRUE);
    jpeg_start_decompress(&info);
    const std::size_t stride =
        std::size_t{info.output_width} * static_cast<std::size_t>(info.output_components);
    Decoded decoded;
    decoded.samples.resize(stride * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = decoded.samples.data() + stride * info.output_scanline;
        jpeg_read_scanlines(&info, &row, 1);
    }
    decoded.warnings = errors.num_warnings;
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return decoded;
}

// Everything in front of the entropy-coded data.
Bytes headersOf(const Bytes& jpeg)
{
    const Bytes startOfScan = {0xFF, 0xDA};
    const auto scan = std::search(jpeg.begin(), jpeg.end(), startOfScan.begin(), startOfScan.end());
    return Bytes(jpeg.begin(), scan + 2 + scan[3]);
}

// A JPEG file around the body of a chunk, with the markers of a picture of nothing.
Bytes wrapped(const Bytes& chunk, const Picture& like, int quality)
{
    Picture blank = like;
    std::fill(blank.samples.begin(), blank.samples.end(), std::uint8_t{255});
    Bytes jpeg = headersOf(makeJpeg(blank, quality));
    jpeg.insert(jpeg.end(), chunk.begin() + ChunkEncoder::kHeaderSize, chunk.end() - 2);
    jpeg.insert(jpeg.end(), {0xFF, 0xD9});
    return jpeg;
}

Bytes encode(const Picture& picture, int quality)
{
    return ChunkEncoder(picture.width, picture.channels).encode(picture.samples, quality);
}

double meanDifference(const Bytes& a, const Bytes& b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += std::abs(a[i] - b[i]);
    }
    return sum / static_cast<double>(a.size());
}

}  // namespace

TEST(ChunkEncoder, HeaderSaysWhatIsInTheChunk)
{
    const Bytes chunk = encode(makePicture(21, 13, 3), 75);
    EXPECT_EQ(be32(&chunk[0]), chunk.size());
    EXPECT_EQ(be32(&chunk[4]), 13U);
    EXPECT_EQ(be32(&chunk[8]), 21U);
    EXPECT_EQ(be32(&chunk[12]), 75U);
    EXPECT_EQ(be32(&encode(makePicture(8, 8, 1), -3)[12]), 0xFFFFFFFDU);
}

TEST(ChunkEncoder, FieldsAreBigEndian)
{
    const Bytes chunk = encode(makePicture(0x0102, 1, 1), 50);
    EXPECT_EQ(Bytes(chunk.begin() + 4, chunk.begin() + 16),
              (Bytes{0, 0, 0, 1, 0, 0, 1, 2, 0, 0, 0, 50}));
}

TEST(ChunkEncoder, BodyEndsWithRoomToLookAhead)
{
    const Bytes chunk = encode(makePicture(40, 16, 3), 90);
    EXPECT_EQ(Bytes(chunk.end() - 2, chunk.end()), (Bytes{0, 0}));
}

TEST(ChunkEncoder, BodyHasNoMarkers)
{
    const Bytes chunk = encode(makePicture(400, 32, 3), 100);
    bool isStuffed = false;
    for (std::size_t i = ChunkEncoder::kHeaderSize; i + 1 < chunk.size(); ++i) {
        if (chunk[i] == 0xFF) {
            EXPECT_EQ(chunk[i + 1], 0) << "at " << i;
            isStuffed = true;
        }
    }
    EXPECT_TRUE(isStuffed);
}

TEST(ChunkEncoder, BodyIsThatOfAJpegFile)
{
    for (std::uint32_t channels : {1U, 3U}) {
        for (int quality : {-7, 0, 1, 25, 49, 50, 75, 90, 100}) {
            for (auto [width, height] : {std::pair{64U, 32U}, {61U, 16U}, {1U, 1U}, {9U, 31U}}) {
                SCOPED_TRACE(std::to_string(channels) + " channels, quality " +
                             std::to_string(quality) + ", " + std::to_string(width) + " x " +
                             std::to_string(height));
                const Picture source = makePicture(width, height, channels);
                const Picture whole = padded(source);
                const Decoded rebuilt = decode(wrapped(encode(source, quality), whole, quality));
                EXPECT_EQ(rebuilt.warnings, 0);
                EXPECT_EQ(rebuilt.samples, decode(makeJpeg(whole, quality)).samples);
            }
        }
    }
}

TEST(ChunkEncoder, DecodesToAboutTheSource)
{
    for (std::uint32_t channels : {1U, 3U}) {
        const Picture source = padded(makePicture(125, 30, channels));
        double last = 1000;
        for (int quality : {0, 10, 50, 100}) {
            const Bytes jpeg = wrapped(encode(source, quality), source, quality);
            const double difference = meanDifference(decode(jpeg).samples, source.samples);
            EXPECT_LT(difference, last) << "quality " << quality;
            last = difference;
        }
        EXPECT_LT(last, 1.0);
    }
}

TEST(ChunkEncoder, QualitiesAbove100AreThatOf100)
{
    const Picture source = makePicture(32, 8, 1);
    const Bytes best = encode(source, 100);
    const Bytes beyond = encode(source, 500);
    EXPECT_TRUE(std::equal(best.begin() + 16, best.end(), beyond.begin() + 16, beyond.end()));
}

TEST(ChunkEncoder, ChunksDoNotDependOnThoseBefore)
{
    const Picture first = makePicture(50, 32, 3);
    const Picture second = makePicture(50, 8, 3);
    ChunkEncoder encoder(50, 3);
    encoder.encode(first.samples, 10);
    EXPECT_EQ(encoder.encode(second.samples, 75), encode(second, 75));
}

TEST(ChunkEncoder, BlankGreyBandsAreSmall)
{
    const Picture blank{4960, 32, 1, Bytes(std::size_t{4960} * 32, 255)};
    EXPECT_LT(encode(blank, 75).size(), 2048U);
}

}  // namespace scansim::test
