// SPDX-License-Identifier: LGPL-2.1-or-later
// Many times the same: the library loaded and unloaded; a device opened, scanned from and closed.
#include "Commands.h"
#include "Page.h"
#include "Progress.h"
#include "Resources.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>

namespace frontend {

namespace {

constexpr long kWarmUp = 10;
constexpr double kExtent = 26.0;  // millimetres; an inch is the least

bool isBackendLoaded()
{
    std::ifstream maps("/proc/self/maps");
    const std::string all((std::istreambuf_iterator<char>(maps)), {});
    return all.find("/libsane-Quillon") != std::string::npos ||
           all.find("/libsane-Oxle") != std::string::npos;
}

void loadOnce(std::size_t devices)
{
    {
        Session session;
        require(session.list().size() == devices, "devices in the list");
        require(isBackendLoaded(), "the backend is not loaded");
    }
    require(!isBackendLoaded(), "the backend is still loaded after sane_exit");
}

Digest scanOnce(const std::string& name)
{
    const Scanner scanner(name);
    scanner.set("resolution", 75);
    scanner.setArea(0, 0, kExtent, kExtent);
    const Digest page = scanWholePage(scanner, numberOf(name));
    scanner.cancel();
    return page;
}

}  // namespace

// ROUNDS DEVICES: so many sessions with a list of so many devices.
void loads(const Arguments& arguments)
{
    const long count = number(arguments, 0);
    Progress progress("sessions", count);
    Resources early;
    for (long i = 1; i <= count; ++i) {
        loadOnce(static_cast<std::size_t>(number(arguments, 1)));
        progress.reached(i);
        if (i == kWarmUp) {
            early = Resources::now();
        }
    }
    const Resources late = Resources::now();
    std::printf("%ld sessions in %.1f s\n", count, progress.seconds());
    requireFlat(early, late);
}

// ROUNDS: a page from each device in each round.
void rounds(const Arguments& arguments)
{
    const long count = number(arguments, 0);
    Session session;
    const std::vector<std::string> names = session.list();
    require(!names.empty(), "no devices");
    std::map<std::string, double> seconds;
    Progress progress("rounds", count);
    Resources early;
    for (long i = 1; i <= count; ++i) {
        for (const std::string& name : names) {
            const Progress round("", 0);
            scanOnce(name);
            seconds[name] += round.seconds();
        }
        progress.reached(i);
        if (i == kWarmUp) {
            early = Resources::now();
        }
    }
    const Resources late = Resources::now();
    for (const auto& [name, sum] : seconds) {
        std::printf("%s: %ld rounds in %.1f s, %.0f a second\n", name.c_str(), count, sum,
                    static_cast<double>(count) / sum);
    }
    requireFlat(early, late);
}

}  // namespace frontend
