// SPDX-License-Identifier: LGPL-2.1-or-later
// What the probes have in common: steps from the command line, NAME or NAME=ARGUMENT.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace probe {

template <typename Step>
int run(int argc, char** argv, Step step)
{
    for (int i = 1; i < argc; ++i) {
        const std::string text = argv[i];
        const std::size_t equals = text.find('=');
        step(text.substr(0, equals),
             equals == std::string::npos ? std::string() : text.substr(equals + 1));
    }
    return 0;
}

inline void unknown(const std::string& step)
{
    std::printf("unknown step %s\n", step.c_str());
    std::exit(2);
}

// Hands a line to the simulation while the probe keeps its device open. 0: done.
inline int control(const std::string& line)
{
    const char* command = std::getenv("SCANNER_SIM");
    const std::string text =
        std::string(command != nullptr ? command : "scanner-sim") + " --control '" + line + "'";
    std::fflush(stdout);
    return std::system(text.c_str());
}

}  // namespace probe
