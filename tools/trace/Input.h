// SPDX-License-Identifier: LGPL-2.1-or-later
// A recording of whatever kind.
#pragma once

#include "Conversation.h"
#include "PacketFile.h"

namespace trace {

enum class InputKind { Packets, Capture, Log };

// What a file is that starts so.
InputKind kindOfInput(ByteView start);
// Of a network or of USB, whatever the packets are. Throws std::runtime_error.
std::vector<Conversation> readPackets(PacketFile& file);

// Tells the kind by the first bytes of the file. Throws std::runtime_error.
std::vector<Conversation> readInput(const std::string& path);

}  // namespace trace
