// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"

namespace scansim {

// The image bytes of one page, made while they are asked for.
class PageStream {
public:
    virtual ~PageStream() = default;

    // Pixels of a line, as the page marker announces them.
    virtual std::uint32_t deviceWidth() const = 0;

    // Whether all bytes have been handed out. May have to make some to know.
    virtual bool isOver() = 0;

    // Appends the next bytes of the page: `size` of them, or less where the page ends.
    virtual void append(Bytes& out, std::size_t size) = 0;
};

}  // namespace scansim
