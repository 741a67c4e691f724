// SPDX-License-Identifier: LGPL-2.1-or-later
// For front ends that know nothing of it: records the first scan of a simulated scanner, and plays
// it in later processes.
//
//   STANDIN_RECORDING  the file
//   STANDIN_MODEL      model file of the scanner that is recorded
//   STANDIN_SETTINGS   "key=value,..." as on the command line of scanner-sim
#include "LiveScanner.h"

#include <cstdlib>
#include <memory>

#include <unistd.h>

namespace {

const char* setting(const char* name)
{
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

std::unique_ptr<standin::LiveScanner> recorded;

void save()
{
    recorded->recording().save(setting("STANDIN_RECORDING"));
}

standin::UsbScanner* attach()
{
    const char* path = setting("STANDIN_RECORDING");
    if (access(path, R_OK) == 0) {
        static standin::Recording recording;
        recording.load(path);
        static standin::Player player(recording);
        return &player;
    }
    recorded = std::make_unique<standin::LiveScanner>(setting("STANDIN_MODEL"),
                                                      setting("STANDIN_SETTINGS"));
    std::atexit(save);
    return recorded.get();
}

}  // namespace

standin::UsbScanner* standin::attachedScanner()
{
    static UsbScanner* const scanner = attach();
    return scanner;
}
