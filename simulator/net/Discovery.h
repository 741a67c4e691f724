// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <vector>

#include "Bytes.h"
#include "Model.h"

namespace scansim {

enum class Query { None, Good, Wrong };

// Whether a datagram on the discovery port asks for scanners, and in the expected words.
Query recogniseQuery(const Bytes& datagram);

// How a scanner answers; its address and MAC have to be known.
Bytes makeAnswer(const Model& model);

// Somebody else's answer, the `number`th of several.
Bytes makeForeignAnswer(std::uint32_t number);

// Datagrams of all kinds of nonsense.
Bytes makeGarbageAnswer(std::uint32_t number);

}  // namespace scansim
