// SPDX-License-Identifier: LGPL-2.1-or-later
// Values of feature files that the backend reads as numbers.
#pragma once

#include "FeatureFile.h"
#include "Finding.h"

#include <string>

namespace check {

// What the conversion drops or spoils. True for a number that is worth a look at its range.
bool judgeNumber(Section section, const std::string& key, const Value& value, Voice& voice);

// Whether the key has any use for the number.
void judgeRange(const Key& key, const std::string& name, const Value& value, Voice& voice);

// A number without needless zeros.
std::string shown(double number);

}  // namespace check
