// SPDX-License-Identifier: LGPL-2.1-or-later
// The conversations in a recording of a network: those on TCP port 9100, and searches.
#pragma once

#include "Conversation.h"
#include "PacketFile.h"

namespace trace {

std::vector<Conversation> readNetwork(PacketFile& file);

}  // namespace trace
