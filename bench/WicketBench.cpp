// The block-transform decoder beside libjpeg-turbo on the same data: bands of 32 lines, 4960
// pixels wide. JSIMD_FORCENONE=1 in the environment takes libjpeg-turbo's vector code away.
#include "Samples.h"

#include "wicket/Wicket.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include <jpeglib.h>

namespace {

using samples::Bytes;

constexpr int kWidth = 4960;
constexpr int kLines = 32;

struct Band {
    int channels;
    int quality;
    Bytes body;
    Bytes file;
};

Band bandOf(int channels, int quality)
{
    const samples::Image image = samples::page(samples::Pattern::photo, kWidth, kLines, channels);
    return {channels, quality, samples::encode(image, quality),
            samples::encodeFile(image, quality)};
}

void report(benchmark::State& state, const Band& band)
{
    state.SetBytesProcessed(state.iterations() * kWidth * kLines * band.channels);
}

void decodeChunk(benchmark::State& state, const Band& band, const wicket::Kernel* kernel)
{
    const auto decoder = std::make_unique<Wicket>(1);
    decoder->useKernel(kernel);
    Bytes out(static_cast<std::size_t>(kWidth * kLines * band.channels));
    const auto decompress =
        band.channels == 1 ? &Wicket::DecompressOnePlane : &Wicket::DecompressThreePlanes;
    for (auto _ : state) {
        decoder->QualityFactor(band.quality);
        int generated = 0;
        int converted = 0;
        const int status =
            (decoder.get()->*decompress)(band.body.data(), static_cast<int>(band.body.size()),
                                         out.data(), kWidth, kLines, &generated, &converted);
        if (status != 0) {
            state.SkipWithError("not decoded");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    report(state, band);
}

void decodeFile(benchmark::State& state, const Band& band)
{
    const std::size_t stride = static_cast<std::size_t>(kWidth * band.channels);
    Bytes out(stride * kLines);
    jpeg_decompress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    for (auto _ : state) {
        jpeg_mem_src(&jpeg, band.file.data(), static_cast<unsigned long>(band.file.size()));
        jpeg_read_header(&jpeg, TRUE);
        jpeg.dct_method = JDCT_ISLOW;
        jpeg_start_decompress(&jpeg);
        while (jpeg.output_scanline < jpeg.output_height) {
            unsigned char* rows[kLines];
            const JDIMENSION first = jpeg.output_scanline;
            for (JDIMENSION i = first; i < kLines; ++i) {
                rows[i - first] = out.data() + i * stride;
            }
            jpeg_read_scanlines(&jpeg, rows, kLines - first);
        }
        jpeg_finish_decompress(&jpeg);
        benchmark::DoNotOptimize(out.data());
    }
    jpeg_destroy_decompress(&jpeg);
    report(state, band);
}

void add(const std::string& name, const Band& band, const wicket::Kernel* kernel)
{
    benchmark::RegisterBenchmark(name.c_str(), [&band, kernel](benchmark::State& state) {
        decodeChunk(state, band, kernel);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const Band bands[] = {bandOf(3, 75), bandOf(3, 90), bandOf(1, 75), bandOf(1, 90)};
    for (const Band& band : bands) {
        const std::string name = (band.channels == 1 ? std::string("grey/q") : "colour/q") +
                                 std::to_string(band.quality) + "/";
        add(name + "scalar", band, nullptr);
        for (const wicket::Kernel* kernel : {wicket::baselineKernel(), wicket::avx2Kernel()}) {
            if (kernel != nullptr) {
                add(name + kernel->name, band, kernel);
            }
        }
        benchmark::RegisterBenchmark((name + "libjpeg").c_str(),
                                     [&band](benchmark::State& state) { decodeFile(state, band); });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
