// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Descriptor.h"

namespace scansim {

constexpr std::uint16_t kScannerPort = 9100;
constexpr std::uint16_t kDiscoveryPort = 5353;

in_addr parseAddress(const std::string& text);

// Throw std::runtime_error when the kernel refuses.
Descriptor listenOn(in_addr address, std::uint16_t port);

// Hears broadcasts only, so that it takes nothing away from other sockets on the same port.
Descriptor hearBroadcasts(std::uint16_t port);

// What poll() found out about the descriptor.
bool isReady(const std::vector<pollfd>& descriptors, int fd);

}  // namespace scansim
