// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"
#include "FaultScript.h"

namespace scansim {

constexpr std::size_t kReplyCodeOffset = 2;

// Carry out a fault that is a wrong field of a reply, or of a record or block. False for faults
// of any other kind.
bool spoilReply(Bytes& reply, const Fault& fault);
bool spoilRecord(Bytes& record, const Fault& fault);

}  // namespace scansim
