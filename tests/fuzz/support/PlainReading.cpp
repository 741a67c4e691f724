// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PlainReading.h"

#include "Check.h"
#include "Samples.h"
#include "wicket/ScalarPage.h"

#include <algorithm>
#include <cstdint>

#include <sane/sane.h>

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Settings;

constexpr unsigned kSizeMask = 0xFFF;

struct Marker {
    bool isInterleaved = false;
    std::size_t width = 0;
    int offset = 0;
    std::size_t trim = 0;
};

struct Stream {
    Marker marker;
    Bytes bytes;
};

std::size_t headerSize(int version)
{
    return version == 402 ? 31 : version == 401 ? 10 : 9;
}

void readMarker(Input& script, Marker* marker)
{
    const unsigned width = script.byte();
    script.byte();
    const int offset = static_cast<signed char>(script.byte());
    script.byte();
    const unsigned trim = script.byte();
    if (trim >> 7 != 0) {
        *marker = {true, width, offset, trim & 0x7F};
    }
}

std::optional<Stream> readStream(Input script, std::size_t longest)
{
    Stream stream;
    while (!script.isEmpty()) {
        const unsigned item = script.word();
        const unsigned size = item & kSizeMask;
        Bytes block;
        switch (item >> 12) {
        case 5:
            block = ramp(static_cast<int>(size));
            break;
        case 6:
            block = script.take(size);
            break;
        case 7:
            if (!stream.bytes.empty()) {
                return {};
            }
            readMarker(script, &stream.marker);
            break;
        case 9:
            return (size & 0xFF) == 1 ? std::optional(stream) : std::nullopt;
        default:
            return {};
        }
        if (block.size() > longest) {
            return {};
        }
        stream.bytes.insert(stream.bytes.end(), block.begin(), block.end());
    }
    return {};
}

// Pixels of the two halves of each line in turn.
Bytes merged(const Stream& stream, std::size_t channels, std::size_t stride, std::size_t lines)
{
    const std::size_t length = stream.marker.width * channels;
    const std::size_t half = length / 2;
    Bytes page;
    for (std::size_t at = 0; length > 0 && at < stream.bytes.size(); at += length) {
        for (std::size_t i = 0; i < stride && page.size() < stride * lines; ++i) {
            const std::int64_t signedPixel =
                stream.marker.offset + static_cast<std::int64_t>(i / channels);
            if (signedPixel < 0) {
                page.push_back(0);
                continue;
            }
            const auto pixel = static_cast<std::size_t>(signedPixel);
            const std::size_t inHalf = (stream.marker.trim + pixel / 2) * channels + i % channels;
            const std::size_t from = at + (pixel % 2 != 0 ? half : 0) + inHalf;
            const bool isThere =
                pixel * channels < length && inHalf < half && from < stream.bytes.size();
            page.push_back(isThere ? stream.bytes[from] : 0);
        }
    }
    return page;
}

void manipulate(const Settings& settings, bool isColour, unsigned char* line, std::size_t stride)
{
    const std::size_t pixel = isColour ? 3 : 1;
    const bool isFlipped =
        settings.number(settings.isFeeder ? "ADFSIDEFLIP" : "FLATBEDSIDEFLIP") != 0;
    if (isFlipped) {
        std::reverse(line, line + stride);
    }
    // Turning a line around turns its pixels around, too.
    const bool isSwapped = isColour && (settings.number("BGRTORGB") != 0) != isFlipped;
    for (std::size_t i = 0; isSwapped && i < stride; i += pixel) {
        std::swap(line[i], line[i + 2]);
    }
    if (settings.number("COLORCORRECT") != 0) {
        const int step = (isColour ? 1 : 2) + (settings.number("SCANBARID") != 0 ? 2 : 0);
        std::transform(line, line + stride, line, [step](unsigned char byte) {
            return static_cast<unsigned char>(byte + step);
        });
    }
}

}  // namespace

std::optional<fuzz::Expected> fuzz::plainReading(const Settings& settings, const Input& script,
                                                 std::size_t longestBlock, int pixels, int lines)
{
    const auto stream = readStream(script, longestBlock - headerSize(settings.version));
    if (!stream) {
        return {};
    }
    const bool isColour = settings.number("COLORDEPTH") == 3;
    const std::size_t channels = isColour ? 3 : 1;
    const std::size_t stride = static_cast<std::size_t>(pixels) * channels;
    Expected expected = {stream->bytes, 0};
    if (stream->marker.isInterleaved) {
        expected.bytes = merged(*stream, channels, stride, static_cast<std::size_t>(lines));
    } else if (settings.number("COMPRESSION") != 0) {
        expected.bytes = samples::scalarPage(stream->bytes, pixels, static_cast<int>(channels));
    }
    expected.certain = expected.bytes.size() / stride * stride;
    for (std::size_t at = 0; at < expected.certain; at += stride) {
        manipulate(settings, isColour, expected.bytes.data() + at, stride);
    }
    return expected;
}

void fuzz::checkPage(const Page& page, const std::optional<Expected>& expected)
{
    if (!expected) {
        return;
    }
    FUZZ_CHECK(page.status == SANE_STATUS_EOF || page.status == SANE_STATUS_IO_ERROR);
    FUZZ_CHECK(page.bytes.size() == expected->bytes.size());
    const auto certain = static_cast<std::ptrdiff_t>(expected->certain);
    FUZZ_CHECK(
        std::equal(page.bytes.begin(), page.bytes.begin() + certain, expected->bytes.begin()));
}
