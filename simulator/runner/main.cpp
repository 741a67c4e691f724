// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "ControlChannel.h"
#include "Options.h"
#include "Sandbox.h"
#include "Simulation.h"
#include "Text.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kCannotSimulate = 77;

int listModels(const scansim::Options& options)
{
    for (const std::string& name : scansim::Simulation::modelNames(options.modelsFolder)) {
        std::printf("%s\n", name.c_str());
    }
    return 0;
}

int sendControl(const std::string& line)
{
    const char* path = std::getenv("SCANNER_SIM_CONTROL");
    if (path == nullptr) {
        throw scansim::InputError(
            "--control works only inside a simulation (SCANNER_SIM_CONTROL is not set)");
    }
    const std::string answer = scansim::ControlChannel::ask(path, line);
    std::fputs(answer.c_str(), stdout);
    return answer.rfind("error", 0) == 0 ? 1 : 0;
}

int run(const std::vector<std::string>& arguments)
{
    const scansim::Options options = scansim::Options::parse(arguments);
    if (options.wantsHelp) {
        std::fputs(scansim::Options::help().c_str(), stdout);
        return 0;
    }
    if (options.wantsModelList) {
        return listModels(options);
    }
    if (!options.controlLine.empty()) {
        return sendControl(options.controlLine);
    }
    if (options.devices.empty() || options.command.empty()) {
        throw scansim::InputError(
            "needs at least one --usb MODEL or --net MODEL, and a command; see --help");
    }
    return scansim::Simulation(options).run();
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const scansim::InputError& error) {
        std::fprintf(stderr, "scanner-sim: %s\n", error.what());
        return kUsageError;
    } catch (const scansim::SandboxError& error) {
        std::fprintf(stderr, "scanner-sim: cannot simulate devices here: %s\n", error.what());
        return kCannotSimulate;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scanner-sim: %s\n", error.what());
        return 1;
    }
}
