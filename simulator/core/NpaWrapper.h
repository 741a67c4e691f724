// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>

#include "Bytes.h"
#include "Journal.h"

namespace scansim {

// The command inside an NPA frame. Every field that is wrong is complained about; without a
// recognisable frame there is nothing.
std::optional<Bytes> unwrapNpa(const Bytes& frame, Journal& journal);

}  // namespace scansim
