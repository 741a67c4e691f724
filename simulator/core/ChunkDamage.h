// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"
#include "FaultScript.h"

namespace scansim {

// Does to a whole chunk what a fault asks for.
void damageChunk(Bytes& chunk, const Fault& fault);

}  // namespace scansim
