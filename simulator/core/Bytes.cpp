// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Bytes.h"

#include <algorithm>

namespace scansim {

std::string hex(const std::uint8_t* data, std::size_t size, std::size_t limit)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < std::min(size, limit); ++i) {
        if (i > 0) {
            text += ' ';
        }
        text += digits[data[i] >> 4];
        text += digits[data[i] & 15];
    }
    if (size > limit) {
        text += " ... (" + std::to_string(size) + " bytes)";
    }
    return text;
}

}  // namespace scansim
