// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Messages.h"

#include "../../src/CScanRes.h"
#include "../../src/CSources.h"
#include "../../src/ICommand.h"
#include "../../src/ICommunication.h"

#include <algorithm>

namespace trace {

namespace {

constexpr std::uint8_t kWantsReply = 0x80;
constexpr std::size_t kPropertiesHeadSize = 7;
constexpr std::size_t kMarkerSize = 31;
constexpr std::size_t kReplyRoom = 512;  // what the host reads of a reply on USB
constexpr std::size_t kTailOffset = 33;
constexpr std::uint8_t kTail[] = {0, 1, 1, 1, 0x00, 0x80, 0x00, 0x80, 1, 2};
constexpr std::size_t kShownBytes = 32;
constexpr std::size_t kMostRows = 1000;  // many more than any host reads

std::string count(std::size_t there, std::size_t wanted)
{
    return std::to_string(there) + " of " + std::to_string(wanted) + " bytes";
}

void checkParameters(ByteView command, std::vector<std::string>& oddities)
{
    const std::size_t size = command.size() - kHeaderSize;
    if (versionOfParameters(size) == nullptr) {
        oddities.push_back("no protocol version has " + std::to_string(size) +
                           " bytes of parameters");
    }
    const ByteView tail = command.from(kTailOffset);
    if (!ByteView(kTail, sizeof kTail).startsWith(tail.first(sizeof kTail))) {
        oddities.push_back("the constant bytes at the end are " + hex(tail, kShownBytes));
    }
}

void checkHeader(const CommandKind& kind, ByteView command, std::vector<std::string>& oddities)
{
    const std::uint8_t reply = kind.isAnswered ? kWantsReply : std::uint8_t{0};
    if (command[3] != 0 || command[6] != reply || command[7] != 0) {
        oddities.push_back("unusual header " + hex(command.first(kHeaderSize), kHeaderSize));
    }
    const std::size_t announced = kHeaderSize + command.little(4, 2);
    if (command.size() < announced) {
        oddities.push_back("command too short: " + count(command.size(), announced));
    } else if (command.size() > announced) {
        oddities.push_back("command too long: " + std::to_string(command.size()) +
                           " bytes instead of " + std::to_string(announced));
    } else if (kind.hasParameters) {
        checkParameters(command, oddities);
    } else if (announced != kHeaderSize) {
        oddities.push_back("parameters where there are none");
    }
}

void addNpaRows(ByteView frame, std::vector<Row>& rows)
{
    if (frame.has(1, 2)) {
        rows.push_back(
            {"NPA length", std::to_string(frame.big(1, 2)) + " bytes", frame.part(1, 2)});
    }
    if (frame.has(11, 1)) {
        rows.push_back({"NPA padding", std::to_string(frame[11]) + " bytes", frame.part(11, 1)});
    }
}

// What of piece lies in front; both are of the same bytes, of which front has the first.
ByteView common(ByteView piece, ByteView front)
{
    if (piece.empty()) {
        return piece;
    }
    return piece.first(
        static_cast<std::size_t>(std::max<std::ptrdiff_t>(front.end() - piece.begin(), 0)));
}

// Status and feeder, as far as they came.
std::string replyWords(ByteView bytes)
{
    const std::string status = bytes.has(6, 1) ? ": " + statusWords(bytes[6]) : "";
    return bytes.has(7, 1) ? status + ", " + feederWords(bytes[7]) : status;
}

// The records of the sources, and of the resolutions in each; the counts are not trusted.
void addSources(ByteView data, std::size_t sources, Message& message)
{
    constexpr auto kSourceSize = static_cast<std::size_t>(CSources::kHeaderSize);
    constexpr auto kResolutionSize = static_cast<std::size_t>(CScanRes::kSize);
    ByteView rest = data;
    for (std::size_t i = 1; i <= sources; ++i) {
        if (rest.size() < kSourceSize) {
            message.oddities.push_back("the properties end before source " + std::to_string(i));
            return;
        }
        message.rows.push_back({"source " + std::to_string(i), "", {}});
        addRows(kSourceFields, rest, message.rows);
        const std::size_t resolutions = rest[CSources::kResolutionCountOffset];
        rest = rest.from(kSourceSize);
        for (std::size_t j = 0; j < resolutions && !rest.empty(); ++j) {
            if (message.rows.size() >= kMostRows) {
                message.oddities.push_back("so many sources and resolutions that the others, " +
                                           std::to_string(rest.size()) + " bytes, are left out");
                return;
            }
            addRows(kResolutionFields, rest.first(kResolutionSize), message.rows);
            rest = rest.from(kResolutionSize);
        }
    }
    if (!rest.empty()) {
        message.oddities.push_back(std::to_string(rest.size()) + " bytes behind the properties");
    }
}

void addProperties(ByteView data, Message& message)
{
    addRows(kPropertyFields, data, message.rows);
    if (data.size() < kPropertiesHeadSize) {
        message.oddities.push_back("properties too short: " +
                                   count(data.size(), kPropertiesHeadSize));
        return;
    }
    addSources(data.from(kPropertiesHeadSize), data[kPropertiesHeadSize - 1], message);
}

void checkLength(ByteView bytes, const char* what, Message& message)
{
    const std::size_t announced = kHeaderSize + bytes.little(4, 2);
    if (bytes.size() < announced) {
        message.oddities.push_back(std::string(what) +
                                   " too short: " + count(bytes.size(), announced));
    } else if (bytes.size() > announced) {
        message.oddities.push_back(std::to_string(bytes.size() - announced) +
                                   " bytes more than the length says");
    }
}

void addRecord(ByteView bytes, Message& message)
{
    const std::uint8_t code = bytes[kRecordOffset];
    message.title = "record: " + recordWords(code);
    if (code == RECORD_PAGE_MARKER) {
        addRows(kMarkerFields, bytes, message.rows);
        if (bytes.size() < kMarkerSize) {
            message.oddities.push_back("page marker too short: " +
                                       count(bytes.size(), kMarkerSize));
        }
    }
}

}  // namespace

Message decodeCommand(ByteView bytes)
{
    return decodeCommand(bytes, bytes.size());
}

Message decodeCommand(ByteView bytes, std::size_t known)
{
    Unframed unframed = unframe(bytes);
    const ByteView recorded = bytes.first(known);
    unframed.command = common(unframed.command, recorded);
    unframed.frame = common(unframed.frame, recorded);
    const CommandKind* kind = kindOf(unframed.command);
    Message message;
    message.title = kind != nullptr ? kind->name : "unknown command";
    if (!unframed.frame.empty()) {
        message.title += " (in an NPA frame)";
    }
    addNpaRows(unframed.frame, message.rows);
    if (!unframed.oddity.empty()) {
        message.oddities.push_back(unframed.oddity);
    }
    if (kind == nullptr) {
        message.oddities.push_back("unknown command: " + hex(bytes, kShownBytes));
        return message;
    }
    if (kind->hasParameters) {
        addRows(kParameterFields, unframed.command, message.rows);
    }
    checkHeader(*kind, unframed.command, message.oddities);
    return message;
}

Message decodeReply(ByteView bytes, const CommandKind* asked)
{
    const CommandKind* kind = kindOf(bytes);
    Message message;
    message.title = (kind != nullptr ? kind->name : "unknown reply") + replyWords(bytes);
    addRows(kReplyFields, bytes, message.rows);
    if (bytes.size() < kHeaderSize) {
        message.oddities.push_back("reply too short: " + count(bytes.size(), kHeaderSize));
        return message;
    }
    checkLength(bytes, "reply", message);
    if (bytes.size() > kReplyRoom) {
        message.oddities.push_back("a host on USB reads only " + std::to_string(kReplyRoom));
    }
    if (kind != nullptr && kind->id == COMMAND_PROPERTIES) {
        addProperties(bytes.part(kHeaderSize, bytes.little(4, 2)), message);
    } else {
        addRows(kStartReplyFields, bytes, message.rows);
    }
    if (asked == nullptr) {
        message.oddities.push_back("a reply that nobody asked for");
    } else if (kind != asked) {
        message.oddities.push_back(std::string("not the reply to ") + asked->name);
    }
    return message;
}

Message decodeRecord(ByteView bytes)
{
    Message message;
    addRows(kReplyFields, bytes, message.rows);
    addRecord(bytes, message);
    checkLength(bytes, "record", message);
    return message;
}

Message decodeRebuiltRecord(ByteView bytes)
{
    Message message;
    addRecord(bytes, message);
    return message;
}

bool isRecord(ByteView bytes, std::size_t pending)
{
    const std::uint8_t start[] = {kEscape, kScanClass, kImageCode};
    return bytes.size() > kRecordOffset && bytes.startsWith(ByteView(start, sizeof start)) &&
           bytes[kRecordOffset] != 0 &&
           (pending == 0 || bytes.little(4, 2) + kHeaderSize == bytes.size());
}

bool isReply(ByteView bytes)
{
    return kindOf(bytes) != nullptr && bytes.size() == kHeaderSize + bytes.little(4, 2);
}

bool endsPage(ByteView record)
{
    return record[kRecordOffset] != RECORD_PAGE_MARKER;
}

std::vector<std::string> differences(ByteView command, ByteView expected)
{
    const Message mine = decodeCommand(command);
    const Message theirs = decodeCommand(expected);
    if (mine.title != theirs.title) {
        return {mine.title + " instead of " + theirs.title};
    }
    std::vector<std::string> result;
    for (std::size_t i = 0; i < std::min(mine.rows.size(), theirs.rows.size()); ++i) {
        if (mine.rows[i].value != theirs.rows[i].value) {
            result.push_back(mine.rows[i].name + ": " + mine.rows[i].value + " instead of " +
                             theirs.rows[i].value);
        }
    }
    if (result.empty() && !(command == expected)) {
        result.push_back(hex(command, kShownBytes) + " instead of " + hex(expected, kShownBytes));
    }
    return result;
}

}  // namespace trace
