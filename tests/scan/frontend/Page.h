// SPDX-License-Identifier: LGPL-2.1-or-later
// Pages as they are delivered, and as the simulation has recorded them.
#pragma once

#include "Sane.h"

#include <cstdint>
#include <string>

namespace frontend {

// What tells two pages apart, and is small however large they are.
struct Digest {
    std::uint64_t hash = 0xCBF29CE484222325;
    std::uint64_t bytes = 0;

    void add(const unsigned char* data, std::size_t size);
    bool operator==(const Digest& other) const
    {
        return hash == other.hash && bytes == other.bytes;
    }
};

// Reads to the end of the frame; the status there. A length beyond the room, or with the
// end, is a failure.
SANE_Status readPage(const Scanner& scanner, Digest* page, std::size_t blockSize = 32768);

// The page that the simulation has recorded last for that device; empty when there is none. Takes
// all its recorded pages away. Of a compressed page it is what the scalar decoder makes of it.
Digest takeRecorded(int device);

// One page of a scanner that has been set up: what the parameters say, before and after the start,
// is what comes.
Digest readWholePage(const Scanner& scanner, std::size_t blockSize = 32768);

// The same, and it is as it was recorded.
Digest scanWholePage(const Scanner& scanner, int device, std::size_t blockSize = 32768);

}  // namespace frontend
