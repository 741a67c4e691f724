// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/DecompWicket.h"

#include "wicket/Wicket.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kDecoderErrors[] = {Wicket::kBadWidth, Wicket::kBadHeight,
                                  Wicket::kTooManyCoefficients};

int bigEndian32(const void* chunk, int offset)
{
    const unsigned char* data = static_cast<const unsigned char*>(chunk) + offset;
    return static_cast<int>(
        static_cast<std::uint32_t>(data[0]) << 24 | static_cast<std::uint32_t>(data[1]) << 16 |
        static_cast<std::uint32_t>(data[2]) << 8 | static_cast<std::uint32_t>(data[3]));
}

std::int64_t roundedUp(std::int64_t value, int unit)
{
    return (value + unit - 1) / unit * unit;
}

int limitedToInt(std::int64_t value)
{
    return static_cast<int>(std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

}  // namespace

CDecompWicket::CDecompWicket(int byteStuffing)
    : m_pWicket(std::make_unique<Wicket>(byteStuffing)), m_ByteStuffing(byteStuffing)
{
}

CDecompWicket::~CDecompWicket() = default;

int CDecompWicket::GetChunkSize(const void* chunk)
{
    return bigEndian32(chunk, 0);
}

int CDecompWicket::GetChunkHeight(const void* chunk)
{
    return bigEndian32(chunk, 4);
}

int CDecompWicket::GetChunkWidth(const void* chunk)
{
    return bigEndian32(chunk, 8);
}

int CDecompWicket::GetChunkQualityFactor(const void* chunk)
{
    return bigEndian32(chunk, 12);
}

void CDecompWicket::StartDecomp(int width, int height, int channels, int bitsPerPixel)
{
    SL_START();
    m_Width = width;
    m_Height = height;
    m_NumChannels = channels;
    m_BytesPerChannel = bitsPerPixel;
    std::int64_t pad = 0;
    if (m_ByteStuffing != 0) {
        const int beyond = width % 8;
        pad = beyond != 0 ? std::int64_t{8 - beyond} * channels : 0;
    } else {
        const std::int64_t beyond = std::int64_t{width} * channels % 48;
        pad = beyond != 0 ? 48 - beyond : 0;
    }
    m_NumPadBytesPerLine = limitedToInt(pad);
    SL_END();
}

// Copies count bytes from the input position on; those that the ring does not have are zero.
void CDecompWicket::copyFromRing(const unsigned char* in, int inLen, unsigned char* dst,
                                 int count) const
{
    const int tail = std::min(inLen - m_InputIndex, count);
    const int start = std::min(count - tail, inLen);
    memset(dst, 0, static_cast<std::size_t>(count));
    memcpy(dst, in + m_InputIndex, static_cast<std::size_t>(tail));
    memcpy(dst + tail, in, static_cast<std::size_t>(start));
}

int CDecompWicket::chunkSize(const unsigned char* in, int inLen) const
{
    if (inLen - m_InputIndex > kHeaderSize - 1) {
        const int size = GetChunkSize(in + m_InputIndex);
        SL_TRACE("after getchunksize else");
        SL_TRACE("dwChunkSize = %d", size);
        return size;
    }
    unsigned char header[kHeaderSize];
    copyFromRing(in, inLen, header, kHeaderSize);
    const int size = GetChunkSize(header);
    SL_TRACE("after getchunksize = %d", size);
    return size;
}

// Of a chunk of which that many bytes are there.
CDecompWicket::Header CDecompWicket::readHeader(const unsigned char* chunk, int size, int there)
{
    unsigned char bytes[kHeaderSize] = {};
    memcpy(bytes, chunk, static_cast<std::size_t>(std::min(there, kHeaderSize)));
    Header header = {};
    header.size = size;
    header.quality = GetChunkQualityFactor(bytes);
    m_pWicket->QualityFactor(header.quality);
    SL_TRACE("GetChunkQualityFactor = %d", header.quality);
    SL_TRACE("after qualityfactor");
    header.width = GetChunkWidth(bytes);
    SL_TRACE("after getchunkwidth = %d", header.width);
    header.height = GetChunkHeight(bytes);
    SL_TRACE("after getchunkheight = %d", header.height);
    return header;
}

int CDecompWicket::paddedWidth(int width) const
{
    const int unstuffedUnit = m_NumChannels == 1 ? 48 : 16;
    return static_cast<int>(roundedUp(width, m_ByteStuffing == 1 ? 8 : unstuffedUnit));
}

// Whether out holds the padded plane, and an int the size of the lines announced.
bool CDecompWicket::fits(const Header& header, int outLen) const
{
    constexpr int kLargest = std::numeric_limits<int>::max() - 48;
    if (header.height < 0 || header.height > kLargest || header.width > kLargest || m_Width < 0 ||
        m_NumChannels < 0) {
        return false;
    }
    if (header.height == 0) {
        return true;  // whatever the width: there are no lines
    }
    const std::int64_t lines = roundedUp(header.height, 8);
    const std::int64_t samples = paddedWidth(header.width) * (m_NumChannels == 1 ? 1LL : 3LL);
    const std::int64_t announced = std::int64_t{m_Width} * m_NumChannels;
    return samples <= outLen / lines &&
           announced <= std::numeric_limits<int>::max() / header.height;
}

int CDecompWicket::decodeBody(const unsigned char* chunk, const Header& header, unsigned char* out)
{
    const int bodySize = std::max(header.size - kHeaderSize, 0);
    const unsigned char* body = bodySize > 0 ? chunk + kHeaderSize : nullptr;
    const int width = paddedWidth(header.width);
    const int height = static_cast<int>(roundedUp(header.height, 8));
    int generated = 0;
    int converted = 0;
    if (m_NumChannels != 1) {
        return m_pWicket->DecompressThreePlanes(body, bodySize, out, width, height, &generated,
                                                &converted);
    }
    const int status =
        m_pWicket->DecompressOnePlane(body, bodySize, out, width, height, &generated, &converted);
    SL_TRACE("after oneplane");
    return status;
}

// Lines of a scan that is wider than the chunk reach beyond what the decoder wrote.
void CDecompWicket::clearBehind(const Header& header, unsigned char* out, int outLen) const
{
    const std::int64_t line = std::int64_t{m_Width} * m_NumChannels + m_NumPadBytesPerLine;
    const std::int64_t end = std::min<std::int64_t>(line * header.height, outLen);
    const std::int64_t written =
        roundedUp(header.height, 8) * paddedWidth(header.width) * (m_NumChannels == 1 ? 1 : 3);
    if (end > written) {
        memset(out + written, 0, static_cast<std::size_t>(end - written));
    }
}

int CDecompWicket::decodeChunk(const unsigned char* chunk, const Header& header,
                               int* bytesConverted, unsigned char* out, int outLen, int* bytesGen)
{
    if (header.size == 0 || header.width < 1) {
        return DECOMP_LINE_COMPLETED;
    }
    *bytesConverted = header.size;
    *bytesGen = 0;
    if (out == nullptr || !fits(header, outLen)) {
        return DECOMP_ERROR;
    }
    const int status = decodeBody(chunk, header, out);
    clearBehind(header, out, outLen);
    *bytesGen = static_cast<int>(std::int64_t{header.height} * m_Width * m_NumChannels);
    if (status == 0) {
        return DECOMP_LINE_COMPLETED;
    }
    return std::count(std::begin(kDecoderErrors), std::end(kDecoderErrors), status) > 0
               ? DECOMP_ERROR
               : status;
}

int CDecompWicket::Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out,
                          int outLen, int* bytesGen)
{
    SL_START();
    if (in == nullptr || out == nullptr || bytesConverted == nullptr || bytesGen == nullptr) {
        SL_TRACE("Null pointer passed!");
    }
    if (in == nullptr || inLen < 0) {
        SL_RETURN(DECOMP_ERROR);
    }
    int ignored = 0;
    bytesConverted = bytesConverted != nullptr ? bytesConverted : &ignored;
    bytesGen = bytesGen != nullptr ? bytesGen : &ignored;
    if (m_InputIndex >= inLen) {
        m_InputIndex = 0;  // the ring has shrunk
    }
    const int size = chunkSize(in, inLen);
    if (size < 0 || size > inLen) {
        SL_RETURN(DECOMP_ERROR);
    }

    std::unique_ptr<unsigned char[]> copy;
    const unsigned char* chunk = in + m_InputIndex;
    int there = inLen - m_InputIndex;
    if (there >= size) {
        SL_TRACE("else pbBufferToSend");
    } else {
        SL_TRACE("inside if");
        copy.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]);
        if (!copy) {
            SL_RETURN(DECOMP_ERROR);
        }
        copyFromRing(in, inLen, copy.get(), size);
        chunk = copy.get();
        there = size;
        SL_TRACE("after if");
    }
    const Header header = readHeader(chunk, size, there);
    const int status = decodeChunk(chunk, header, bytesConverted, out, outLen, bytesGen);
    // Without overflow: the size is at most inLen, the position below it.
    m_InputIndex =
        size >= inLen - m_InputIndex ? size - (inLen - m_InputIndex) : m_InputIndex + size;
    SL_RETURN(status);
}

void CDecompWicket::DumpCompressedData(const unsigned char* chunk, int index)
{
    SL_START();
    writeDump(chunk, index);
    SL_END();
}

void CDecompWicket::writeDump(const unsigned char* chunk, int index)
{
    if (chunk == nullptr) {
        return;
    }
    char name[64];
    snprintf(name, sizeof name, "%sdump%02d.dat", "/tmp/", index);
    const int descriptor =
        open(name, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
             S_IRUSR | S_IWUSR);
    FILE* file = descriptor >= 0 ? fdopen(descriptor, "wb") : nullptr;
    if (file == nullptr) {
        if (descriptor >= 0) {
            close(descriptor);
        }
        return;
    }
    const int size = GetChunkSize(chunk);
    fwrite(chunk, 1, static_cast<std::size_t>(std::max(size, 0)), file);
    fclose(file);
}
