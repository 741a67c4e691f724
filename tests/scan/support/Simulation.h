// SPDX-License-Identifier: LGPL-2.1-or-later
// The control socket of the simulation that the program runs in.
#pragma once

#include <string>

namespace scantest {

// The answer to a line.
std::string askSimulation(const std::string& line);

// Throws Failed unless the answer is "ok".
void tellSimulation(const std::string& line);

}  // namespace scantest
