// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace trace {

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string input;
    std::string saveFile;
    std::size_t only = 0;  // the number of a conversation, from 1; 0: all of them
    bool showsBytes = false;
    bool isRedacted = false;
    bool wantsHelp = false;
};

// Throws UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

extern const char* const kHelp;

}  // namespace trace
