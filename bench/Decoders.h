// SPDX-License-Identifier: LGPL-2.1-or-later
// The block-transform decoder and libjpeg-turbo on the same data: bands of 32 lines.
#pragma once

#include "Samples.h"

#include "wicket/Wicket.h"

#include <cstdio>
#include <memory>

#include <jpeglib.h>

namespace bench {

constexpr int kBandLines = 32;

struct Band {
    Band(int channelCount, int qualityFactor, int pixels = 4960);

    int width;
    int channels;
    int quality;
    samples::Bytes body;  // entropy-coded
    samples::Bytes file;  // the same as a JPEG file
    std::size_t stride() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
    std::size_t bytes() const { return stride() * kBandLines; }
};

// decode() decodes the band once; failures throw std::runtime_error. The band is not owned.
class ChunkDecoder {
public:
    // kernel: null for the scalar code.
    ChunkDecoder(const Band& band, const wicket::Kernel* kernel);
    void decode();

private:
    const Band& band_;
    std::unique_ptr<Wicket> decoder_;
    samples::Bytes out_;
};

// A whole JPEG file, band after band into the same room. JSIMD_FORCENONE=1 in the environment
// takes libjpeg-turbo's vector code away.
class FileDecoder {
public:
    // stride: bytes of a line. The file is not owned.
    FileDecoder(const samples::Bytes& file, std::size_t stride);
    FileDecoder(const FileDecoder&) = delete;
    FileDecoder& operator=(const FileDecoder&) = delete;
    ~FileDecoder();
    void decode();

private:
    const samples::Bytes& file_;
    std::size_t stride_;
    jpeg_decompress_struct jpeg_ = {};
    jpeg_error_mgr errors_ = {};
    samples::Bytes out_;
};

}  // namespace bench
