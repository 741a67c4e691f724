// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IMSideFlip.h"

#include "ImageData.h"
#include "PixelOrder.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int kColour = 3;

}  // namespace

IMSideFlip::~IMSideFlip() = default;

int IMSideFlip::Perform(ImageData* img, int len)
{
    const int stride = img->GetStride();
    unsigned char* data = img->GetRawDataPtr();
    if (len < 1 || img->GetSideFlip() != FLIP_ON || stride < 1 || data == nullptr) {
        return 0;
    }
    const int width = img->GetScanWidth();
    const std::int64_t lineBytes = static_cast<std::int64_t>(width) * img->GetNumOfChannels();
    if (lineBytes < 1 || lineBytes > stride) {
        return 0;
    }
    const PixelOrder& order = pixelOrder();
    const bool isColour = img->GetNumOfChannels() == kColour;
    const auto mirror = isColour ? order.mirrorColour : order.mirrorGrey;
    const auto pixels = static_cast<std::size_t>(isColour ? width : lineBytes);
    const int lines = std::min(len, img->GetRawDataSize()) / stride;
    for (int i = 0; i < lines; ++i) {
        mirror(data + static_cast<std::int64_t>(i) * stride, pixels);
    }
    return 1;
}
