// SPDX-License-Identifier: LGPL-2.1-or-later
// The commands: how they are told apart, and how they are framed.
#pragma once

#include "ByteView.h"

#include <optional>

namespace trace {

struct CommandKind {
    int id;  // a CommandId
    const char* name;
    std::uint8_t commandClass;
    std::uint8_t code;
    bool isAnswered;
    bool hasParameters;
};

constexpr std::uint8_t kEscape = 0x1B;
constexpr std::uint8_t kScanClass = 0x53;
constexpr std::uint8_t kImageCode = 0x02;
constexpr std::size_t kHeaderSize = 8;    // of commands and replies
constexpr std::size_t kRecordOffset = 8;  // where the code of a record stands
constexpr std::uint8_t kNpaMark = 0xA5;

// The kind of a command, or of the reply to one; null if there is none such.
const CommandKind* kindOf(ByteView bytes);

// Protocol versions differ in the parameters of lock and start.
struct Version {
    int number;
    std::size_t parameterSize;
    std::size_t blockHeaderSize;
    std::size_t blockLengthSurplus;
};
const Version* versionOfParameters(std::size_t parameterSize);
const Version& versionOfNumber(int number);

// A command in an NPA frame. Without one it is the bytes themselves.
struct Unframed {
    ByteView command;
    ByteView frame;  // empty if there was none
    std::string oddity;
};
Unframed unframe(ByteView bytes);

// How long the command at the front of what a host sends is; nothing while that cannot be seen.
// 0: no command starts there.
std::optional<std::size_t> sizeOfCommand(ByteView bytes);

}  // namespace trace
