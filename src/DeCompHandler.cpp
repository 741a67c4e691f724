#include "DeCompHandler.h"

#include "wicket/DecompWicket.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int kWicket = 2;
constexpr int kChunkSizeBytes = 4;  // the size field that starts a chunk
constexpr int kSafetyFactor = 5;    // output room, in bands of the chunk's own size

}  // namespace

DeCompHandler::~DeCompHandler() = default;

std::unique_ptr<CDecomp> DeCompHandler::createDecompressor(int technology)
{
    if (technology != kWicket) {
        return nullptr;
    }
    return std::make_unique<CDecompWicket>(1);
}

int DeCompHandler::Initialize(ConfigReader* cfg)
{
    SL_START();
    SL_TRACE("DeCompHandler Initialize called");
    CompressionType = cfg->GetIntOption("COMPRESSIONTECH");
    if (cfg->GetIntOption("COMPRESSION") == 1) {
        SL_TRACE("Compression is on");
        if (CompressionType == kWicket) {
            DeCompressor = createDecompressor(CompressionType);
            SL_TRACE("Type is Wicket4");
        }
    }
    // A decompressor of an earlier scan stays in use.
    if (!DeCompressor) {
        SL_RETURN(1);
    }
    width = cfg->GetIntOption("PIXELS_PER_LINE");
    height = cfg->GetIntOption("LINES");
    channels = cfg->GetIntOption("COLORDEPTH");
    complevel = cfg->GetIntOption("COMPRESSIONLEVEL");
    bits_per_channel = 8;
    stride = cfg->GetIntOption("BYTES_PER_LINE");
    SL_TRACE("width = %d", width);
    SL_TRACE("height = %d", height);
    SL_TRACE("channels = %d", channels);
    DeCompressor->SetQualityFactor(complevel);
    DeCompressor->StartDecomp(width, height, channels, channels * bits_per_channel);
    SL_RETURN(1);
}

int DeCompHandler::chunkSize(const unsigned char* raw, int rawSize) const
{
    if (CompressionType != kWicket) {
        return rawSize;
    }
    // A size field that has not arrived whole reads as a chunk that is still to come.
    return rawSize < kChunkSizeBytes ? kChunkSizeBytes : CDecompWicket::GetChunkSize(raw);
}

// Moves the lines in a decoder's output together, over the pad bytes behind each line;
// returns the size of the whole lines among the given bytes.
int DeCompHandler::packLines(unsigned char* lines, int bytes, int room) const
{
    const std::int64_t pad = DeCompressor->GetNumPadBytesPerLine();
    const std::int64_t step = stride + pad;
    if (stride < 1 || pad < 0) {
        return 0;
    }
    std::int64_t count = bytes / stride;
    if (count * step - pad > room) {
        count = (room + pad) / step;
    }
    for (std::int64_t i = 0; i < count; ++i) {
        SL_TRACE("LinesPerBand = %d", static_cast<int>(count - i));
        if (pad > 0 && i > 0) {
            memmove(lines + i * stride, lines + i * step, static_cast<size_t>(stride));
        }
    }
    return static_cast<int>(count * stride);
}

int DeCompHandler::decompressChunk(DataBuffer* in, unsigned char* raw, int chunk)
{
    const int padBytes = DeCompressor->GetNumPadBytesPerLine();
    const int bandLines = DeCompressor->GetMaxLinesPerBand();
    const std::int64_t wanted =
        (static_cast<std::int64_t>(padBytes) + chunk) * bandLines * kSafetyFactor;
    const bool fits = wanted > 0 && wanted <= std::numeric_limits<int>::max();
    const int outSize = fits ? static_cast<int>(wanted) : 0;
    SL_TRACE("GetNumPadBytesPerLine = %d", padBytes);
    SL_TRACE("GetMaxLinesPerBand = %d", bandLines);
    SL_TRACE("OutBufferSize = %d", outSize);

    // Zeroed: what the decoder leaves out must not show what the heap held before.
    const std::unique_ptr<unsigned char, decltype(&free)> out(
        static_cast<unsigned char*>(fits ? calloc(1, static_cast<size_t>(outSize)) : nullptr),
        free);
    if (!out) {
        SL_TRACE("malloc failed");
    }
    SL_TRACE("After malloc");

    int converted = 0;
    int generated = 0;
    DeCompressor->Decomp(raw, chunk, &converted, out.get(), out ? outSize : 0, &generated);
    SL_TRACE("After Decomp");
    SL_TRACE("BytesGen = %d", generated);
    SL_TRACE("BytesConverted = %d", converted);
    if (outSize >= 10 && out) {
        const unsigned char* b = out.get();
        SL_TRACE("%2X %2X %2X %2X %2X %2X %2X %2X %2X %2X", b[0], b[1], b[2], b[3], b[4], b[5],
                 b[6], b[7], b[8], b[9]);
    }
    const int finished = out ? packLines(out.get(), std::max(generated, 0), outSize) : 0;
    return in->ReplaceRawData(std::clamp(converted, 0, chunk), out.get(), finished) ? 1 : 0;
}

int DeCompHandler::Decompress(DataBuffer* in, ImageData* img)
{
    SL_START();
    const int rawSize = in->GetRawDataSize();
    if (!DeCompressor) {
        SL_TRACE("Decompression is not needed.");
        in->SetProcessedDataSize(rawSize);
        SL_RETURN(1);
    }
    if (img->GetInterleave() != 0) {
        SL_TRACE("Data needs interleaving so no decompression needed.");
        in->SetProcessedDataSize(rawSize);
        SL_RETURN(1);
    }
    unsigned char* raw = in->GetRawDataPtr();
    if (rawSize <= 0 || raw == nullptr) {
        SL_TRACE("There's nothing to decompress.");
        SL_RETURN(0);
    }
    const int chunk = chunkSize(raw, rawSize);
    if (chunk < 0) {
        SL_TRACE("CHUNKSIZE = %d", chunk);
        SL_RETURN(0);
    }
    if (chunk > rawSize) {
        SL_TRACE("cannot decompress ... not enough data");
        SL_RETURN(0);
    }
    const int result = decompressChunk(in, raw, chunk);
    if (result == 1) {
        SL_TRACE("Decompression successful!");
    }
    SL_RETURN(result);
}
