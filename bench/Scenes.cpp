// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Scenes.h"

namespace bench {

Scene rawScene(const std::string& paper, int dpi)
{
    return {"QuillonLegacy_1_0_0",
            "flatbed-326",
            "block-size=4087,flatbed.resolutions=75 150 300 600 1200,flatbed.paper=" + paper,
            {dpi}};
}

Scene networkScene(const std::string& paper)
{
    return {"QuillonLegacy_1_0_0",
            "flatbed-326",
            "block-size=16375,flatbed.paper=" + paper,
            {},
            kNetDevice,
            kModules};
}

Scene compressedScene(const std::string& paper)
{
    return {"Oxle09", "wicket-402", "quality=90,flatbed.paper=" + paper, {}};
}

Scene interleavedScene()
{
    return {"QuillonLegacy_1_0_0", "combo-401", "stream=interleaved", {}};
}

}  // namespace bench
