// SPDX-License-Identifier: LGPL-2.1-or-later
// Whether the USB devices that are there can be used.
#pragma once

#include "ConfFile.h"
#include "Finding.h"
#include "UsbList.h"

#include <string>
#include <vector>

namespace check {

// The first line for the IDs, or null.
const ConfModel* findModel(const std::vector<ConfFile>& files, unsigned vendor, unsigned product,
                           std::string* file = nullptr);

// A line that would name such a scanner, and the file where it belongs.
struct Suggestion {
    std::string line;
    std::string file;
};
Suggestion suggestLine(const std::vector<ConfFile>& files, unsigned vendor, unsigned product,
                       const std::string& name);

// What the device says, or the configuration where it says nothing.
std::string nameOf(const UsbDevice& device, const std::vector<ConfFile>& files);

// Nothing stands in the way of a scan.
bool isReady(const UsbDevice& device, const std::vector<ConfFile>& files);

void judgeUsb(const std::vector<UsbDevice>& devices, const std::vector<ConfFile>& files,
              Findings& findings);

}  // namespace check
