// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Script.h"

#include "Samples.h"

#include "ICommand.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr unsigned kSizeMask = 0xFFF;
constexpr std::size_t kNpaHeader = 12;
constexpr std::size_t kNpaPadding = 11;  // the byte that counts the padding
constexpr int kFeederLoaded = 2;

Bytes goodProperties()
{
    return properties(2,
                      {source(1, 0, {{10, 10}, {75, 75}, {150, 150}}), source(2, 1, {{75, 75}})});
}

}  // namespace

Bytes fuzz::Script::goodReply(int command)
{
    return command == COMMAND_PROPERTIES ? goodProperties() : replyTo(command, 0x80, kFeederLoaded);
}

int fuzz::Script::commandOf(const Bytes& bytes)
{
    std::size_t at = 0;
    if (bytes.size() > kNpaHeader && bytes[0] == 0xA5) {
        at = kNpaHeader + bytes[kNpaPadding];
    }
    if (bytes.size() < at + 3 || bytes[at] != 0x1B) {
        return -1;
    }
    if (bytes[at + 1] == 'D') {
        return COMMAND_WAKE;
    }
    for (std::size_t id = 0; id < std::size(kCommandCode); ++id) {
        if (id != COMMAND_WAKE && kCommandCode[id] == bytes[at + 2]) {
            return static_cast<int>(id);
        }
    }
    return -1;
}

fuzz::Event fuzz::Script::disturb(Event::Kind kind, unsigned size)
{
    isDisturbed_ = true;
    return {kind, {}, size};
}

Bytes fuzz::Script::marker()
{
    unsigned fields[4];
    for (unsigned& field : fields) {
        field = input_.byte();
    }
    const unsigned trim = input_.byte();
    // Offsets are small numbers of either sign.
    const auto offsetX = static_cast<unsigned>(static_cast<signed char>(fields[2]));
    const auto offsetY = static_cast<unsigned>(static_cast<signed char>(fields[3]));
    return pageMarker(fields[0], fields[1], offsetX, offsetY, trim & 0x7F, trim >> 7);
}

fuzz::Event fuzz::Script::next(int command)
{
    if (isOver()) {
        return {Event::over, {}, 0};
    }
    const unsigned item = input_.word();
    const unsigned size = item & kSizeMask;
    const auto message = [](Bytes bytes) { return Event{Event::message, std::move(bytes), 0}; };
    switch (item >> 12) {
    case 5:
        return message(imageBlock(ramp(static_cast<int>(size)), version_));
    case 6:
        return message(imageBlock(input_.take(size), version_));
    case 7:
        return message(marker());
    case 8:
        command = std::max<int>(command, COMMAND_CANCEL);
        return message(size == 0 ? goodReply(command)
                                 : replyTo(command, static_cast<int>(size & 0xFF),
                                           static_cast<int>(size >> 8)));
    case 9:
        return message(record(static_cast<int>(size & 0xFF)));
    case 10:
        return disturb(Event::silence, size);
    case 11:
        return disturb(Event::failure, size);
    case 12:
        return disturb(Event::cancel, size);
    case 13:
        return disturb(Event::end, size);
    case 14:
        return message({});
    case 15:
        return message(goodProperties());
    case 4:
        return message(input_.take(size));
    default:
        return {Event::raw, input_.take(size), 0};
    }
}
