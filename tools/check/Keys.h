// SPDX-License-Identifier: LGPL-2.1-or-later
// The keys of feature files that the backend reads: the one table of them.
#pragma once

#include <string>
#include <vector>

namespace check {

enum class Section { None, Integers, Doubles, Strings };

const char* headerOf(Section section);  // "[INTEGERS]"

// What to expect of a model that does not say.
enum class Missing { Fine, Noted, Warned };

// What the backend makes of an integer that is not among the values.
enum class Otherwise { Wrong, OnUnlessZero, OnIfPositive };

struct Key {
    std::string name;
    Section section;
    // Integers: the values there are, or the limits where none are listed.
    std::vector<int> values;
    double least;
    double most;
    std::string meaning;
    Missing missing;
    std::string whenMissing;  // what then happens
    Otherwise otherwise = Otherwise::Wrong;
};

const std::vector<Key>& knownKeys();

// Also RESOLUTIONS_1, RESOLUTIONS_2, ...; null for a key that is never read.
const Key* findKey(const std::string& name);

// The number behind "RESOLUTIONS_", 0 for another key.
int resolutionNumber(const std::string& name);

// True for the values that the backend computes itself.
bool isComputedKey(const std::string& name);

// The known key that is written most alike; empty where none is.
std::string similarKey(const std::string& name);

}  // namespace check
