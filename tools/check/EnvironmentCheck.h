// SPDX-License-Identifier: LGPL-2.1-or-later
// The variables that the backend and SANE look at.
#pragma once

#include "Finding.h"

#include <map>
#include <string>
#include <vector>

namespace check {

// Those that are set.
using Environment = std::map<std::string, std::string>;

// All of them.
std::vector<std::string> environmentNames();

Environment readEnvironment();

// Takes the log switches out of this program's own environment: the log is the front ends'.
void silenceOwnLog();

void judgeEnvironment(const Environment& environment, Findings& findings);

}  // namespace check
