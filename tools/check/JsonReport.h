// SPDX-License-Identifier: LGPL-2.1-or-later
// The result for programs; scanlib-check(1) describes it.
#pragma once

#include "Session.h"

#include <string>

namespace check {

std::string jsonReport(const Session& session, bool isQuiet);

}  // namespace check
