// SPDX-License-Identifier: LGPL-2.1-or-later
// A recording of whatever kind.
#pragma once

#include "Conversation.h"

namespace trace {

// Tells the kind by the first bytes of the file. Throws std::runtime_error.
std::vector<Conversation> readInput(const std::string& path);

}  // namespace trace
