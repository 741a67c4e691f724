// SPDX-License-Identifier: LGPL-2.1-or-later
// Bytes as the scanner sends them.
#pragma once

#include "FakeUsb.h"

#include <cstddef>

inline void putLittle(Bytes& bytes, std::size_t offset, unsigned value, int size)
{
    for (int i = 0; i < size; i++) {
        bytes.at(offset + static_cast<std::size_t>(i)) =
            static_cast<unsigned char>(value >> (8 * i));
    }
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// size bytes that count up from first; never the start of a record.
inline Bytes ramp(int size, int first = 0x20)
{
    Bytes bytes;
    for (int i = 0; i < size; i++) {
        const int value = (first + i) & 0xFF;
        bytes.push_back(static_cast<unsigned char>(value == 0x1B ? 0x1A : value));
    }
    return bytes;
}

// The command codes by command number.
constexpr unsigned char kCommandCode[] = {0x0F, 0x04, 0x03, 0x05, 0x01, 0x06, 0x04, 0x02};

// The reply to a command, followed by data.
inline Bytes replyTo(int command, int status = 0x80, int feeder = 0, const Bytes& data = {0, 0})
{
    Bytes bytes(8);
    bytes[0] = 0x1B;
    bytes[1] = command == 6 ? 'D' : 'S';
    bytes[2] = kCommandCode[command];
    putLittle(bytes, 4, static_cast<unsigned>(data.size()), 2);
    bytes[6] = static_cast<unsigned char>(status);
    bytes[7] = static_cast<unsigned char>(feeder);
    return bytes + data;
}

// A record of the image stream.
inline Bytes record(int response, const Bytes& data = {0, 0})
{
    return replyTo(7, 0, 0, Bytes{static_cast<unsigned char>(response)} + data);
}

inline Bytes pageMarker(unsigned width, unsigned height, unsigned offsetX, unsigned offsetY,
                        unsigned trim, int interleave)
{
    Bytes bytes = record(9, Bytes(22));
    bytes[10] = static_cast<unsigned char>(interleave);
    const unsigned values[] = {width, height, offsetX, offsetY, trim};
    for (std::size_t i = 0; i < 5; i++) {
        putLittle(bytes, 11 + 4 * i, values[i], 4);
    }
    return bytes;
}

// Image bytes behind the block header of a protocol version.
inline Bytes imageBlock(const Bytes& data, int version = 326)
{
    const std::size_t strip = version == 402 ? 31 : version == 401 ? 10 : 9;
    Bytes header(strip);
    header[0] = 0x1B;
    header[1] = 'S';
    header[2] = 2;
    putLittle(header, 4, static_cast<unsigned>(data.size() + strip - 8), 2);
    return header + data;
}

// One source of the device properties: type, bar ID and pairs of resolutions.
inline Bytes source(int type, int barId, const std::vector<std::pair<unsigned, unsigned>>& res)
{
    Bytes bytes(15 + 9 * res.size());
    bytes[0] = static_cast<unsigned char>(type);
    bytes[1] = static_cast<unsigned char>(barId);
    bytes[14] = static_cast<unsigned char>(res.size());
    for (std::size_t i = 0; i < res.size(); i++) {
        putLittle(bytes, 15 + 9 * i, res[i].first, 4);
        putLittle(bytes, 19 + 9 * i, res[i].second, 4);
        bytes[23 + 9 * i] = 24;
    }
    return bytes;
}

inline Bytes properties(int compression, const std::vector<Bytes>& sources)
{
    Bytes data = {1,
                  0,
                  0,
                  static_cast<unsigned char>(compression),
                  0,
                  0,
                  static_cast<unsigned char>(sources.size())};
    for (const Bytes& one : sources) {
        data = data + one;
    }
    return replyTo(2, 0x80, 0, data);
}

// The names of parametrised tests, for parameters with a name of their own.
inline constexpr auto kByName = [](const auto& info) { return std::string(info.param.name); };
