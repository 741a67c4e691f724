// SPDX-License-Identifier: LGPL-2.1-or-later
// The decompression stage: the lines of a page must not depend on how its bytes arrive, and are
// those of the scalar decoder.
#include "Check.h"
#include "Input.h"
#include "Surroundings.h"
#include "wicket/ScalarPage.h"

#include "DataBuffer.h"
#include "DeCompHandler.h"
#include "FlatFileReader.h"
#include "ImageData.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

struct Page {
    int width;
    int lines;
    int channels;
};

struct Result {
    Bytes lines;
    bool isWhole;
};

void setUp(FlatFileReader& store, const Page& page)
{
    constexpr int kDpi = 300;
    // Half a dot keeps the truncation away from the next lower number.
    const auto millimetres = [](int dots) { return (dots + 0.5) * 25.4 / kDpi; };
    store.SetIntOption("CURRENTDPI", kDpi);
    store.SetIntOption("COLORDEPTH", page.channels);
    store.SetIntOption("COMPRESSION", 1);
    store.SetIntOption("COMPRESSIONTECH", 2);
    store.SetDoubleOption("CURRENTBRX", millimetres(page.width));
    store.SetDoubleOption("CURRENTBRY", millimetres(page.lines));
    FUZZ_CHECK(store.GetIntOption("PIXELS_PER_LINE") == page.width);
}

// As the engine does it.
void decompressAll(DeCompHandler& stage, DataBuffer& buffer, ImageData& image)
{
    int before = 0;
    int status = 0;
    do {
        stage.DropHidden(&buffer);
        before = buffer.GetRawDataSize();
        status = stage.Decompress(&buffer, &image);
    } while (status == 1 && buffer.GetRawDataSize() > 0 && buffer.GetRawDataSize() < before);
}

void moveLines(DataBuffer& buffer, Bytes& lines)
{
    Bytes out(static_cast<std::size_t>(buffer.GetProcessedDataSize()));
    const int moved = buffer.GetProcessedData(out.data(), static_cast<int>(out.size()));
    FUZZ_CHECK(moved == static_cast<int>(out.size()));
    fuzz::touch(out.data(), out.size());
    lines.insert(lines.end(), out.begin(), out.end());
}

// The stream arrives in pieces of the sizes that cuts has, over and over.
Result decompress(const Page& page, const Bytes& stream, const Bytes& cuts)
{
    FlatFileReader store;
    setUp(store, page);
    ImageData image;
    image.SetAttributes(&store, 0);
    DeCompHandler stage;
    stage.Initialize(&store);
    DataBuffer buffer;
    Result result = {};
    Input input(stream.data(), stream.size());
    for (std::size_t i = 0; !input.isEmpty(); ++i) {
        const std::size_t cut =
            cuts.empty() ? stream.size() : std::size_t{1} + cuts[i % cuts.size()];
        const Bytes piece = input.take(cut);
        FUZZ_CHECK(buffer.SetRawData(piece.data(), static_cast<int>(piece.size())) == 1);
        decompressAll(stage, buffer, image);
        moveLines(buffer, result.lines);
    }
    decompressAll(stage, buffer, image);
    result.isWhole = stage.Finish(&buffer);
    moveLines(buffer, result.lines);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned mode = input.byte();
    fuzz::setLogging((mode & 8) != 0);
    const int width = static_cast<int>(1 + input.byte());
    const int lines = static_cast<int>(1 + input.byte());
    const Page page = {width, lines, (mode & 1) != 0 ? 3 : 1};
    const Bytes cuts = input.take(1 + mode % 4);
    const Bytes stream = input.rest();

    const Result cut = decompress(page, stream, cuts);
    const Result whole = decompress(page, stream, {});
    FUZZ_CHECK(cut.isWhole == whole.isWhole);
    FUZZ_CHECK(cut.lines == whole.lines);
    FUZZ_CHECK(cut.lines == samples::scalarPage(stream, page.width, page.channels));
    return 0;
}
