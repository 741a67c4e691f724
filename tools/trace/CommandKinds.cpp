// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CommandKinds.h"

#include "../../src/ICommand.h"

#include <algorithm>
#include <iterator>

namespace trace {

namespace {

constexpr CommandKind kKinds[] = {
    {COMMAND_CANCEL, "cancel", kScanClass, 0x0F, false, false},
    {COMMAND_FEEDER_STATUS, "feeder status", kScanClass, 0x04, true, false},
    {COMMAND_PROPERTIES, "device properties", kScanClass, 0x03, true, false},
    {COMMAND_LOCK, "lock", kScanClass, 0x05, true, true},
    {COMMAND_START, "start scan", kScanClass, 0x01, true, true},
    {COMMAND_UNLOCK, "unlock", kScanClass, 0x06, true, false},
    {COMMAND_WAKE, "wake", 0x44, 0x04, true, false},
};

constexpr Version kVersions[] = {{326, 24, 9, 1}, {401, 26, 10, 2}, {402, 35, 31, 23}};

constexpr std::size_t kNpaHeaderSize = 12;
constexpr std::size_t kNpaTrailerSize = 8;
constexpr std::size_t kNpaUncounted = 3;  // what stands up to the end of the length field
constexpr std::uint8_t kNpaConstants[] = {0x10, 0x01, 0x83, 0xAA, 0xBB, 0xCC, 0xDD, 0x02};
constexpr std::uint8_t kNpaTrailer[] = {0xAA, 0xBB, 0xCC, 0xDD, 0xAA, 0xBB, 0xCC, 0xDD};

std::string npaOddity(ByteView frame)
{
    if (frame.big(1, 2) + kNpaUncounted != frame.size()) {
        return "NPA frame of " + std::to_string(frame.size()) + " bytes says it has " +
               std::to_string(frame.big(1, 2) + kNpaUncounted);
    }
    if (!(frame.part(3, sizeof kNpaConstants) == ByteView(kNpaConstants, sizeof kNpaConstants))) {
        return "wrong NPA header";
    }
    if (!(frame.from(frame.size() - kNpaTrailerSize) ==
          ByteView(kNpaTrailer, sizeof kNpaTrailer))) {
        return "wrong NPA trailer";
    }
    return frame.size() % 4 != 0 ? "NPA frame is not padded to four bytes" : "";
}

}  // namespace

const CommandKind* kindOf(ByteView bytes)
{
    const auto* const found =
        std::find_if(std::begin(kKinds), std::end(kKinds), [bytes](const CommandKind& kind) {
            return bytes.size() > 2 && bytes[0] == kEscape && bytes[1] == kind.commandClass &&
                   bytes[2] == kind.code;
        });
    return found != std::end(kKinds) ? found : nullptr;
}

const Version* versionOfParameters(std::size_t parameterSize)
{
    const auto* const found = std::find_if(
        std::begin(kVersions), std::end(kVersions),
        [parameterSize](const Version& version) { return version.parameterSize == parameterSize; });
    return found != std::end(kVersions) ? found : nullptr;
}

const Version& versionOfNumber(int number)
{
    const auto* const found =
        std::find_if(std::begin(kVersions), std::end(kVersions),
                     [number](const Version& version) { return version.number == number; });
    return found != std::end(kVersions) ? *found : kVersions[0];
}

Unframed unframe(ByteView bytes)
{
    if (bytes[0] != kNpaMark) {
        return {bytes, {}, {}};
    }
    const std::size_t front = kNpaHeaderSize + bytes[11];
    if (!bytes.has(front, kNpaTrailerSize)) {
        return {{}, bytes, "NPA frame too short"};
    }
    const std::size_t size = bytes.size() - front - kNpaTrailerSize;
    return {bytes.part(front, size), bytes, npaOddity(bytes)};
}

std::optional<std::size_t> sizeOfCommand(ByteView bytes)
{
    if (bytes.empty()) {
        return std::nullopt;
    }
    if (bytes[0] == kNpaMark) {
        return bytes.has(1, 2) ? std::optional(kNpaUncounted + bytes.big(1, 2)) : std::nullopt;
    }
    if (bytes[0] != kEscape || (bytes.size() > 1 && bytes[1] != kScanClass && bytes[1] != 0x44)) {
        return 0;
    }
    return bytes.has(4, 2) ? std::optional(kHeaderSize + bytes.little(4, 2)) : std::nullopt;
}

}  // namespace trace
