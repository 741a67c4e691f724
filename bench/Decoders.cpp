// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Decoders.h"

#include <stdexcept>

namespace bench {

Band::Band(int channelCount, int qualityFactor, int pixels)
    : width(pixels), channels(channelCount), quality(qualityFactor)
{
    const samples::Image image =
        samples::page(samples::Pattern::photo, width, kBandLines, channels);
    body = samples::encode(image, quality);
    file = samples::encodeFile(image, quality);
}

ChunkDecoder::ChunkDecoder(const Band& band, const wicket::Kernel* kernel)
    : band_(band), decoder_(std::make_unique<Wicket>(1)), out_(band.bytes())
{
    decoder_->useKernel(kernel);
}

void ChunkDecoder::decode()
{
    const auto decompress =
        band_.channels == 1 ? &Wicket::DecompressOnePlane : &Wicket::DecompressThreePlanes;
    decoder_->QualityFactor(band_.quality);
    int generated = 0;
    int converted = 0;
    const int status =
        (decoder_.get()->*decompress)(band_.body.data(), static_cast<int>(band_.body.size()),
                                      out_.data(), band_.width, kBandLines, &generated, &converted);
    if (status != 0) {
        throw std::runtime_error("a chunk is not decoded");
    }
}

FileDecoder::FileDecoder(const samples::Bytes& file, std::size_t stride)
    : file_(file), stride_(stride), out_(stride * kBandLines)
{
    jpeg_.err = jpeg_std_error(&errors_);
    jpeg_create_decompress(&jpeg_);
}

FileDecoder::~FileDecoder()
{
    jpeg_destroy_decompress(&jpeg_);
}

void FileDecoder::decode()
{
    jpeg_mem_src(&jpeg_, file_.data(), static_cast<unsigned long>(file_.size()));
    jpeg_read_header(&jpeg_, TRUE);
    jpeg_.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&jpeg_);
    while (jpeg_.output_scanline < jpeg_.output_height) {
        unsigned char* rows[kBandLines];
        const JDIMENSION first = jpeg_.output_scanline % kBandLines;
        for (JDIMENSION i = first; i < kBandLines; ++i) {
            rows[i - first] = out_.data() + i * stride_;
        }
        jpeg_read_scanlines(&jpeg_, rows, kBandLines - first);
    }
    jpeg_finish_decompress(&jpeg_);
}

}  // namespace bench
