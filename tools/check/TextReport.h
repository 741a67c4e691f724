// SPDX-License-Identifier: LGPL-2.1-or-later
// The result for people.
#pragma once

#include "Session.h"

#include <string>

namespace check {

std::string textReport(const Session& session, bool isQuiet, bool hasColours);

}  // namespace check
