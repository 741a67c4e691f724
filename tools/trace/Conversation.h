// SPDX-License-Identifier: LGPL-2.1-or-later
// What a host and a scanner have said to each other, whatever it was recorded by.
#pragma once

#include "ByteView.h"

#include <string>
#include <vector>

namespace trace {

enum class Party { Host, Scanner };
enum class Transport { Usb, Network };

// A command of the host, or one transfer of the scanner: that of one USB read, or the payload of a
// frame. Without bytes and with a text it is a remark about what happened.
struct Transfer {
    enum class Kind { Data, Remark, Oddity };

    Kind kind = Kind::Data;
    Party from = Party::Host;
    std::uint64_t time = 0;  // microseconds
    Bytes bytes;
    std::size_t known = 0;  // so many of the bytes were recorded, the others are made up
    std::string text;
    // A record of which the host has logged the meaning, not the bytes: length, status and feeder
    // are made up.
    bool isRebuilt = false;

    static Transfer data(Party from, std::uint64_t time, Bytes bytes);
    static Transfer remark(std::uint64_t time, std::string text);
    static Transfer oddity(std::uint64_t time, std::string text);
};

struct Conversation {
    std::string name;
    Transport transport = Transport::Usb;
    bool hasTimes = true;
    std::vector<Transfer> transfers;

    bool hasCommands() const;
    // Behind all others.
    void addOddity(std::string text);
};

// What the bytes that nobody has recorded are taken for: white.
constexpr std::uint8_t kMadeUp = 0xFF;

}  // namespace trace
