// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PaperTray.h"

namespace scansim {

namespace {

constexpr double kMillimetresPerDot = 25.4 / 300;

bool isPicture(const std::string& name)
{
    return name != "chart" && name != "noise";
}

}  // namespace

PaperTray::PaperTray(SourceKind kind, const Source& source)
    : kind_(kind),
      size_{source.width * kMillimetresPerDot, source.height * kMillimetresPerDot},
      names_(source.papers)
{
    for (const std::string& name : names_) {
        if (isPicture(name) && pictures_.count(name) == 0) {
            pictures_[name] = makePaper(name, {}, 0, size_);
        }
    }
}

std::shared_ptr<const Paper> PaperTray::sheet(std::uint32_t number) const
{
    const std::string& name = names_[(number - 1) % names_.size()];
    if (isPicture(name)) {
        return pictures_.at(name);
    }
    const bool isGlass = kind_ == SourceKind::Flatbed;
    return makePaper(name, isGlass ? "FLATBED" : "SHEET " + std::to_string(number),
                     isGlass ? 0 : number, size_);
}

}  // namespace scansim
