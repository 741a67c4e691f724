// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <map>
#include <string>

#include "ModelFile.h"

namespace scansim {

using ModelSetter = std::function<void(Model&, const ModelSetting&)>;

// Adds the keys of model files that are about scanners on the network.
void addNetworkKeys(std::map<std::string, ModelSetter>& keys);

}  // namespace scansim
