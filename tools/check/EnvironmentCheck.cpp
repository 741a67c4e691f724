// SPDX-License-Identifier: LGPL-2.1-or-later
#include "EnvironmentCheck.h"

#include "Text.h"

#include <cstdlib>
#include <iterator>

namespace check {

namespace {

constexpr const char* kTrace = "ENABLE_SL_LOG";
constexpr const char* kDump = "ENABLE_SL_DUMP";
constexpr const char* kInfo = "ENABLE_INFO_LOG";
constexpr const char* kSwitches[] = {kTrace, kDump, kInfo};
constexpr const char* kOthers[] = {"SANE_CONFIG_DIR", "USB_DEVFS_PATH", "LD_LIBRARY_PATH"};

bool isOn(const Environment& environment, const char* name)
{
    const auto found = environment.find(name);
    return found != environment.end() && found->second == "1";
}

void judgeSwitch(const std::string& name, const std::string& value, Voice& voice)
{
    if (value == "1") {
        voice.note(0, "log-on",
                   name +
                       " is set: scan programs started from here write to the system log "
                       "(journalctl -f).");
    } else {
        voice.warning(0, "log-switch-without-effect",
                      name + " is " + quoted(value) + ", but only the value 1 switches it on.",
                      "Set it so: export " + name + "=1, or remove it: unset " + name);
    }
}

}  // namespace

std::vector<std::string> environmentNames()
{
    std::vector<std::string> names(std::begin(kSwitches), std::end(kSwitches));
    names.insert(names.end(), std::begin(kOthers), std::end(kOthers));
    return names;
}

Environment readEnvironment()
{
    Environment found;
    for (const std::string& name : environmentNames()) {
        if (const char* value = getenv(name.c_str())) {
            found[name] = value;
        }
    }
    return found;
}

void silenceOwnLog()
{
    for (const char* name : kSwitches) {
        unsetenv(name);
    }
}

void judgeEnvironment(const Environment& environment, Findings& findings)
{
    Voice voice(findings, "environment");
    for (const char* name : kSwitches) {
        const auto found = environment.find(name);
        if (found != environment.end()) {
            judgeSwitch(name, found->second, voice);
        }
    }
    if (isOn(environment, kDump) && !isOn(environment, kTrace)) {
        voice.warning(0, "dump-without-trace",
                      "ENABLE_SL_DUMP has no effect without ENABLE_SL_LOG.",
                      "Set both: export ENABLE_SL_LOG=1 ENABLE_SL_DUMP=1");
    }
    const auto folder = environment.find("SANE_CONFIG_DIR");
    if (folder != environment.end()) {
        voice.note(0, "config-dir-set",
                   "SANE_CONFIG_DIR is " + quoted(folder->second) +
                       ": SANE looks there for its list of backends (dll.conf), but these "
                       "backends read their configuration in /etc/sane.d all the same.");
    }
    const auto usb = environment.find("USB_DEVFS_PATH");
    if (usb != environment.end()) {
        voice.note(0, "usb-path-set",
                   "USB_DEVFS_PATH is " + quoted(usb->second) +
                       ": USB devices are looked for there, not in /dev/bus/usb.");
    }
}

}  // namespace check
