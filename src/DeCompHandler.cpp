// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DeCompHandler.h"

#include "wicket/DecompWicket.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace {

constexpr int kWicket = 2;
constexpr int kChunkSizeBytes = 4;  // the size field that starts a chunk
constexpr int kSafetyFactor = 5;    // output room, in bands of the chunk's own size
constexpr int kBytesLogged = 10;
constexpr int kLargest = std::numeric_limits<int>::max();

}  // namespace

DeCompHandler::~DeCompHandler() = default;

std::unique_ptr<CDecomp> DeCompHandler::createDecompressor(int technology)
{
    if (technology != kWicket) {
        return nullptr;
    }
    try {
        return std::make_unique<CDecompWicket>(1);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int DeCompHandler::Initialize(ConfigReader* cfg)
{
    SL_START();
    SL_TRACE("DeCompHandler Initialize called");
    outBlock.reset();
    outCapacity = 0;
    isRestHidden = false;
    isRestLost = false;
    isChunkLost = false;
    linesMade = 0;
    CompressionType = cfg->GetIntOption("COMPRESSIONTECH");
    if (cfg->GetIntOption("COMPRESSION") == 1) {
        SL_TRACE("Compression is on");
        auto created = createDecompressor(CompressionType);
        if (created) {
            DeCompressor = std::move(created);
            SL_TRACE("Type is Wicket4");
        } else if (CompressionType == kWicket) {
            SL_TRACE("[ERROR] no memory to decompress");
            SL_RETURN(0);
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

// How many of the lines that a decoder announces are in its room.
int DeCompHandler::wholeLines(int bytes, int room) const
{
    const std::int64_t pad = DeCompressor->GetNumPadBytesPerLine();
    const std::int64_t step = stride + pad;
    if (stride < 1 || pad < 0) {
        return 0;
    }
    const int count = bytes / stride;
    return count * step - pad > room ? static_cast<int>((room + pad) / step) : count;
}

// Without the pad bytes behind each line.
void DeCompHandler::copyLines(const unsigned char* lines, int count, unsigned char* to) const
{
    const bool isTracing = debugEnabled();
    const int pad = DeCompressor->GetNumPadBytesPerLine();
    for (int left = count; left > 0; --left) {
        SL_TRACE_IF(isTracing, "LinesPerBand = %d", left);
        memcpy(to, lines, static_cast<size_t>(stride));
        to += stride;
        lines += stride + pad;
    }
}

// The room for a chunk's lines, by the chunk's own size; 0: more than an int holds.
int DeCompHandler::outputSize(int chunk) const
{
    const std::int64_t bytes = std::int64_t{DeCompressor->GetNumPadBytesPerLine()} + chunk;
    const std::int64_t wanted = bytes * DeCompressor->GetMaxLinesPerBand() * kSafetyFactor;
    return wanted >= 0 && wanted <= kLargest ? static_cast<int>(wanted) : 0;
}

bool DeCompHandler::isImpossible(int chunk) const
{
    return chunk < 0 || (chunk > 0 && outputSize(chunk) == 0);
}

// Also room for a band of the page's lines: a chunk that is narrower than the page announces
// more than its own block holds.
int DeCompHandler::blockSize(int chunk) const
{
    const std::int64_t step = std::int64_t{stride} + DeCompressor->GetNumPadBytesPerLine();
    const std::int64_t band = step * DeCompressor->GetMaxLinesPerBand();
    const int smallest =
        band > kBytesLogged && band <= kLargest ? static_cast<int>(band) : kBytesLogged;
    return isImpossible(chunk) ? 0 : std::max(outputSize(chunk), smallest);
}

// Null for size 0, and without memory.
unsigned char* DeCompHandler::outputBlock(int size)
{
    if (size > outCapacity) {
        outBlock.reset();  // first, so that there are never two of them
        outBlock.reset(static_cast<unsigned char*>(malloc(static_cast<size_t>(size))));
        outCapacity = outBlock ? size : 0;
    }
    return size > 0 ? outBlock.get() : nullptr;
}

// The log shows the first bytes even when the decompressor writes none, and lines may reach
// over bytes that it leaves alone: behind its block, and where it makes lines of another size.
void DeCompHandler::clearBlock(unsigned char* out, int outSize, int room) const
{
    const bool isStrideOwn = stride == std::int64_t{width} * channels;
    memset(out, 0, static_cast<size_t>(isStrideOwn ? kBytesLogged : room));
    if (room > outSize) {
        memset(out + outSize, 0, static_cast<size_t>(room - outSize));
    }
}

int DeCompHandler::decompressChunk(DataBuffer* in, unsigned char* raw, int chunk)
{
    SL_TRACE("GetNumPadBytesPerLine = %d", DeCompressor->GetNumPadBytesPerLine());
    SL_TRACE("GetMaxLinesPerBand = %d", DeCompressor->GetMaxLinesPerBand());
    const int outSize = outputSize(chunk);
    SL_TRACE("OutBufferSize = %d", outSize);
    const int room = blockSize(chunk);
    unsigned char* out = outputBlock(room);
    if (out == nullptr) {
        SL_TRACE("malloc failed");
    } else {
        clearBlock(out, outSize, room);
    }
    SL_TRACE("After malloc");

    int converted = 0;
    int generated = 0;
    const int status =
        DeCompressor->Decomp(raw, chunk, &converted, out, out != nullptr ? outSize : 0, &generated);
    SL_TRACE("After Decomp");
    SL_TRACE("BytesGen = %d", generated);
    SL_TRACE("BytesConverted = %d", converted);
    if (out != nullptr) {
        SL_TRACE("%2X %2X %2X %2X %2X %2X %2X %2X %2X %2X", out[0], out[1], out[2], out[3], out[4],
                 out[5], out[6], out[7], out[8], out[9]);
    }
    const int lines = out != nullptr ? wholeLines(std::max(generated, 0), room) : 0;
    unsigned char* finished = nullptr;
    if (!in->ReplaceRawData(std::clamp(converted, 0, chunk), lines * stride, &finished)) {
        return 0;
    }
    copyLines(out, lines, finished);
    linesMade += lines;
    const bool isCut = stride > 0 && generated / stride > lines;
    isChunkLost = isChunkLost || isCut || (status == CDecomp::DECOMP_ERROR && generated <= 0);
    isRestHidden = isRestHidden || converted <= 0;
    return 1;
}

int DeCompHandler::Decompress(DataBuffer* in, ImageData* img)
{
    return Decompress(in, img, debugEnabled());
}

int DeCompHandler::Decompress(DataBuffer* in, ImageData* img, bool isTracing)
{
    SL_START_IF(isTracing);
    const int rawSize = in->GetRawDataSize();
    if (!DeCompressor) {
        SL_TRACE_IF(isTracing, "Decompression is not needed.");
        in->SetProcessedDataSize(rawSize);
        SL_RETURN_IF(isTracing, 1);
    }
    if (img->GetInterleave() != 0) {
        SL_TRACE_IF(isTracing, "Data needs interleaving so no decompression needed.");
        in->SetProcessedDataSize(rawSize);
        SL_RETURN_IF(isTracing, 1);
    }
    unsigned char* raw = in->GetRawDataPtr();
    if (rawSize <= 0 || raw == nullptr) {
        SL_TRACE_IF(isTracing, "There's nothing to decompress.");
        SL_RETURN_IF(isTracing, 0);
    }
    const int chunk = chunkSize(raw, rawSize);
    // Whether the chunk is there already must not decide about the page.
    isRestHidden = isRestHidden || isImpossible(chunk);
    if (chunk < 0) {
        SL_TRACE_IF(isTracing, "CHUNKSIZE = %d", chunk);
        SL_RETURN_IF(isTracing, 0);
    }
    if (chunk > rawSize) {
        SL_TRACE_IF(isTracing, "cannot decompress ... not enough data");
        SL_RETURN_IF(isTracing, 0);
    }
    const int result = decompressChunk(in, raw, chunk);
    if (result == 1) {
        SL_TRACE_IF(isTracing, "Decompression successful!");
    }
    SL_RETURN_IF(isTracing, result);
}

// Zeros behind the chunks of a page fill its last block up.
bool DeCompHandler::isPadding(DataBuffer* in)
{
    const unsigned char* raw = in->GetRawDataPtr();
    const int size = raw != nullptr ? in->GetRawDataSize() : 0;
    return std::all_of(raw, raw + size, [](unsigned char byte) { return byte == 0; });
}

void DeCompHandler::DropHidden(DataBuffer* in)
{
    if (isRestHidden) {
        isRestLost = isRestLost || !isPadding(in);
        in->ShrinkRawData(in->GetRawDataSize());
    }
}

bool DeCompHandler::Finish(DataBuffer* in) const
{
    const bool isWhole = !isRestLost && !isChunkLost && isPadding(in);
    if (isWhole || linesMade >= height) {
        return true;
    }
    SL_TRACE("[ERROR] %d of %d lines could be decompressed", static_cast<int>(linesMade), height);
    return false;
}
