// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"
#include "FaultScript.h"

namespace scansim {

// A frame as it is sent in spite of, or because of, a fault.
struct SpoiltFrame {
    Bytes bytes;
    bool isLast = false;  // what the fault does to the connection follows
};

bool endsConnection(FaultAction action);

// Carries out a fault of the network on a frame.
SpoiltFrame spoil(Bytes frame, const Fault& fault);

}  // namespace scansim
