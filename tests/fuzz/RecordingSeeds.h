// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <string>

// Recordings of all kinds, by their names.
std::map<std::string, std::string> recordingSeeds();
