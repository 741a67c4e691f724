// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>

namespace scansim {

// What connects a scanner to the world, and can be cut.
class Carrier {
public:
    virtual ~Carrier() = default;

    virtual bool isPlugged() const = 0;
    virtual void plug() = 0;
    virtual void unplug() = 0;

    // Where the scanner is to be found, as "kind=place".
    virtual std::string place() const = 0;
};

}  // namespace scansim
