// SPDX-License-Identifier: LGPL-2.1-or-later
// The block-transform decoder, kernel by kernel, beside libjpeg-turbo.
#include "Decoders.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using bench::Band;

template <typename Decoder>
void run(benchmark::State& state, Decoder& decoder, const Band& band)
{
    for (auto _ : state) {
        decoder.decode();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(band.bytes()));
}

void add(const std::string& name, const Band& band, const wicket::Kernel* kernel)
{
    benchmark::RegisterBenchmark(name.c_str(), [&band, kernel](benchmark::State& state) {
        bench::ChunkDecoder decoder(band, kernel);
        run(state, decoder, band);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const Band bands[] = {{3, 75}, {3, 90}, {1, 75}, {1, 90}};
    for (const Band& band : bands) {
        const std::string name = (band.channels == 1 ? std::string("grey/q") : "colour/q") +
                                 std::to_string(band.quality) + "/";
        add(name + "scalar", band, nullptr);
        for (const wicket::Kernel* kernel : {wicket::baselineKernel(), wicket::avx2Kernel()}) {
            if (kernel != nullptr) {
                add(name + kernel->name, band, kernel);
            }
        }
        benchmark::RegisterBenchmark((name + "libjpeg").c_str(), [&band](benchmark::State& state) {
            bench::FileDecoder decoder(band.file, band.stride());
            run(state, decoder, band);
        });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
