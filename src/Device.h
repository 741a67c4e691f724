// SPDX-License-Identifier: LGPL-2.1-or-later
// Lists the scanners of every transport and creates the transport for one of them.
#pragma once

#include "ICommunication.h"

// Device names, at most 254 characters:
//
//   <vendor>/<product>/libusb:<bus>:<device file>                    USB
//   <maker>/<model>/libnet:<MAC>:<IP>:<vendor ID>:<product ID>       network, full
//   <maker>/<model>/libnet:<MAC>                                     network, short
//
// A name that contains "libusb" is a USB name, any other a network name. The list holds
// short network names; the full ones stay in a table of the process.
class Device {
public:
    virtual ~Device();

    static constexpr int kNetwork = 1;
    static constexpr int kUsb = 2;
    static constexpr int kBoth = 3;

    // which: one of these. conf is the SaneConfReader. 0, or 1 when there is
    // no scanner (*list is not written then). *list: malloc'd array of malloc'd names, both
    // freed by the caller.
    static int getScanners(char*** list, int* count, void* conf, int which);
    static int getScanners(char*** list, int* count, void* conf);

    // 1 for a USB name, else 0.
    static int isUSB(const char* name);

    // A transport bound to the device of that name, or null. The caller owns it.
    static ICommunication* CreateInstance(const char* name, void* conf);
};
