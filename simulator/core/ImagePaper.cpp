// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ImagePaper.h"

#include <algorithm>
#include <utility>

namespace scansim {

namespace {

constexpr double kMillimetresPerInch = 25.4;

// The picture's row or column under the middle of a scanned pixel.
std::uint32_t pictureIndex(std::uint32_t pixel, std::uint32_t dpi, double millimetres,
                           std::uint32_t count)
{
    const double place = (pixel + 0.5) * kMillimetresPerInch / dpi / millimetres;
    return std::min(static_cast<std::uint32_t>(place * count), count - 1);
}

class ImageReader : public PaperReader {
public:
    ImageReader(const Image& image, PaperSize size, const Window& window)
        : image_(image), size_(size), window_(window)
    {
        columns_.reserve(window.pixels);
        for (std::uint32_t i = 0; i < window.pixels; ++i) {
            columns_.push_back(3 *
                               pictureIndex(window.left + i, window.dpi, size.width, image.width));
        }
    }

    void readLine(std::uint32_t line, std::uint8_t* out) override
    {
        const std::uint32_t row =
            pictureIndex(window_.top + line, window_.dpi, size_.height, image_.height);
        const std::uint8_t* source = image_.rgb.data() + std::size_t{3} * image_.width * row;
        for (std::uint32_t column : columns_) {
            if (window_.channels == 1) {
                *out++ = greyOf(source + column);
            } else {
                out = std::copy_n(source + column, 3, out);
            }
        }
    }

private:
    const Image& image_;
    PaperSize size_;
    Window window_;
    std::vector<std::uint32_t> columns_;
};

}  // namespace

ImagePaper::ImagePaper(Image image, PaperSize size) : image_(std::move(image)), size_(size) {}

std::unique_ptr<PaperReader> ImagePaper::open(const Window& window) const
{
    return std::make_unique<ImageReader>(image_, size_, window);
}

}  // namespace scansim
