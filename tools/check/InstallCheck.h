// SPDX-License-Identifier: LGPL-2.1-or-later
// Whether SANE loads the backends.
#pragma once

#include "Finding.h"

#include <string>
#include <vector>

namespace check {

const std::vector<std::string>& backendNames();

// The configuration file of a backend, a fixed one.
std::string configurationOf(const std::string& backend);

// The folders that SANE searches for its list of backends and for the backends.
struct SaneFolders {
    std::vector<std::string> lists;
    std::vector<std::string> modules;

    static SaneFolders ofThisComputer();
    // The folders of SANE_CONFIG_DIR or what stands for it; null: not set.
    static std::vector<std::string> listFolders(const char* variable);
};

// Says what is missing, in the words of the user's next step.
void judgeInstallation(const SaneFolders& folders, Findings& findings);

}  // namespace check
