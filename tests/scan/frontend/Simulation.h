// The control socket of the simulation that this front end runs in.
#pragma once

#include <string>

namespace frontend {

// The answer to a line.
std::string askSimulation(const std::string& line);

// Throws Failed unless the answer is "ok".
void tellSimulation(const std::string& line);

}  // namespace frontend
