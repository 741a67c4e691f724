// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace scansim::test {

constexpr int kCannotSimulate = 77;

struct Outcome {
    int status = -1;
    std::string output;
};

inline Outcome shell(const std::string& command)
{
    Outcome outcome;
    std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        outcome.output.append(buffer, count);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

// Only lines about the calls themselves.
inline std::string withoutNotices(const std::string& text)
{
    std::istringstream in(text);
    std::string out;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("scanner-sim: no folder", 0) != 0 &&
            line.find(" MB/s") == std::string::npos) {
            out += line + "\n";
        }
    }
    return out;
}

}  // namespace scansim::test
