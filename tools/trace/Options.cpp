// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Options.h"

#include <cstdlib>

namespace trace {

const char* const kHelp = R"(Usage: scanlib-trace [OPTIONS] FILE

Prints what a host and a scanner have said to each other. FILE is

  the system log of the backend, written with ENABLE_SL_LOG=1 and ENABLE_SL_DUMP=1
  a pcap or pcapng recording of the network (TCP port 9100, UDP port 5353)
  a pcap or pcapng recording of USB by usbmon
  what --save has written

  --bytes      show the bytes beside their meaning
  --only N     print or save only the Nth conversation
  --save FILE  write the conversation to FILE, for scanner-sim to play it
  --redact     blank images, addresses and names in what is printed or saved
  --help       this text

The exit status is 0; 1 if something odd was pointed out; 2 if FILE cannot be read or the command
line is wrong.
)";

Options parseOptions(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&] {
            if (++i >= arguments.size()) {
                throw UsageError(argument + " needs a value");
            }
            return arguments[i];
        };
        if (argument == "--help") {
            options.wantsHelp = true;
        } else if (argument == "--bytes") {
            options.showsBytes = true;
        } else if (argument == "--redact") {
            options.isRedacted = true;
        } else if (argument == "--save") {
            options.saveFile = value();
        } else if (argument == "--only") {
            options.only = std::strtoul(value().c_str(), nullptr, 10);
            if (options.only == 0) {
                throw UsageError("--only needs the number of a conversation");
            }
        } else if (argument.rfind('-', 0) == 0) {
            throw UsageError("unknown option " + argument);
        } else if (!options.input.empty()) {
            throw UsageError("one file at a time");
        } else {
            options.input = argument;
        }
    }
    if (options.input.empty() && !options.wantsHelp) {
        throw UsageError("which file?");
    }
    return options;
}

}  // namespace trace
