// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <stdexcept>

namespace scansim {

// This machine or user cannot have a sandbox; the message tells what is missing and how to get it.
class SandboxError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace scansim
