// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NpaWrapper.h"

#include <algorithm>

namespace scansim {

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kTrailerSize = 8;
constexpr std::uint8_t kTag[4] = {0xAA, 0xBB, 0xCC, 0xDD};

void checkHeader(const Bytes& frame, Journal& journal)
{
    const std::size_t announced = static_cast<std::size_t>(frame[1] << 8 | frame[2]);
    if (announced != frame.size() - 3) {
        journal.complain("NPA length " + std::to_string(announced) + " in a frame of " +
                         std::to_string(frame.size()) + " bytes");
    }
    const std::uint8_t constants[] = {0x10, 0x01, 0x83, 0xAA, 0xBB, 0xCC, 0xDD, 0x02};
    if (!std::equal(std::begin(constants), std::end(constants), frame.begin() + 3)) {
        journal.complain("NPA header is " + hex(frame.data(), kHeaderSize));
    }
}

void checkPadding(const Bytes& frame, Journal& journal)
{
    const std::size_t padding = frame[11];
    const auto first = frame.begin() + kHeaderSize;
    const bool isZero = std::all_of(first, first + static_cast<long>(padding),
                                    [](std::uint8_t b) { return b == 0; });
    if (frame.size() % 4 != 0 || padding > 3 || !isZero) {
        journal.complain("NPA padding is wrong: " + hex(frame.data(), frame.size()));
    }
}

void checkTrailer(const Bytes& frame, Journal& journal)
{
    const auto trailer = frame.end() - kTrailerSize;
    if (!std::equal(std::begin(kTag), std::end(kTag), trailer) ||
        !std::equal(std::begin(kTag), std::end(kTag), trailer + 4)) {
        journal.complain("NPA trailer is " + hex(&*trailer, kTrailerSize));
    }
}

}  // namespace

std::optional<Bytes> unwrapNpa(const Bytes& frame, Journal& journal)
{
    if (frame.size() < kHeaderSize + kTrailerSize || frame[0] != 0xA5 ||
        frame.size() < kHeaderSize + kTrailerSize + frame[11]) {
        journal.complain("not an NPA frame: " + hex(frame.data(), frame.size()));
        return std::nullopt;
    }
    checkHeader(frame, journal);
    checkPadding(frame, journal);
    checkTrailer(frame, journal);
    return Bytes(frame.begin() + kHeaderSize + frame[11], frame.end() - kTrailerSize);
}

}  // namespace scansim
