// SPDX-License-Identifier: LGPL-2.1-or-later
// Takes out of a conversation what others need not see.
#pragma once

#include "Conversation.h"

namespace trace {

// Blanks the image: its bytes become white, block headers and records stay. Numbers take the place
// of IP addresses, process IDs and the texts that scanners send of themselves.
void redact(std::vector<Conversation>& conversations);

}  // namespace trace
