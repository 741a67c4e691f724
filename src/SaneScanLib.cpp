// SPDX-License-Identifier: LGPL-2.1-or-later
// The entry points under the library's own name.
#include "SaneEntryPoints.h"

SCANLIB_ENTRY_POINTS(sane_ScanLib_)
