// SPDX-License-Identifier: LGPL-2.1-or-later
// Pages, chunks and streams for the tests of the block-transform decoder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace samples {

using Bytes = std::vector<unsigned char>;

enum class Pattern { blank, gradient, text, photo, noise };
constexpr Pattern kPatterns[] = {Pattern::blank, Pattern::gradient, Pattern::text, Pattern::photo,
                                 Pattern::noise};

struct Image {
    int width;
    int height;
    int channels;
    Bytes pixels;
};

Image page(Pattern pattern, int width, int height, int channels);

// The entropy-coded body of the image, with the two zero bytes that a decoder needs behind it.
Bytes encode(const Image& image, int quality);
// The same as a whole JPEG file.
Bytes encodeFile(const Image& image, int quality);
// What libjpeg makes of the same data, in image.pixels' layout.
Bytes oracle(const Image& image, int quality);
Bytes chunkOf(const Image& image, int quality);
Bytes chunkWith(const Bytes& body, int height, int width, int quality);
Bytes header(std::uint32_t size, std::uint32_t height, std::uint32_t width, std::uint32_t quality);

std::uint64_t fnv1a(const Bytes& bytes);

// Writes the symbols of the standard code tables bit by bit.
class BitWriter {
public:
    BitWriter& bits(unsigned value, int count);
    // DC difference of the component.
    BitWriter& dc(int diff, int component);
    // size 0 in run 0 and 15: end of block and sixteen zeros.
    BitWriter& ac(int run, int value, int component);
    BitWriter& endOfBlock(int component) { return ac(0, 0, component); }
    BitWriter& sixteenZeros(int component) { return ac(15, 0, component); }
    // The bytes with zeros to the next byte, 0x00 stuffed behind each 0xFF, and extra zero bytes.
    Bytes finish(int extra = 2) const;

private:
    std::vector<bool> all;
};

}  // namespace samples
