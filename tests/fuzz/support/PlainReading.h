// SPDX-License-Identifier: LGPL-2.1-or-later
// A page as a plain reading of the script has it: without transfers, buffers and stages.
#pragma once

#include "ScanEngine.h"

#include <cstddef>
#include <optional>

namespace fuzz {

struct Expected {
    Bytes bytes;
    std::size_t certain;  // how many of them are whole lines; of the rest only the number is
};

// The first page of a scan of that geometry. Nothing for a script that does not just send a page:
// markers, then blocks of at most longestBlock bytes, header included, and the end of the page.
std::optional<Expected> plainReading(const Settings& settings, const Input& script,
                                     std::size_t longestBlock, int pixels, int lines);

// Insists that the page is the one that is expected, if any.
void checkPage(const Page& page, const std::optional<Expected>& expected);

}  // namespace fuzz
