// SPDX-License-Identifier: LGPL-2.1-or-later
// Feature files, line by line.
#pragma once

#include "FeatureFile.h"
#include "Finding.h"

namespace check {

void judgeLines(const FeatureFile& file, Findings& findings);

}  // namespace check
