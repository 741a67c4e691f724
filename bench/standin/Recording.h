// SPDX-License-Identifier: LGPL-2.1-or-later
// What a scanner said to each command of a host, transfer by transfer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace standin {

using Bytes = std::vector<unsigned char>;

// Equal transfers are held once: those of a blank page stay in the processor's cache, as those
// that a host controller has just written would.
class Recording {
public:
    struct Exchange {
        Bytes command;
        std::vector<std::uint32_t> answers;  // numbers of transfers
    };

    int vendorId = 0;
    int productId = 0;

    Recording() = default;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    // Throw std::runtime_error.
    void load(const std::string& path);
    void save(const std::string& path) const;

    void addCommand(const Bytes& command) { exchanges_.push_back({command, {}}); }
    // Belongs to the last command.
    void addAnswer(const Bytes& transfer);

    bool isEmpty() const { return exchanges_.empty(); }
    const std::vector<Exchange>& exchanges() const { return exchanges_; }
    const Bytes& transfer(std::uint32_t number) const { return transfers_[number]; }

private:
    std::uint32_t numberOf(const Bytes& transfer);

    std::vector<Exchange> exchanges_;
    std::vector<Bytes> transfers_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
};

}  // namespace standin
