// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CommandSplitter.h"

#include <algorithm>

namespace scansim {

namespace {

constexpr std::size_t kTickleSize = 9;
constexpr std::uint8_t kTickle[kTickleSize] = {'H', 'B', 'N', '3', 0, 0, 0, 0, 2};
constexpr std::size_t kMagicSize = 4;
constexpr std::uint8_t kEscape = 0x1B;
constexpr std::uint8_t kNpaStart = 0xA5;

}  // namespace

std::optional<Bytes> CommandSplitter::take(std::size_t size)
{
    const auto end = pending_.begin() + static_cast<long>(size);
    Bytes bytes(pending_.begin(), end);
    pending_.erase(pending_.begin(), end);
    return bytes;
}

bool CommandSplitter::beginsWithMagic() const
{
    return std::equal(kTickle, kTickle + kMagicSize, pending_.begin());
}

void CommandSplitter::checkTickle()
{
    isBegun_ = true;
    isTickled_ = std::equal(std::begin(kTickle), std::end(kTickle), pending_.begin());
    if (!isTickled_) {
        journal_.complain("the conversation does not begin with the tickle but with " +
                          hex(pending_.data(), pending_.size()));
    }
    if (beginsWithMagic()) {
        take(kTickleSize);
    }
}

// Goes on behind the header, as if it were not there.
void CommandSplitter::skipFrame()
{
    journal_.complain("only the tickle has a frame header, not " +
                      hex(pending_.data(), pending_.size()));
    take(kTickleSize);
}

// How many bytes the next command has; nothing if that is not known yet.
std::optional<std::size_t> CommandSplitter::sizeOfNext() const
{
    if (pending_[0] == kEscape) {
        return pending_.size() < 8 ? std::nullopt
                                   : std::make_optional<std::size_t>(8 + pending_[4]);
    }
    if (pending_[0] == kNpaStart) {
        return pending_.size() < 3
                   ? std::nullopt
                   : std::make_optional<std::size_t>(3 + (pending_[1] << 8 | pending_[2]));
    }
    return pending_.size();
}

std::optional<Bytes> CommandSplitter::next()
{
    if (!isBegun_) {
        if (pending_.size() < kTickleSize) {
            return std::nullopt;
        }
        checkTickle();
    }
    while (pending_.size() >= kTickleSize && beginsWithMagic()) {
        skipFrame();
    }
    if (pending_.empty() || (pending_[0] == kTickle[0] && pending_.size() < kTickleSize)) {
        return std::nullopt;
    }
    const std::optional<std::size_t> size = sizeOfNext();
    return size && *size <= pending_.size() ? take(*size) : std::nullopt;
}

void CommandSplitter::end()
{
    if (!pending_.empty()) {
        journal_.complain("the host went in the middle of a command: " +
                          hex(pending_.data(), pending_.size()));
        pending_.clear();
    }
}

}  // namespace scansim
