// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Options.h"

#include "Text.h"

#include <map>

namespace check {

namespace {

struct Flag {
    bool Options::*field;
    bool value;
};

const std::map<std::string, Flag>& flags()
{
    static const std::map<std::string, Flag> known = {
        {"--help", {&Options::wantsHelp, true}},
        {"-h", {&Options::wantsHelp, true}},
        {"--version", {&Options::wantsVersion, true}},
        {"--json", {&Options::wantsJson, true}},
        {"--discover", {&Options::wantsSearch, true}},
        {"--quiet", {&Options::isQuiet, true}},
        {"--no-usb", {&Options::looksAtUsb, false}},
        {"--no-network", {&Options::looksAtNetwork, false}},
    };
    return known;
}

std::vector<std::string>* listFor(Options& options, const std::string& name)
{
    if (name == "--config") {
        return &options.configs;
    }
    return name == "--features" ? &options.features : nullptr;
}

}  // namespace

Options Options::parse(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t i = 0; i < arguments.size() && options.error.empty(); ++i) {
        const std::string& argument = arguments[i];
        const std::size_t equals = argument.find('=');
        const bool hasValue = equals != std::string::npos;
        std::vector<std::string>* list = listFor(options, argument.substr(0, equals));
        const auto flag = flags().find(argument);
        if (flag != flags().end()) {
            options.*(flag->second.field) = flag->second.value;
        } else if (list != nullptr && (hasValue || i + 1 < arguments.size())) {
            list->push_back(hasValue ? argument.substr(equals + 1) : arguments[++i]);
        } else {
            options.error = list != nullptr ? argument + " needs the name of a file"
                                            : "unknown argument " + quoted(argument);
        }
    }
    if (options.error.empty() && options.wantsSearch && !options.looksAtNetwork) {
        options.error = "--discover and --no-network exclude each other";
    }
    return options;
}

const char* Options::help()
{
    return R"(Usage: scanlib-check [OPTION]...
Tells in plain words what keeps the Quillon and Oxle scanners from being found and used:
mistakes in the configuration and feature files, USB devices, the network.

  --config FILE     judge this configuration file in place of the installed ones
  --features FILE   judge this feature file in place of those that the configuration names
                    (both may be given several times; with --features alone no
                    configuration file is judged)
  --no-usb          do not look at USB devices
  --no-network      do not look at the network
  --discover        search the network for scanners; this sends a broadcast, and takes ten seconds
  --json            print one JSON object, as described in scanlib-check(1)
  --quiet           print errors and warnings only
  --help, --version

Exit status: 0 nothing is wrong, 1 warnings only, 2 errors, 64 wrong command line,
70 the check itself failed.
)";
}

}  // namespace check
