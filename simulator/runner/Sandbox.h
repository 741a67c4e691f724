// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>
#include <vector>

#include "SandboxError.h"

namespace scansim {

// A private view of the file system for this process and its children: an empty /etc/sane.d with
// a simulated usbfs below it. It goes away with the last process in it.
class Sandbox {
public:
    // Throws SandboxError.
    Sandbox();

    // Hides /tmp behind an empty one, in which only those of its folders are seen that hold one
    // of these paths.
    void makePrivateTmp(const std::vector<std::string>& visible);

    // Mounts the simulated usbfs; gives the FUSE connection, which is the caller's to serve and
    // close.
    int mountUsbFs();

    static std::string saneFolder() { return "/etc/sane.d"; }
    static std::string privateFolder() { return saneFolder() + "/simulated"; }
    static std::string usbFolder() { return privateFolder() + "/usb"; }
};

}  // namespace scansim
