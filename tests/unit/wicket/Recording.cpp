// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Recording.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <istream>
#include <stdexcept>

namespace recording {
namespace {

constexpr std::size_t kMostBytes = 1 << 24;

std::size_t outputSize(const Stream& stream)
{
    return static_cast<std::size_t>(stream.width) * static_cast<std::size_t>(stream.height) *
           static_cast<std::size_t>(stream.channels);
}

void putNumber(std::ostream& out, int number)
{
    for (unsigned shift = 0; shift < 32; shift += 8) {
        out.put(static_cast<char>(static_cast<unsigned>(number) >> shift & 0xFF));
    }
}

void putBytes(std::ostream& out, const Bytes& bytes)
{
    putNumber(out, static_cast<int>(bytes.size()));
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

int getNumber(std::istream& in)
{
    std::uint32_t number = 0;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const int byte = in.get();
        if (byte < 0) {
            throw std::runtime_error("the recording ends within an entry");
        }
        number |= static_cast<std::uint32_t>(byte) << shift;
    }
    return static_cast<int>(number);
}

Bytes getBytes(std::istream& in)
{
    const auto size = static_cast<std::size_t>(getNumber(in));
    if (size > kMostBytes) {
        throw std::runtime_error("no recording");
    }
    Bytes bytes(size);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) {
        throw std::runtime_error("the recording ends within an entry");
    }
    return bytes;
}

}  // namespace

Result decode(Wicket& decoder, const Stream& stream)
{
    Result result = {0, -7, -7, Bytes(outputSize(stream), 0xEE)};
    decoder.QualityFactor(stream.quality);
    const auto decompress =
        stream.channels == 1 ? &Wicket::DecompressOnePlane : &Wicket::DecompressThreePlanes;
    result.status = (decoder.*decompress)(stream.body.data(), static_cast<int>(stream.body.size()),
                                          result.out.data(), stream.width, stream.height,
                                          &result.generated, &result.converted);
    return result;
}

bool decodeFast(FastDecoder& decoder, const wicket::Kernel& kernel, const Wicket& tables,
                const Stream& stream, Bytes* out)
{
    out->assign(outputSize(stream), 0xEE);
    std::int64_t bits = 0;
    return decoder.decode(kernel, stream.body.data(), static_cast<int>(stream.body.size()),
                          {out->data(), static_cast<std::size_t>(stream.width),
                           static_cast<std::size_t>(stream.height), stream.channels},
                          tables.dequantTable(0), tables.dequantTable(1), &bits);
}

std::ostream* file()
{
    static const char* const path = getenv("WICKET_RECORDING");
    static std::ofstream opened;
    if (path == nullptr) {
        return nullptr;
    }
    if (!opened.is_open()) {
        opened.exceptions(std::ios::failbit | std::ios::badbit);
        opened.open(path, std::ios::binary);
    }
    return &opened;
}

void write(std::ostream& out, const Entry& entry)
{
    const Stream& stream = entry.stream;
    for (const int number :
         {stream.isStuffed ? 1 : 0, stream.quality, stream.width, stream.height, stream.channels}) {
        putNumber(out, number);
    }
    putBytes(out, stream.body);
    for (const int number : {entry.result.status, entry.result.generated, entry.result.converted}) {
        putNumber(out, number);
    }
    putBytes(out, entry.result.out);
    putNumber(out, entry.isTaken ? 1 : 0);
}

bool read(std::istream& in, Entry* entry)
{
    if (in.peek() < 0) {
        return false;
    }
    Stream& stream = entry->stream;
    stream.isStuffed = getNumber(in) != 0;
    for (int* number : {&stream.quality, &stream.width, &stream.height, &stream.channels}) {
        *number = getNumber(in);
    }
    stream.body = getBytes(in);
    Result& result = entry->result;
    for (int* number : {&result.status, &result.generated, &result.converted}) {
        *number = getNumber(in);
    }
    result.out = getBytes(in);
    entry->isTaken = getNumber(in) != 0;
    return true;
}

}  // namespace recording
