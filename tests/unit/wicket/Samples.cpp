// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Samples.h"

#include "wicket/Huffman.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

namespace samples {
namespace {

unsigned char sampleAt(Pattern pattern, int x, int y, int channel, std::mt19937& random)
{
    const auto noise = [&](int range) {
        return static_cast<int>(random() % static_cast<unsigned>(range));
    };
    int value = 255;
    switch (pattern) {
    case Pattern::blank:
        break;
    case Pattern::gradient:
        value = (x * 3 + y * 5 + channel * 40) / 4 % 256;
        break;
    case Pattern::text:
        value = (x / 3 * 7 + y / 5 * 11) % 13 < 4 ? 10 + channel * 5 : 250;
        break;
    case Pattern::photo:
        value = 128 + (x * (channel + 2) / 3 % 97) - (y * 2 % 53) + noise(12);
        break;
    case Pattern::noise:
        value = noise(256);
        break;
    }
    return static_cast<unsigned char>(std::clamp(value, 0, 255));
}

void setUp(jpeg_compress_struct& jpeg, const Image& image, int quality)
{
    jpeg.image_width = static_cast<JDIMENSION>(image.width);
    jpeg.image_height = static_cast<JDIMENSION>(image.height);
    jpeg.input_components = image.channels;
    jpeg.in_color_space = image.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&jpeg);
    if (quality <= 0) {
        jpeg_set_linear_quality(&jpeg, 10000, TRUE);
    } else {
        jpeg_set_quality(&jpeg, quality, TRUE);
    }
    for (int i = 0; i < jpeg.num_components; ++i) {
        jpeg.comp_info[i].h_samp_factor = 1;
        jpeg.comp_info[i].v_samp_factor = 1;
    }
}

// Where the entropy-coded data of a file starts: behind its start-of-scan segment.
std::size_t bodyOf(const Bytes& file)
{
    std::size_t at = 2;
    for (;;) {
        const std::size_t length = static_cast<std::size_t>(file.at(at + 2)) << 8 | file.at(at + 3);
        const bool isScan = file.at(at + 1) == 0xDA;
        at += 2 + length;
        if (isScan) {
            return at;
        }
    }
}

int sizeCategory(int value)
{
    int size = 0;
    for (int rest = std::abs(value); rest != 0; rest /= 2) {
        ++size;
    }
    return size;
}

const HuffCodec& codec(int component)
{
    static const auto huffman = [] {
        auto made = std::make_unique<Huffman>();
        if (made->Initialize(1) != 0) {
            throw std::runtime_error("code tables");
        }
        return made;
    }();
    return huffman->codecOf(component);
}

}  // namespace

Image page(Pattern pattern, int width, int height, int channels)
{
    Image image = {width, height, channels, {}};
    std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int channel = 0; channel < channels; ++channel) {
                image.pixels.push_back(sampleAt(pattern, x, y, channel, random));
            }
        }
    }
    return image;
}

Bytes encodeFile(const Image& image, int quality)
{
    jpeg_compress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &data, &size);
    setUp(jpeg, image, quality);
    jpeg_start_compress(&jpeg, TRUE);
    Bytes line;
    const auto lineSize = static_cast<std::ptrdiff_t>(image.width) * image.channels;
    for (int y = 0; y < image.height; ++y) {
        line.assign(image.pixels.begin() + y * lineSize, image.pixels.begin() + (y + 1) * lineSize);
        unsigned char* row = line.data();
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    Bytes file(data, data + size);
    free(data);
    return file;
}

Bytes encode(const Image& image, int quality)
{
    const Bytes file = encodeFile(image, quality);
    Bytes body(file.begin() + static_cast<std::ptrdiff_t>(bodyOf(file)), file.end() - 2);
    body.insert(body.end(), 2, 0);
    return body;
}

Bytes oracle(const Image& image, int quality)
{
    const Bytes file = encodeFile(image, quality);
    jpeg_decompress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&jpeg, TRUE);
    jpeg.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&jpeg);
    Bytes pixels(image.pixels.size());
    const std::size_t line = pixels.size() / static_cast<std::size_t>(image.height);
    while (jpeg.output_scanline < jpeg.output_height) {
        unsigned char* row = pixels.data() + jpeg.output_scanline * line;
        jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_decompress(&jpeg);
    jpeg_destroy_decompress(&jpeg);
    return pixels;
}

Bytes header(std::uint32_t size, std::uint32_t height, std::uint32_t width, std::uint32_t quality)
{
    Bytes bytes;
    for (const std::uint32_t field : {size, height, width, quality}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<unsigned char>(field >> shift));
        }
    }
    return bytes;
}

Bytes chunkWith(const Bytes& body, int height, int width, int quality)
{
    Bytes chunk =
        header(static_cast<std::uint32_t>(body.size() + 16), static_cast<std::uint32_t>(height),
               static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(quality));
    chunk.insert(chunk.end(), body.begin(), body.end());
    return chunk;
}

Bytes chunkOf(const Image& image, int quality)
{
    return chunkWith(encode(image, quality), image.height, image.width, quality);
}

std::uint64_t fnv1a(const Bytes& bytes)
{
    std::uint64_t hash = 14695981039346656037U;
    for (const unsigned char byte : bytes) {
        hash = (hash ^ byte) * 1099511628211U;
    }
    return hash;
}

BitWriter& BitWriter::bits(unsigned value, int count)
{
    for (int bit = count - 1; bit >= 0; --bit) {
        all.push_back((value >> bit & 1) != 0);
    }
    return *this;
}

BitWriter& BitWriter::dc(int diff, int component)
{
    const int size = sizeCategory(diff);
    // No code of a size is longer than eleven bits.
    for (int lookahead = 0; lookahead < 65536; lookahead += 32) {
        int symbol = 0;
        int length = 0;
        if (codec(component).DecodeDCSymbol(lookahead, &symbol, &length) == 0 && symbol == size) {
            bits(static_cast<unsigned>(lookahead) >> (16 - length), length);
            break;
        }
    }
    return bits(static_cast<unsigned>(diff < 0 ? diff - 1 : diff), size);
}

BitWriter& BitWriter::ac(int run, int value, int component)
{
    const int size = sizeCategory(value);
    const int index = HuffCodec::CodeIndex(run * 16 + size);
    bits(static_cast<unsigned>(codec(component).codeOfAC(index)),
         codec(component).lengthOfAC(index));
    return bits(static_cast<unsigned>(value < 0 ? value - 1 : value), size);
}

Bytes BitWriter::finish(int extra) const
{
    Bytes bytes;
    for (std::size_t at = 0; at < all.size(); at += 8) {
        unsigned byte = 0;
        for (std::size_t bit = 0; bit < 8; ++bit) {
            byte = byte << 1 | (at + bit < all.size() && all[at + bit] ? 1 : 0);
        }
        bytes.push_back(static_cast<unsigned char>(byte));
        if (byte == 0xFF) {
            bytes.push_back(0);
        }
    }
    bytes.insert(bytes.end(), static_cast<std::size_t>(extra), 0);
    return bytes;
}

}  // namespace samples
