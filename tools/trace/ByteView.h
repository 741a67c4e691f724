// SPDX-License-Identifier: LGPL-2.1-or-later
// Bytes that somebody else has made up: fields behind their end do not exist.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace trace {

using Bytes = std::vector<std::uint8_t>;

// Borrowed bytes. Numbers are read as far as they are there; what is missing counts as zero.
class ByteView {
public:
    ByteView() = default;
    ByteView(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    ByteView(const Bytes& bytes) : ByteView(bytes.data(), bytes.size()) {}

    const std::uint8_t* begin() const { return data_; }
    const std::uint8_t* end() const { return data_ + size_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    bool has(std::size_t offset, std::size_t count) const
    {
        return offset <= size_ && count <= size_ - offset;
    }
    std::uint8_t operator[](std::size_t offset) const
    {
        return offset < size_ ? data_[offset] : std::uint8_t{0};
    }

    std::uint64_t little(std::size_t offset, std::size_t count) const;
    std::uint64_t big(std::size_t offset, std::size_t count) const;

    // What is there of it.
    ByteView from(std::size_t offset) const;
    ByteView first(std::size_t count) const;
    ByteView part(std::size_t offset, std::size_t count) const { return from(offset).first(count); }

    bool startsWith(ByteView start) const;
    Bytes copy() const { return Bytes(begin(), end()); }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

bool operator==(ByteView a, ByteView b);

// "1B 53 04"; of more than limit bytes the rest is counted.
std::string hex(ByteView bytes, std::size_t limit);

// Control characters and what is not ASCII as "\xNN", so that nothing of it reaches a terminal.
std::string printable(const std::string& text);

}  // namespace trace
