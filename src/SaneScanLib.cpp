// The entry points under the library's own name.
#include "SaneEntryPoints.h"

SCANLIB_ENTRY_POINTS(sane_ScanLib_)
