// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

namespace scansim {

// The memory of the program that talks to the device; false when it cannot be reached.
bool readMemory(pid_t pid, std::uint64_t address, void* to, std::size_t size);
bool writeMemory(pid_t pid, std::uint64_t address, const void* from, std::size_t size);

// Several pieces at once, all or nothing.
bool writeMemory(pid_t pid, const iovec* local, const iovec* remote, std::size_t count);

}  // namespace scansim
