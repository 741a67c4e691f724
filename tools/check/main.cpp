// SPDX-License-Identifier: LGPL-2.1-or-later
// scanlib-check: what keeps scanners from being found and used.
#include "JsonReport.h"
#include "Options.h"
#include "Session.h"
#include "TextReport.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

constexpr int kUsage = 64;
constexpr int kFailed = 70;

bool hasColours()
{
    return isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
}

int run(const check::Options& options)
{
    const check::Session session = check::Session::run(options);
    const std::string report = options.wantsJson
                                   ? check::jsonReport(session, options.isQuiet)
                                   : check::textReport(session, options.isQuiet, hasColours());
    const bool isWritten = fputs(report.c_str(), stdout) >= 0 && fflush(stdout) == 0;
    return isWritten ? session.status() : kFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const auto options = check::Options::parse(std::vector<std::string>(argv + 1, argv + argc));
        if (!options.error.empty()) {
            fprintf(stderr, "scanlib-check: %s; see --help\n", options.error.c_str());
            return kUsage;
        }
        if (options.wantsHelp || options.wantsVersion) {
            fputs(
                options.wantsHelp ? check::Options::help() : "scanlib-check " SCANLIB_VERSION "\n",
                stdout);
            return 0;
        }
        return run(options);
    } catch (const std::exception& error) {
        fprintf(stderr, "scanlib-check: %s\n", error.what());
        return kFailed;
    }
}
