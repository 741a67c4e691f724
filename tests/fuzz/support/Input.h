// SPDX-License-Identifier: LGPL-2.1-or-later
// The bytes of a fuzzer, taken from the front.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

using Bytes = std::vector<unsigned char>;

// Behind the end there are zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    bool isEmpty() const { return at_ == end_; }

    unsigned byte() { return at_ < end_ ? *at_++ : 0U; }
    // Two bytes, little-endian.
    unsigned word()
    {
        const unsigned low = byte();
        return low | byte() << 8;
    }
    int integer()
    {
        const unsigned low = word();
        return static_cast<int>(low | word() << 16);
    }
    // As many bytes as there are of count.
    Bytes take(std::size_t count)
    {
        const std::uint8_t* first = at_;
        at_ += std::min(count, left());
        return Bytes(first, at_);
    }
    Bytes rest() { return take(left()); }

private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

}  // namespace fuzz
