// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace scansim {

using Bytes = std::vector<std::uint8_t>;

inline std::uint16_t le16(const std::uint8_t* p)
{
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t le32(const std::uint8_t* p)
{
    return static_cast<std::uint32_t>(le16(p)) | (static_cast<std::uint32_t>(le16(p + 2)) << 16);
}

inline void putLe16(std::uint8_t* p, std::size_t value)
{
    p[0] = static_cast<std::uint8_t>(value & 0xFF);
    p[1] = static_cast<std::uint8_t>((value >> 8) & 0xFF);
}

inline void putLe32(std::uint8_t* p, std::uint32_t value)
{
    putLe16(p, value & 0xFFFF);
    putLe16(p + 2, value >> 16);
}

inline std::uint32_t be32(const std::uint8_t* p)
{
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

inline void putBe32(std::uint8_t* p, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
}

// "1B 53 04 ..."; at most `limit` bytes are shown.
std::string hex(const std::uint8_t* data, std::size_t size, std::size_t limit = 64);

}  // namespace scansim
