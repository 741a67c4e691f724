// SPDX-License-Identifier: LGPL-2.1-or-later
// What the backend's own readers make of single lines and values.
#pragma once

#include <string>

namespace check {

// Whether a line of a configuration file names a model, which it does with these fields.
struct ProbedModel {
    bool isTaken = false;
    unsigned vendor = 0;
    unsigned product = 0;
    std::string featureFile;
    std::string name;  // as written, with "_"
};
ProbedModel probeModel(const std::string& line);

// A value of the sections [INTEGERS] and [DOUBLES].
int probeInteger(const std::string& value);
double probeDouble(const std::string& value);

}  // namespace check
