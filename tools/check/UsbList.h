// SPDX-License-Identifier: LGPL-2.1-or-later
// The USB devices of this computer, as the backend sees them.
#pragma once

#include "Holders.h"

#include <string>
#include <vector>

namespace check {

struct UsbDevice {
    std::string bus;
    std::string file;
    std::string path;  // of the device file
    unsigned vendor = 0;
    unsigned product = 0;
    bool hasIds = true;  // false: not even these can be read
    bool isHub = false;
    // In the backend's words; false: no interface is one that the backend would use.
    bool isUsable = false;
    std::string vendorName;
    std::string productName;

    bool isWritable = false;
    std::string owner;
    std::string group;
    unsigned mode = 0;
    bool isInGroup = false;  // this user
    std::string driver;      // of the kernel, "usbfs" for another program
    std::vector<Holder> holders;

    std::string place() const;  // "usb 001:002"
    std::string ids() const;    // "1234:3260"
    std::string name() const;
};

std::vector<UsbDevice> listUsbDevices();

}  // namespace check
