// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IMBGRtoRGB.h"

#include "ImageData.h"
#include "PixelOrder.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int kPixelBytes = 3;

// Swaps the outer bytes of the pixels from first on, while they start before end and lie
// within the size bytes at data.
void swapPixels(unsigned char* data, std::int64_t first, std::int64_t end, int size)
{
    const std::int64_t last = std::min<std::int64_t>(end, size - 2);
    if (first < last) {
        const std::int64_t count = (last - first + kPixelBytes - 1) / kPixelBytes;
        pixelOrder().swapColours(data + first, static_cast<std::size_t>(count));
    }
}

}  // namespace

IMBGRtoRGB::~IMBGRtoRGB() = default;

int IMBGRtoRGB::Perform(ImageData* img, int len)
{
    const int stride = img->GetStride();
    unsigned char* data = img->GetRawDataPtr();
    if (len < 1 || img->GetTripletType() != BGR || stride < 1 || data == nullptr) {
        return 0;
    }
    const int size = img->GetRawDataSize();
    len = std::min(len, size);
    const int lines = len / stride;
    const std::int64_t lineBytes =
        static_cast<std::int64_t>(img->GetScanWidth()) * img->GetNumOfChannels();
    for (int i = 1; i <= lines; ++i) {
        // The bound counts whole lines of pixels from the start, which is the end of this
        // line only while lines have no padding.
        swapPixels(data, static_cast<std::int64_t>(i - 1) * stride, i * lineBytes, size);
    }
    // A rest is bounded by its own size, counted from the start as well.
    const int rest = len % stride;
    swapPixels(data, static_cast<std::int64_t>(lines) * stride, rest - 2, size);
    return 1;
}
