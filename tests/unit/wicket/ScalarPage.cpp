// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/ScalarPage.h"

#include "wicket/Wicket.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace samples {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::int64_t kHeaderSize = 16;
constexpr std::int64_t kBand = 32;  // lines
constexpr std::int64_t kLargest = std::numeric_limits<int>::max();

std::int64_t toBlocks(std::int64_t value)
{
    return (value + 7) / 8 * 8;
}

class Page {
public:
    Page(int width, int channels)
        : channels_(channels),
          stride_(std::int64_t{width} * channels),
          step_(toBlocks(width) * channels)
    {
        decoder_.useKernel(nullptr);
    }

    // Takes the next chunk off the stream. false: there is none, or it cannot be passed.
    bool decode(const Bytes& stream, std::size_t at)
    {
        const std::size_t left = stream.size() - at;
        if (left < 4) {
            return false;
        }
        const unsigned char* chunk = stream.data() + at;
        size_ = field(chunk, 4, 0);
        if (size_ < 1 || room() > kLargest || static_cast<std::size_t>(size_) > left) {
            return false;
        }
        const int width = field(chunk, size_, 8);
        if (width < 1) {
            return false;
        }
        const int lines = field(chunk, size_, 4);
        if (lines > 0 && isRoomFor(width, lines)) {
            decoder_.QualityFactor(field(chunk, size_, 12));
            appendLines(chunk, width, lines);
        }
        return true;
    }

    int size() const { return size_; }
    const Bytes& pixels() const { return pixels_; }

private:
    // Of a header that the chunk may be too short for.
    static int field(const unsigned char* chunk, int size, int offset)
    {
        std::uint32_t value = 0;
        for (int i = offset; i < offset + 4; ++i) {
            value = value << 8 | (i < size ? chunk[i] : 0U);
        }
        return static_cast<int>(value);
    }

    // What a chunk may be decoded to.
    std::int64_t room() const { return (step_ - stride_ + size_) * kBand * 5; }
    // What its lines may take: those of a page that is wider than the chunk take more.
    std::int64_t roomForLines() const { return std::max(room(), step_ * kBand); }

    bool isRoomFor(std::int64_t width, std::int64_t lines) const
    {
        const std::int64_t samples = toBlocks(width) * (channels_ == 1 ? 1 : 3);
        return samples <= room() / toBlocks(lines) && stride_ <= kLargest / lines;
    }

    void appendLines(const unsigned char* chunk, int width, std::int64_t lines)
    {
        const auto planeWidth = static_cast<int>(toBlocks(width));
        const auto planeHeight = static_cast<int>(toBlocks(lines));
        const std::int64_t planeSize =
            std::int64_t{planeWidth} * planeHeight * (channels_ == 1 ? 1 : 3);
        // Lines that are wider than the chunk reach beyond its plane.
        const std::int64_t linesSize = std::min(lines * step_, roomForLines());
        Bytes plane(static_cast<std::size_t>(std::max(planeSize, linesSize)));
        const int bodySize = std::max(size_ - static_cast<int>(kHeaderSize), 0);
        const auto decode =
            channels_ == 1 ? &Wicket::DecompressOnePlane : &Wicket::DecompressThreePlanes;
        int generated = 0;
        int converted = 0;
        (decoder_.*decode)(bodySize > 0 ? chunk + kHeaderSize : nullptr, bodySize, plane.data(),
                           planeWidth, planeHeight, &generated, &converted);
        for (std::int64_t y = 0; y < lines && y * step_ + stride_ <= roomForLines(); ++y) {
            const auto line = plane.begin() + static_cast<std::ptrdiff_t>(y * step_);
            pixels_.insert(pixels_.end(), line, line + static_cast<std::ptrdiff_t>(stride_));
        }
    }

    Wicket decoder_{1};
    int channels_;
    std::int64_t stride_;
    std::int64_t step_;
    int size_ = 0;
    Bytes pixels_;
};

}  // namespace

Bytes scalarPage(const Bytes& stream, int width, int channels)
{
    Page page(width, channels);
    std::size_t at = 0;
    while (page.decode(stream, at)) {
        at += static_cast<std::size_t>(page.size());
    }
    return page.pixels();
}

}  // namespace samples
