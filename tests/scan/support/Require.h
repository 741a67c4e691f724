// SPDX-License-Identifier: LGPL-2.1-or-later
// What the programs of the scan tests expect, and what they say when it is not so.
#pragma once

#include <stdexcept>
#include <string>

namespace scantest {

struct Failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws Failed unless it holds.
inline void require(bool holds, const std::string& what)
{
    if (!holds) {
        throw Failed(what);
    }
}

}  // namespace scantest
