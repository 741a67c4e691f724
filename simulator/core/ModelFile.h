// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>
#include <vector>

#include "Model.h"

namespace scansim {

// One "key = value" of a model file or of the command line.
struct ModelSetting {
    std::string key;
    std::string value;
    std::string where;       // for messages: "file:line" or the option
    std::string baseFolder;  // file names in the value are relative to it
};

// Reader of model files. The keys are explained in simulator/README.md.
class ModelFile {
public:
    // Reads `path`, then applies `overrides` in their order. Throws InputError.
    static Model load(const std::string& path, const std::vector<ModelSetting>& overrides = {});

    // Cuts "key=value"; throws InputError naming `where` if there is no "=".
    static ModelSetting parseSetting(const std::string& text, const std::string& where,
                                     const std::string& baseFolder);

    static std::vector<std::string> knownKeys();
};

}  // namespace scansim
