// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Model.h"

#include <algorithm>

namespace scansim {

const char* commandName(CommandId id)
{
    static const char* const names[kCommandCount] = {
        "cancel", "feeder-status", "properties", "lock", "start", "unlock", "wake"};
    return names[static_cast<std::size_t>(id)];
}

bool Model::has(SourceKind kind) const
{
    return std::find(sources.begin(), sources.end(), kind) != sources.end();
}

const Source& Model::source(SourceKind kind) const
{
    return kind == SourceKind::Flatbed ? flatbed : feeder;
}

BlockFraming blockFraming(std::uint32_t protocol)
{
    switch (protocol) {
    case 401:
        return {10, 2};
    case 402:
        return {31, 23};
    default:
        return {9, 1};
    }
}

}  // namespace scansim
