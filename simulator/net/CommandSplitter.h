// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>

#include "Bytes.h"
#include "Journal.h"

namespace scansim {

// Finds the ends of the commands in the stream of bytes that a host sends.
class CommandSplitter {
public:
    explicit CommandSplitter(Journal& journal) : journal_(journal) {}

    void add(const Bytes& bytes) { pending_.insert(pending_.end(), bytes.begin(), bytes.end()); }

    // The next command that has come as a whole. Complains about anything else.
    std::optional<Bytes> next();

    // The host will send no more.
    void end();

    // Whether the conversation has begun, as it has to, with the tickle.
    bool isTickled() const { return isTickled_; }

private:
    std::optional<std::size_t> sizeOfNext() const;
    std::optional<Bytes> take(std::size_t size);
    bool beginsWithMagic() const;
    void checkTickle();
    void skipFrame();

    Journal& journal_;
    Bytes pending_;
    bool isBegun_ = false;
    bool isTickled_ = false;
};

}  // namespace scansim
