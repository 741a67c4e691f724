// SPDX-License-Identifier: LGPL-2.1-or-later
// The command line.
#pragma once

#include <string>
#include <vector>

namespace check {

struct Options {
    bool wantsHelp = false;
    bool wantsVersion = false;
    bool wantsJson = false;
    bool wantsSearch = false;
    bool isQuiet = false;
    bool looksAtUsb = true;
    bool looksAtNetwork = true;
    std::vector<std::string> configs;
    std::vector<std::string> features;
    std::string error;  // not empty: the command line is wrong

    static Options parse(const std::vector<std::string>& arguments);
    static const char* help();
};

}  // namespace check
