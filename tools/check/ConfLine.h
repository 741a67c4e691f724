// SPDX-License-Identifier: LGPL-2.1-or-later
// One line of a configuration file that is no comment.
#pragma once

#include "Finding.h"
#include "Probe.h"

#include <string>

namespace check {

// What the line names, and what is wrong with it. The backend skips what is not taken in silence.
ProbedModel judgeConfLine(const std::string& text, int line, Voice& voice);

}  // namespace check
