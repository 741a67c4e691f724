// SPDX-License-Identifier: LGPL-2.1-or-later
// What this process holds of the machine.
#pragma once

#include <cstddef>
#include <string>

namespace frontend {

struct Resources {
    long descriptors = 0;
    long mappings = 0;
    long residentKb = 0;
    long heap = 0;  // bytes that malloc has given out

    static Resources now();
    std::string text() const;
};

// What there may be more at the end. A heap in use does not grow at all; the resident memory
// moves by a few pages with the time at which the kernel maps them.
constexpr long kHeapSlack = 1024;
constexpr long kResidentSlackKb = 512;

// Prints both; throws Failed where late is more than early. Under the address sanitizer, whose own
// memory grows, only descriptors and heap count.
void requireFlat(const Resources& early, const Resources& late, long heapSlack = kHeapSlack);

// The highest resident memory so far.
long peakResidentKb();

}  // namespace frontend
