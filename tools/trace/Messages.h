// SPDX-License-Identifier: LGPL-2.1-or-later
// One command, reply or record, taken apart.
#pragma once

#include "CommandKinds.h"
#include "Fields.h"

#include <string>
#include <vector>

namespace trace {

// The rows borrow from the bytes that were decoded.
struct Message {
    std::string title;
    std::vector<Row> rows;
    std::vector<std::string> oddities;
};

Message decodeCommand(ByteView bytes);
// Only the first `known` bytes are real.
Message decodeCommand(ByteView bytes, std::size_t known);
// `asked` is the kind of the command that waits for a reply, or null.
Message decodeReply(ByteView bytes, const CommandKind* asked);
Message decodeRecord(ByteView bytes);
// Of one whose length, status and feeder are made up.
Message decodeRebuiltRecord(ByteView bytes);

// What the host takes for a record, inside an image block of which `pending` bytes are to come.
bool isRecord(ByteView bytes, std::size_t pending);
// Looks like the reply to some command, and nothing but it.
bool isReply(ByteView bytes);
// A record behind which no image follows.
bool endsPage(ByteView record);

// What differs between two commands, field by field: "width: 637 pixels instead of 100 pixels".
std::vector<std::string> differences(ByteView command, ByteView expected);

}  // namespace trace
