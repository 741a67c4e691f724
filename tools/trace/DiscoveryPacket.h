// SPDX-License-Identifier: LGPL-2.1-or-later
// A question or answer of the search for scanners.
#pragma once

#include "Fields.h"

namespace trace {

struct DiscoveryPacket {
    bool isOurs = false;  // others use the port, too
    std::string title;
    std::vector<std::string> strings;  // of the text records, in their order
    std::vector<std::string> oddities;
};

DiscoveryPacket decodeDiscovery(ByteView packet);

}  // namespace trace
