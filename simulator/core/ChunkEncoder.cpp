// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ChunkEncoder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

namespace scansim {

namespace {

constexpr std::uint32_t kBlock = 8;

// Decoders look 16 bits ahead of every symbol.
constexpr std::size_t kTrailerSize = 2;

std::uint32_t inWholeBlocks(std::uint32_t count)
{
    return (count + kBlock - 1) / kBlock * kBlock;
}

// How much the quantisation tables grow, in percent.
int tableScale(int quality)
{
    if (quality <= 0) {
        return 10000;
    }
    return quality >= 50 ? 200 - 2 * quality : 5000 / quality;
}

// Where the entropy-coded data of a file with a single scan begins.
std::size_t findBody(const std::uint8_t* file)
{
    constexpr std::uint8_t kStartOfScan = 0xDA;
    std::size_t at = 2;
    for (;;) {
        const std::size_t length = std::size_t{file[at + 2]} * 256 + file[at + 3];
        const bool isScan = file[at + 1] == kStartOfScan;
        at += 2 + length;
        if (isScan) {
            return at;
        }
    }
}

}  // namespace

// Errors end the program with a message of the JPEG library; sizes that it cannot do never get
// here.
struct ChunkEncoder::Coder {
    Coder()
    {
        info.err = jpeg_std_error(&errors);
        jpeg_create_compress(&info);
    }
    ~Coder()
    {
        jpeg_destroy_compress(&info);
        std::free(file);
    }
    Coder(const Coder&) = delete;
    Coder& operator=(const Coder&) = delete;

    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    unsigned char* file = nullptr;
    unsigned long fileSize = 0;
};

ChunkEncoder::ChunkEncoder(std::uint32_t pixels, std::uint32_t channels)
    : pixels_(pixels),
      channels_(channels),
      paddedPixels_(inWholeBlocks(pixels)),
      coder_(std::make_unique<Coder>())
{
}

ChunkEncoder::~ChunkEncoder() = default;

Bytes ChunkEncoder::encode(const Bytes& lines, int quality)
{
    const auto count = static_cast<std::uint32_t>(lines.size() / channels_ / pixels_);
    const std::uint32_t paddedLines = inWholeBlocks(count);
    begin(paddedLines, quality);
    writeLines(lines, count, paddedLines);
    jpeg_finish_compress(&coder_->info);

    constexpr std::size_t kEndMarkerSize = 2;
    const std::uint8_t* body = coder_->file + findBody(coder_->file);
    const std::uint8_t* end = coder_->file + coder_->fileSize - kEndMarkerSize;
    Bytes chunk(kHeaderSize + static_cast<std::size_t>(end - body) + kTrailerSize);
    std::copy(body, end, chunk.begin() + kHeaderSize);
    putBe32(&chunk[kSizeAt], static_cast<std::uint32_t>(chunk.size()));
    putBe32(&chunk[kLinesAt], count);
    putBe32(&chunk[kPixelsAt], pixels_);
    putBe32(&chunk[kQualityAt], static_cast<std::uint32_t>(quality));
    return chunk;
}

void ChunkEncoder::begin(std::uint32_t paddedLines, int quality)
{
    std::free(coder_->file);
    coder_->file = nullptr;
    coder_->fileSize = 0;
    jpeg_compress_struct& info = coder_->info;
    jpeg_mem_dest(&info, &coder_->file, &coder_->fileSize);
    info.image_width = paddedPixels_;
    info.image_height = paddedLines;
    info.input_components = static_cast<int>(channels_);
    info.in_color_space = channels_ == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&info);
    jpeg_set_linear_quality(&info, tableScale(quality), TRUE);
    for (int i = 0; i < info.num_components; ++i) {
        info.comp_info[i].h_samp_factor = 1;
        info.comp_info[i].v_samp_factor = 1;
    }
    jpeg_start_compress(&info, TRUE);
}

// Blocks are filled up with copies of the pixels at the edges.
void ChunkEncoder::writeLines(const Bytes& lines, std::uint32_t count, std::uint32_t paddedLines)
{
    Bytes padded(std::size_t{paddedPixels_} * channels_);
    for (std::uint32_t i = 0; i < paddedLines; ++i) {
        if (i < count) {
            padInto(padded, lines.data() + std::size_t{i} * pixels_ * channels_);
        }
        JSAMPROW row = padded.data();
        jpeg_write_scanlines(&coder_->info, &row, 1);
    }
}

void ChunkEncoder::padInto(Bytes& padded, const std::uint8_t* line) const
{
    const std::size_t size = std::size_t{pixels_} * channels_;
    std::copy_n(line, size, padded.begin());
    for (std::size_t i = size; i < padded.size(); ++i) {
        padded[i] = padded[i - channels_];
    }
}

}  // namespace scansim
