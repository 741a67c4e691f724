// SPDX-License-Identifier: LGPL-2.1-or-later
#include "InterleaveHandler.h"

#include "PixelOrder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr int kMostChannels = 3;

// Bytes of one interleaved line, which may be more than an int holds.
std::int64_t lineLength(const ImageData& img)
{
    return static_cast<std::int64_t>(img.GetInterleaveWidth()) * img.GetNumOfChannels();
}

// A half-line whose pixels are taken in order; outside of it every byte is zero.
struct HalfLine {
    const unsigned char* bytes;
    std::int64_t size;

    void copyPixel(std::int64_t position, unsigned char* to, int channels) const
    {
        for (int c = 0; c < channels; ++c) {
            const std::int64_t at = position + c;
            to[c] = at >= 0 && at < size ? bytes[at] : 0;
        }
    }
};

// The merged line, computed pixel by pixel where it is needed.
class MergedLine {
public:
    // available: how many of the line's bytes are there; the rest is zero.
    MergedLine(const unsigned char* line, std::int64_t length, std::int64_t available, int channels,
               std::int64_t trim)
        : length_(length), channels_(channels), trim_(trim)
    {
        const std::int64_t half = length / 2;
        const std::int64_t inA = std::clamp<std::int64_t>(available, 0, half);
        const std::int64_t inB = std::clamp<std::int64_t>(available - half, 0, half);
        a_ = {line, inA};
        b_ = {line + inA, inB};
    }

    // Writes size bytes of the merged line from pixel first on.
    void write(std::int64_t first, unsigned char* to, int size) const
    {
        const std::int64_t end = first + size / channels_;
        const std::int64_t insideFrom = std::clamp(firstInside(), first, end);
        const std::int64_t insideTo = std::clamp(endInside(), insideFrom, end);
        to = writeChecked(first, insideFrom, to);
        to = writeInside(insideFrom, insideTo, to);
        to = writeChecked(insideTo, end, to);

        unsigned char pixel[kMostChannels];
        copyPixel(end, pixel);
        memcpy(to, pixel, static_cast<size_t>(size % channels_));
    }

private:
    // The pixels whose bytes all lie inside their halves, with channels that alternate.
    std::int64_t firstInside() const { return std::max<std::int64_t>(0, -2 * trim_); }
    std::int64_t endInside() const
    {
        const bool isFast = channels_ == 1 || channels_ == 3;
        const std::int64_t pixels = std::min(a_.size, b_.size) / channels_ - trim_;
        return isFast ? std::min(2 * pixels, length_ / channels_) : 0;
    }

    unsigned char* writeChecked(std::int64_t from, std::int64_t end, unsigned char* to) const
    {
        for (std::int64_t index = from; index < end; ++index, to += channels_) {
            copyPixel(index, to);
        }
        return to;
    }

    unsigned char* writeInside(std::int64_t from, std::int64_t end, unsigned char* to) const
    {
        // Nothing is inside of a line that ends before its first pixel, where halving rounds up.
        if (from == end) {
            return to;
        }
        const std::int64_t firstPair = from + from % 2;
        const std::int64_t endOfPairs = std::max(firstPair, end - end % 2);
        to = writeChecked(from, std::min(firstPair, end), to);
        const std::int64_t pairs = (endOfPairs - firstPair) / 2;
        if (pairs > 0) {
            const auto merge = channels_ == 3 ? pixelOrder().mergeColour : pixelOrder().mergeGrey;
            const std::int64_t inHalf = (trim_ + firstPair / 2) * channels_;
            merge(a_.bytes + inHalf, b_.bytes + inHalf, to, static_cast<size_t>(pairs));
            to += 2 * pairs * channels_;
        }
        return writeChecked(endOfPairs, end, to);
    }

    void copyPixel(std::int64_t index, unsigned char* pixel) const
    {
        const std::int64_t position = index * channels_;
        if (index < 0 || position >= length_) {
            memset(pixel, 0, static_cast<size_t>(channels_));
            return;
        }
        // The parity of the byte position decides, so that with an even number of
        // channels every pixel comes from the first half.
        const bool alternates = channels_ % 2 != 0;
        const HalfLine& half = alternates && index % 2 != 0 ? b_ : a_;
        const std::int64_t inHalf = alternates ? index / 2 : index;
        half.copyPixel((trim_ + inHalf) * channels_, pixel, channels_);
    }

    std::int64_t length_;
    int channels_;
    std::int64_t trim_;
    HalfLine a_{};
    HalfLine b_{};
};

}  // namespace

InterleaveHandler::~InterleaveHandler() = default;

void InterleaveHandler::InterleaveLine(DataBuffer* in, ImageData* img)
{
    const bool isTracing = debugEnabled();
    const int fullWidth = img->GetInterleaveWidth();
    const int channel = img->GetNumOfChannels();
    int croppedWidth = img->GetStride();
    const int horizontalOffset = img->GetInterleaveOffsetX();
    const int trimmedPixel = img->GetInterleaveTrim();
    SL_TRACE_IF(isTracing, "fullWidth = %d", fullWidth);
    SL_TRACE_IF(isTracing, "channel = %d", channel);
    SL_TRACE_IF(isTracing, "croppedWidth = %d", croppedWidth);
    SL_TRACE_IF(isTracing, "horizontalOffset = %d", horizontalOffset);
    SL_TRACE_IF(isTracing, "trimmedPixel = %d", trimmedPixel);

    const std::int64_t length = lineLength(*img);
    if (length < 1 || channel < 1) {
        return;
    }
    const int taken = static_cast<int>(std::min<std::int64_t>(length, in->GetProcessedDataSize()));
    unsigned char* room = img->ExtendRawData(&croppedWidth);
    if (room == nullptr && croppedWidth > 0) {
        return;
    }
    if (room != nullptr) {
        const MergedLine line(in->GetProcessedDataPtr(), length, taken, channel, trimmedPixel);
        line.write(horizontalOffset, room, croppedWidth);
    }
    in->DiscardProcessedData(taken);
}

int InterleaveHandler::DoInterleave(DataBuffer* in, ImageData* img)
{
    return DoInterleave(in, img, debugEnabled());
}

int InterleaveHandler::DoInterleave(DataBuffer* in, ImageData* img, bool isTracing)
{
    SL_START_IF(isTracing);
    if (img->GetInterleave() == 0) {
        SL_TRACE_IF(isTracing, "Interleaving is not needed.");
        const int ready = in->GetProcessedDataSize();
        const int moved = in->GetProcessedData(img, ready);
        SL_RETURN_IF(isTracing, moved == ready ? 0 : -1);
    }
    const std::int64_t InterleaveStride = lineLength(*img);
    SL_TRACE_IF(isTracing, "InterleaveStride = %d", static_cast<int>(InterleaveStride));
    if (InterleaveStride < 1 || InterleaveStride > in->GetProcessedDataSize()) {
        SL_TRACE_IF(isTracing, "Cannot perform interleaving since data is not enough!");
        SL_RETURN_IF(isTracing, -1);
    }
    while (in->GetProcessedDataSize() >= InterleaveStride) {
        const int before = in->GetProcessedDataSize();
        SL_TRACE_IF(isTracing, "ScanData->GetProcessedDataSize = %d", before);
        InterleaveLine(in, img);
        if (in->GetProcessedDataSize() == before) {
            SL_TRACE_IF(isTracing, "[ERROR] no memory for a line, which waits");
            SL_RETURN_IF(isTracing, -1);
        }
    }
    SL_RETURN_IF(isTracing, 1);
}

bool InterleaveHandler::Finish(DataBuffer* in, ImageData* img)
{
    DoInterleave(in, img);
    if (img->GetInterleave() != 0 && in->GetProcessedDataSize() > 0) {
        InterleaveLine(in, img);
    }
    return in->GetProcessedDataSize() == 0;
}
