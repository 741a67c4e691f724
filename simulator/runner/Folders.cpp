// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Folders.h"

namespace scansim {

const Folders kFolders = {SCANSIM_MODELS_DIR, SCANSIM_MODULES_DIR, SCANSIM_CONFIG_DIR,
                          SCANSIM_CORRECTION_LIBRARY_DIR, SCANSIM_CORRECTION_TABLE_DIR};

}  // namespace scansim
