// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>
#include <vector>

#include "Options.h"

namespace scansim {

// The text of a feature file with some keys changed. A key that is there keeps its section; a new
// one goes where its value belongs: whole numbers, numbers with a point, and texts.
std::string changedFeatures(const std::string& text, const std::vector<FeatureChange>& changes);

// The text with the installed places of the correction library and its tables replaced.
std::string withCorrectionFrom(const std::string& text, const std::string& libraryFolder,
                               const std::string& tableFolder);

}  // namespace scansim
