// SPDX-License-Identifier: LGPL-2.1-or-later
#include "StandInUsb.h"

#include <algorithm>
#include <cstring>

namespace standin {

void Player::write(const unsigned char* bytes, int size)
{
    const auto& exchanges = recording_.exchanges();
    current_ = nullptr;
    answered_ = 0;
    for (std::size_t i = 0; i < exchanges.size() && current_ == nullptr; ++i) {
        const std::size_t at = (next_ + i) % exchanges.size();
        const Bytes& known = exchanges[at].command;
        if (std::equal(known.begin(), known.end(), bytes, bytes + size)) {
            current_ = &exchanges[at];
            next_ = at + 1;
        }
    }
}

int Player::read(unsigned char* bytes, int capacity)
{
    if (current_ == nullptr || answered_ == current_->answers.size()) {
        return 0;
    }
    const Bytes& transfer = recording_.transfer(current_->answers[answered_++]);
    const int size = std::min(capacity, static_cast<int>(transfer.size()));
    memcpy(bytes, transfer.data(), static_cast<std::size_t>(size));
    return size;
}

}  // namespace standin
