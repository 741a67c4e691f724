// SPDX-License-Identifier: LGPL-2.1-or-later
// The entry points for the backend name Oxle09.
#include "SaneEntryPoints.h"

SCANLIB_ENTRY_POINTS(sane_Oxle09_)
