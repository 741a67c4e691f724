// SPDX-License-Identifier: LGPL-2.1-or-later
// Makes up what a recording lacks of the transfers whose sizes it has.
#pragma once

#include "Conversation.h"

#include <stdexcept>

namespace trace {

class Filling {
public:
    // Throws std::runtime_error where a small file would fill the memory.
    void fill(Bytes& bytes, std::size_t size)
    {
        if (size <= bytes.size()) {
            return;
        }
        total_ += size - bytes.size();
        if (total_ > kMost) {
            throw std::runtime_error("more than " + std::to_string(kMost >> 20) +
                                     " MiB of it were not recorded");
        }
        bytes.resize(size, kMadeUp);
    }

private:
    // As much as a capture may have.
    static constexpr std::size_t kMost = std::size_t{1} << 30;
    std::size_t total_ = 0;
};

}  // namespace trace
