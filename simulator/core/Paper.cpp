// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Paper.h"

#include "ChartPaper.h"
#include "ImagePaper.h"
#include "NoisePaper.h"

namespace scansim {

std::unique_ptr<Paper> makePaper(const std::string& name, const std::string& title,
                                 std::uint32_t number, PaperSize size)
{
    if (name == "chart") {
        return std::make_unique<ChartPaper>(title, number, size);
    }
    if (name == "noise") {
        return std::make_unique<NoisePaper>(number);
    }
    return std::make_unique<ImagePaper>(loadImage(name), size);
}

}  // namespace scansim
