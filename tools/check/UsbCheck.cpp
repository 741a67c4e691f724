// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbCheck.h"

#include "InstallCheck.h"
#include "Text.h"
#include "TextLine.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace check {

namespace {

constexpr const char* kOtherProgram = "usbfs";

bool isMakers(const UsbDevice& device, const std::vector<ConfFile>& files)
{
    const std::string name = lowered(device.name());
    bool isKnown = name.find("quillon") != std::string::npos ||
                   name.find("oxle") != std::string::npos || device.vendor == SCANLIB_QUILLON_VID ||
                   device.vendor == SCANLIB_OXLE_VID;
    for (const ConfFile& file : files) {
        isKnown = isKnown || std::any_of(file.models.begin(), file.models.end(),
                                         [&device](const ConfModel& model) {
                                             return model.vendor == device.vendor;
                                         });
    }
    return isKnown;
}

std::string modeText(unsigned mode)
{
    char text[8];
    snprintf(text, sizeof text, "%04o", mode);
    return text;
}

std::string nameOf(const UsbDevice& device, const ConfModel* model)
{
    return device.name().empty() && model != nullptr ? model->name : device.name();
}

std::string describe(const UsbDevice& device, const ConfModel* model = nullptr)
{
    const std::string name = nameOf(device, model);
    return device.ids() + (name.empty() ? "" : " " + quoted(name));
}

// What udev's hardware database calls it: "usb:v1234p0A1B*".
std::string hwdbKey(const UsbDevice& device)
{
    char text[32];
    snprintf(text, sizeof text, "usb:v%04Xp%04X*", device.vendor, device.product);
    return text;
}

std::string permissionAdvice(const UsbDevice& device)
{
    if (geteuid() == 0) {
        return "Not even root may write to it: look for a container or a sandbox around this "
               "program, or for a read-only file system.";
    }
    const bool wouldGroupHelp =
        (device.mode & 0060) == 0060 && !device.isInGroup && device.group != "root";
    if (wouldGroupHelp) {
        return "Join the group: sudo adduser " + userName(geteuid()) + " " +
               printable(device.group) + ", then log out and in again.";
    }
    return "Give the group scanner access: " + std::string(SCANLIB_HWDB_FILE) +
           ", which comes with the backends, does so for the scanners that it lists. For another "
           "one write  " +
           hwdbKey(device) +
           "  and below it  libsane_matched=yes  with a blank in front into "
           "/etc/udev/hwdb.d/61-scanner.hwdb, and run sudo systemd-hwdb update. Join the group "
           "(sudo adduser " +
           userName(geteuid()) + " scanner), log in again and plug the scanner in again.";
}

void judgePermission(const UsbDevice& device, const std::string& what, Voice& voice)
{
    if (!device.isWritable) {
        voice.error(0, "usb-no-permission",
                    what + ": you may not write to its device file " + printable(device.path) +
                        " (owner " + printable(device.owner) + ", group " +
                        printable(device.group) + ", mode " + modeText(device.mode) +
                        "), so nothing can be scanned with it.",
                    permissionAdvice(device));
    }
}

void judgeHolders(const UsbDevice& device, const std::string& what, Voice& voice)
{
    std::string who;
    for (const Holder& holder : device.holders) {
        who += (who.empty() ? "" : ", ") + holder.shown();
    }
    if (device.driver == kOtherProgram || !device.holders.empty()) {
        voice.warning(0, "usb-in-use",
                      what + " is in use by " + (who.empty() ? "another program" : who) +
                          "; two programs cannot scan at the same time.",
                      who.empty() ? "Find out who has it: sudo scanlib-check --no-network"
                                  : "End the other program, or wait until it has finished.");
    } else if (!device.driver.empty()) {
        voice.note(0, "usb-kernel-driver",
                   what + " is held by the kernel driver " + quoted(device.driver) +
                       ", which the backend takes it from.");
    }
}

void judgeConfigured(const UsbDevice& device, const ConfModel& model, Voice& voice)
{
    const std::string what = describe(device, &model);
    if (!device.isUsable) {
        voice.error(0, "usb-no-interface",
                    what +
                        " has a line in the configuration, but none of its interfaces is one of a "
                        "scanner, so it is not listed.",
                    "Compare the IDs in the configuration with lsusb: this may be another device.");
        return;
    }
    judgePermission(device, what, voice);
    judgeHolders(device, what, voice);
}

void judgeUnnamed(const UsbDevice& device, const std::vector<ConfFile>& files, Voice& voice)
{
    if (!isMakers(device, files)) {
        voice.note(0, "usb-other-device",
                   describe(device) +
                       " is not in the configuration; nothing to do unless it is your scanner.");
        return;
    }
    const Suggestion add = suggestLine(files, device.vendor, device.product,
                                       device.name().empty() ? "" : device.productName);
    voice.warning(
        0, "usb-not-configured",
        describe(device) + " is there, but no line names it; this line would: " + add.line,
        "Put this line into " + add.file + ": " + add.line +
            "  (with the feature file that fits your scanner best).");
}

void judgeUnreadable(const UsbDevice& device, Voice& voice)
{
    voice.warning(0, "usb-unreadable",
                  "the device file " + printable(device.path) + " (" + device.ids() +
                      ") may not be read by you (owner " + printable(device.owner) + ", group " +
                      printable(device.group) + ", mode " + modeText(device.mode) +
                      "), so the backend does not even see it.",
                  device.hasIds ? permissionAdvice(device)
                                : "Find out which device it is: sudo scanlib-check --no-network");
}

std::string modelWord(const std::string& name)
{
    std::string word = printable(name);
    std::replace_if(word.begin(), word.end(), TextLine::isSpace, '_');
    return word.empty() || word[0] == '#' ? "My_Scanner" : word;
}

}  // namespace

const ConfModel* findModel(const std::vector<ConfFile>& files, unsigned vendor, unsigned product,
                           std::string* file)
{
    for (const ConfFile& candidate : files) {
        if (const ConfModel* model = candidate.find(vendor, product)) {
            if (file != nullptr) {
                *file = candidate.path;
            }
            return model;
        }
    }
    return nullptr;
}

Suggestion suggestLine(const std::vector<ConfFile>& files, unsigned vendor, unsigned product,
                       const std::string& name)
{
    const bool isOxle = vendor == SCANLIB_OXLE_VID || lowered(name).find("oxle") == 0;
    Suggestion suggestion;
    suggestion.file = configurationOf(backendNames()[isOxle ? 1 : 0]);
    std::string featureFile = std::string(SCANLIB_MODEL_DIR) + "/combo-401.ini";
    for (const ConfFile& file : files) {
        if (file.path == suggestion.file && !file.models.empty()) {
            featureFile = file.models.front().featureFile;
        }
    }
    suggestion.line = "usb 0x" + hexId(vendor) + " 0x" + hexId(product) + " " +
                      printable(featureFile) + " " + modelWord(name);
    return suggestion;
}

std::string nameOf(const UsbDevice& device, const std::vector<ConfFile>& files)
{
    return nameOf(device, findModel(files, device.vendor, device.product));
}

bool isReady(const UsbDevice& device, const std::vector<ConfFile>& files)
{
    const ConfModel* model =
        device.hasIds ? findModel(files, device.vendor, device.product) : nullptr;
    return model != nullptr && device.isUsable && device.isWritable &&
           access(model->featureFile.c_str(), R_OK) == 0;
}

void judgeUsb(const std::vector<UsbDevice>& devices, const std::vector<ConfFile>& files,
              Findings& findings)
{
    bool isAnyNamed = false;
    for (const UsbDevice& device : devices) {
        Voice voice(findings, device.place());
        const ConfModel* model =
            device.hasIds ? findModel(files, device.vendor, device.product) : nullptr;
        isAnyNamed = isAnyNamed || model != nullptr;
        if (device.isHub) {
            continue;
        }
        if (access(device.path.c_str(), R_OK) != 0 && !device.isUsable) {
            judgeUnreadable(device, voice);
        } else if (model != nullptr) {
            judgeConfigured(device, *model, voice);
        } else if (device.isUsable) {
            judgeUnnamed(device, files, voice);
        }
    }
    if (!isAnyNamed) {
        Voice(findings, "usb")
            .note(0, "usb-none", "no scanner that the configuration names is on USB.");
    }
}

}  // namespace check
