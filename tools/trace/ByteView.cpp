// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ByteView.h"

#include <algorithm>
#include <cstdio>

namespace trace {

std::uint64_t ByteView::little(std::size_t offset, std::size_t count) const
{
    std::uint64_t value = 0;
    for (std::size_t i = count; i > 0; --i) {
        value = value << 8 | (*this)[offset + i - 1];
    }
    return value;
}

std::uint64_t ByteView::big(std::size_t offset, std::size_t count) const
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8 | (*this)[offset + i];
    }
    return value;
}

ByteView ByteView::from(std::size_t offset) const
{
    const std::size_t skipped = std::min(offset, size_);
    return ByteView(data_ + skipped, size_ - skipped);
}

ByteView ByteView::first(std::size_t count) const
{
    return ByteView(data_, std::min(count, size_));
}

bool ByteView::startsWith(ByteView start) const
{
    return size_ >= start.size() && std::equal(start.begin(), start.end(), begin());
}

bool operator==(ByteView a, ByteView b)
{
    return a.size() == b.size() && a.startsWith(b);
}

std::string hex(ByteView bytes, std::size_t limit)
{
    std::string text;
    char digits[4];
    for (const std::uint8_t byte : bytes.first(limit)) {
        std::snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned>(byte));
        text += digits;
    }
    if (bytes.size() > limit) {
        return text + "... " + std::to_string(bytes.size() - limit) + " more";
    }
    if (!text.empty()) {
        text.pop_back();
    }
    return text;
}

std::string printable(const std::string& text)
{
    std::string result;
    char escaped[5];
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F) {
            result += c;
        } else {
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(byte));
            result += escaped;
        }
    }
    return result;
}

}  // namespace trace
