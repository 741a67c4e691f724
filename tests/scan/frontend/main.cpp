// SPDX-License-Identifier: LGPL-2.1-or-later
// A front end that tests the backend: front_end COMMAND ARGUMENTS, run by scanner-sim. It ends
// with 1 where something is not as it should be, and says what.
#include "Commands.h"
#include "Sane.h"

#include <cstdio>
#include <exception>
#include <map>

namespace {

const std::map<std::string, void (*)(const frontend::Arguments&)> kCommands = {
    {"loads", frontend::loads},
    {"rounds", frontend::rounds},
    {"batch", frontend::batch},
    {"page", frontend::page},
    {"orders", frontend::orders},
    {"soak", frontend::soak},
    {"conformance", frontend::conformance},
};

}  // namespace

long frontend::number(const Arguments& arguments, std::size_t index)
{
    require(index < arguments.size(), "an argument is missing");
    return std::stol(arguments[index]);
}

int main(int argc, char** argv)
{
    // Its buffer is not to count as memory that grows.
    static char buffer[BUFSIZ];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
    const frontend::Arguments arguments(argv + 1, argv + argc);
    const auto command = kCommands.find(arguments.empty() ? "" : arguments[0]);
    if (command == kCommands.end()) {
        std::fprintf(stderr, "usage: front_end COMMAND ARGUMENTS\n");
        return 2;
    }
    try {
        command->second({arguments.begin() + 1, arguments.end()});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "front_end %s: %s\n", argv[1], failure.what());
        return 1;
    }
    return 0;
}
