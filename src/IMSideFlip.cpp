#include "IMSideFlip.h"

#include "ImageData.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int kPixelBytes = 3;

void mirrorPixels(unsigned char* line, int pixels)
{
    unsigned char* left = line;
    unsigned char* right = line + static_cast<std::int64_t>(pixels - 1) * kPixelBytes;
    for (; left < right; left += kPixelBytes, right -= kPixelBytes) {
        std::swap_ranges(left, left + kPixelBytes, right);
    }
}

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
    const int lines = std::min(len, img->GetRawDataSize()) / stride;
    for (int i = 0; i < lines; ++i) {
        unsigned char* line = data + static_cast<std::int64_t>(i) * stride;
        if (img->GetNumOfChannels() == kPixelBytes) {
            mirrorPixels(line, width);
        } else {
            std::reverse(line, line + lineBytes);
        }
    }
    return 1;
}
