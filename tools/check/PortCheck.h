// SPDX-License-Identifier: LGPL-2.1-or-later
// Whether this computer can look for scanners on the network. Nothing is sent.
#pragma once

#include "Finding.h"
#include "Holders.h"

#include <string>
#include <vector>

namespace check {

struct PortState {
    bool canBind = false;
    std::string whyNot;
    std::vector<Holder> holders;
    bool hasRoute = false;
    bool hasAddress = false;  // other than that of the computer itself

    static PortState ofThisComputer();
};

// isWanted: the user has asked for the network, so that what prevents it is an error.
void judgePort(const PortState& state, bool isWanted, Findings& findings);

}  // namespace check
