// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Text.h"

#include "TextLine.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace check {

namespace {

constexpr std::size_t kLongestQuoted = 120;

bool isContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The bytes of the character at the position, 0 where there is none in UTF-8.
std::size_t characterSize(const std::string& text, std::size_t at)
{
    const auto first = static_cast<unsigned char>(text[at]);
    std::size_t size = 0;
    if (first < 0x80) {
        size = 1;
    } else if (first >= 0xC2 && first < 0xE0) {
        size = 2;
    } else if (first >= 0xE0 && first < 0xF0) {
        size = 3;
    } else if (first >= 0xF0 && first < 0xF5) {
        size = 4;
    }
    if (size == 0 || at + size > text.size()) {
        return 0;
    }
    return std::all_of(text.begin() + static_cast<long>(at) + 1,
                       text.begin() + static_cast<long>(at + size), isContinuation)
               ? size
               : 0;
}

std::uint32_t codePoint(const std::string& text, std::size_t at, std::size_t size)
{
    const auto first = static_cast<unsigned char>(text[at]);
    std::uint32_t code = size == 1 ? first : first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        code = code << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
    }
    return code;
}

// Controls, and what changes the direction of writing or is not to be seen.
bool isHarmless(std::uint32_t code, std::size_t size)
{
    const bool isOverlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    const bool isHidden = (code >= 0x200B && code <= 0x200F) ||
                          (code >= 0x2028 && code <= 0x202E) ||
                          (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || code == 0x061C;
    return !isOverlong && !isControl && !isSurrogate && !isHidden && code <= 0x10FFFF;
}

void appendEscaped(const std::string& text, std::size_t at, std::size_t size, std::string* out)
{
    for (std::size_t i = at; i < at + size; ++i) {
        char escaped[5];
        snprintf(escaped, sizeof escaped, "\\x%02x",
                 static_cast<unsigned>(static_cast<unsigned char>(text[i])));
        *out += escaped;
    }
}

}  // namespace

std::string printable(const std::string& text)
{
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = characterSize(text, at);
        if (size > 0 && isHarmless(codePoint(text, at, size), size)) {
            out.append(text, at, size);
        } else {
            appendEscaped(text, at, std::max<std::size_t>(size, 1), &out);
        }
        at += std::max<std::size_t>(size, 1);
    }
    return out;
}

std::string quoted(const std::string& text)
{
    const bool isLong = text.size() > kLongestQuoted;
    return "'" + printable(text.substr(0, kLongestQuoted)) + (isLong ? "...'" : "'");
}

std::vector<std::string> words(const std::string& text)
{
    std::vector<std::string> found;
    bool isInside = false;
    for (const char c : text) {
        const bool isSpace = TextLine::isSpace(c);
        if (!isSpace && !isInside) {
            found.emplace_back();
        }
        isInside = !isSpace;
        if (isInside) {
            found.back() += c;
        }
    }
    return found;
}

std::string trimmed(const std::string& text)
{
    const auto first = std::find_if_not(text.begin(), text.end(), TextLine::isSpace);
    const auto last = std::find_if_not(text.rbegin(), std::string::const_reverse_iterator(first),
                                       TextLine::isSpace);
    return {first, last.base()};
}

bool isTrimmed(const std::string& text)
{
    return trimmed(text) == text;
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return text;
}

bool startsWith(const std::string& text, const std::string& front)
{
    return text.compare(0, front.size(), front) == 0;
}

int distance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<int>> cost(a.size() + 1, std::vector<int>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = static_cast<int>(i + j);
                continue;
            }
            const int replaced = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::string hexId(unsigned id)
{
    char text[16];
    snprintf(text, sizeof text, "%04x", id);
    return text;
}

std::string plural(std::size_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace check
