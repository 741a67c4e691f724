// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Paper.h"

namespace scansim {

// The built-in test chart: rulers along all four edges, a title, lines of print, ramps, colour
// patches, line gratings, checks, and a diagonal across the page.
class ChartPaper : public Paper {
public:
    ChartPaper(std::string title, std::uint32_t number, PaperSize size);
    std::unique_ptr<PaperReader> open(const Window& window) const override;

private:
    std::string title_;
    std::uint32_t number_;
    PaperSize size_;
};

}  // namespace scansim
