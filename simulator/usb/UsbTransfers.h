// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>

#include "Bytes.h"

namespace scansim {

// One bulk transfer that a program has handed in. `tag` is the program's own name for it.
struct Urb {
    std::uint64_t tag = 0;
    std::uint64_t buffer = 0;
    std::int32_t pid = 0;
    std::uint8_t endpoint = 0;
    std::size_t length = 0;
    Bytes data;      // OUT: what is sent; IN, when completed: what came
    int status = 0;  // when completed: 0 or a negative errno
    std::size_t actual = 0;
    std::uint64_t number = 0;  // given by the monitor
};

struct ControlRequest {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t length = 0;
    std::uint16_t index = 0;
};

}  // namespace scansim
