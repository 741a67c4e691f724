// SPDX-License-Identifier: LGPL-2.1-or-later
// The conversations in the backend's log, one of each thread that has used a scanner.
//
// The log has all bytes of commands, and of replies; the records of a page without a few fields;
// and of the image no more than the sizes of the transfers and, on USB, their first 20 bytes. What
// it lacks is made up.
#pragma once

#include "Conversation.h"

#include <iosfwd>

namespace trace {

std::vector<Conversation> readLog(std::istream& in);

}  // namespace trace
