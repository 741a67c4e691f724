// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

namespace scansim {

// Where the command finds what belongs to it: in the build tree, or where it is installed.
struct Folders {
    const char* models;
    const char* modules;
    const char* config;
    const char* correctionLibrary;
    const char* correctionTables;
};

extern const Folders kFolders;

}  // namespace scansim
