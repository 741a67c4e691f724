// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Model.h"
#include "Paper.h"

namespace scansim {

// What lies on the glass or in the feeder: the papers named for a source, again and again.
class PaperTray {
public:
    // Picture files are read at once. Throws InputError.
    PaperTray(SourceKind kind, const Source& source);

    // Numbered from 1; on the glass there is always number 1.
    std::shared_ptr<const Paper> sheet(std::uint32_t number) const;

private:
    SourceKind kind_;
    PaperSize size_;
    std::vector<std::string> names_;
    std::map<std::string, std::shared_ptr<const Paper>> pictures_;
};

}  // namespace scansim
