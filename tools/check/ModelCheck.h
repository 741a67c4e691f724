// SPDX-License-Identifier: LGPL-2.1-or-later
// Feature files as a whole: what a model needs, and values that do not fit together.
#pragma once

#include "FeatureFile.h"
#include "Finding.h"

namespace check {

// isInUse: a scanner that is there needs the file, or the user has named it.
void judgeModel(const FeatureFile& file, bool isInUse, Findings& findings);

// The parts of it.
void judgeResolutions(const FeatureFile& file, Voice& voice);
void judgeAreas(const FeatureFile& file, Voice& voice);
void judgeCorrection(const FeatureFile& file, bool isInUse, Voice& voice);

}  // namespace check
