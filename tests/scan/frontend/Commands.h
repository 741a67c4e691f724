// SPDX-License-Identifier: LGPL-2.1-or-later
// What the front end does, each by a command of its own.
#pragma once

#include <string>
#include <vector>

namespace frontend {

using Arguments = std::vector<std::string>;

void loads(const Arguments& arguments);
void rounds(const Arguments& arguments);
void batch(const Arguments& arguments);
void page(const Arguments& arguments);
void orders(const Arguments& arguments);
void soak(const Arguments& arguments);
void conformance(const Arguments& arguments);

// The argument as a number.
long number(const Arguments& arguments, std::size_t index);

}  // namespace frontend
