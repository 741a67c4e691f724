// SPDX-License-Identifier: LGPL-2.1-or-later
// Chunks of compressed pages: every vector code of the decoder against its scalar one.
#include "Check.h"
#include "Input.h"
#include "Surroundings.h"

#include "wicket/DecompWicket.h"
#include "wicket/Recording.h"
#include "wicket/Wicket.h"

#include <algorithm>
#include <memory>

namespace {

using fuzz::Bytes;
using fuzz::Input;
using recording::Result;
using recording::Stream;

// Output starts as one of these, so that bytes which are never written differ.
constexpr unsigned char kFills[] = {0xEE, 0x11};

// Making one takes much longer than decoding with it.
Wicket& decoderFor(bool isStuffed)
{
    static Wicket plain(0);
    static Wicket stuffed(1);
    return isStuffed ? stuffed : plain;
}

Result decode(const Stream& stream, const wicket::Kernel* kernel, unsigned char fill)
{
    Wicket& decoder = decoderFor(stream.isStuffed);
    decoder.useKernel(kernel);
    decoder.QualityFactor(stream.quality);
    const auto size = static_cast<std::size_t>(stream.width) *
                      static_cast<std::size_t>(stream.height) *
                      static_cast<std::size_t>(stream.channels);
    Result result = {0, -7, -7, Bytes(size, fill)};
    const auto decompress =
        stream.channels == 1 ? &Wicket::DecompressOnePlane : &Wicket::DecompressThreePlanes;
    result.status = (decoder.*decompress)(stream.body.data(), static_cast<int>(stream.body.size()),
                                          result.out.data(), stream.width, stream.height,
                                          &result.generated, &result.converted);
    fuzz::touch(result.out.data(), result.out.size());
    return result;
}

void comparePlane(Stream stream, Input& input)
{
    constexpr int kBlock = 8;
    stream.width = kBlock * static_cast<int>(1 + input.byte() % 40);
    stream.height = kBlock * static_cast<int>(1 + input.byte() % 4);
    stream.quality = static_cast<int>(input.byte()) - 1;
    stream.body = input.rest();
    const Result expected = decode(stream, nullptr, kFills[0]);
    for (const wicket::Kernel* kernel : {wicket::baselineKernel(), wicket::avx2Kernel()}) {
        FUZZ_CHECK(kernel == nullptr || decode(stream, kernel, kFills[1]) == expected);
    }
}

// A ring of chunks, of which a few are taken one after the other.
void decodeRing(const Stream& page, Bytes& ring, int outSize)
{
    constexpr int kChunks = 3;
    static CDecompWicket all[2][2] = {{CDecompWicket(0), CDecompWicket(0)},
                                      {CDecompWicket(1), CDecompWicket(1)}};
    CDecompWicket(&decoders)[2] = all[page.isStuffed ? 1 : 0];
    for (CDecompWicket& decoder : decoders) {
        int none = 0;
        decoder.Decomp(ring.data(), 0, &none, nullptr, 0, &none);  // back to the ring's start
        decoder.StartDecomp(page.width, page.height, page.channels, page.channels * 8);
    }
    const int stride = page.width * page.channels;
    for (int chunk = 0; chunk < kChunks; ++chunk) {
        Result results[2];
        for (int i = 0; i < 2; ++i) {
            Result& result = results[i];
            result = {0, 0, 0, Bytes(static_cast<std::size_t>(outSize), kFills[i])};
            result.status =
                decoders[i].Decomp(ring.data(), static_cast<int>(ring.size()), &result.converted,
                                   result.out.data(), outSize, &result.generated);
            fuzz::touch(result.out.data(), result.out.size());
            FUZZ_CHECK(result.generated >= 0 && result.generated % std::max(stride, 1) == 0);
            FUZZ_CHECK(result.converted >= 0 && result.converted <= static_cast<int>(ring.size()));
            // Behind the announced lines the output may hold anything.
            const std::int64_t lines = stride > 0 ? result.generated / stride : 0;
            const std::int64_t end = lines * (stride + decoders[i].GetNumPadBytesPerLine());
            result.out.resize(static_cast<std::size_t>(std::min<std::int64_t>(end, outSize)));
        }
        FUZZ_CHECK(results[0] == results[1]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned mode = input.byte();
    Stream stream = {(mode & 2) == 0, 0, 0, 0, (mode & 1) != 0 ? 3 : 1, {}};
    fuzz::setLogging((mode & 8) != 0);
    if ((mode & 4) == 0) {
        comparePlane(stream, input);
        return 0;
    }
    stream.width = static_cast<int>(input.byte());
    stream.height = static_cast<int>(input.byte());
    const int outSize = static_cast<int>(input.word());
    Bytes ring = input.rest();
    decodeRing(stream, ring, outSize);
    return 0;
}
