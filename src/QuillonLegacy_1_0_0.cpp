// SPDX-License-Identifier: LGPL-2.1-or-later
// The entry points for the backend name QuillonLegacy_1_0_0.
#include "SaneEntryPoints.h"

SCANLIB_ENTRY_POINTS(sane_QuillonLegacy_1_0_0_)
