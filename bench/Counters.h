// SPDX-License-Identifier: LGPL-2.1-or-later
// Counts what a backend module asks of the C library. A program that links this stands before the
// C library for everything that it loads.
#pragma once

namespace bench {

struct Counts {
    long bytesCopied = 0;  // by memcpy and memmove, called by the watched module
    long allocations = 0;  // by anybody
    long getpids = 0;
    long getenvs = 0;
};

// Counts from now on. memberOfModule is an address inside the watched module.
void startCounting(const void* memberOfModule);
Counts stopCounting();

}  // namespace bench
