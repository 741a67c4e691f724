// SPDX-License-Identifier: LGPL-2.1-or-later
// A backend configuration file: the models that it names, and what is wrong with it.
#pragma once

#include "Finding.h"

#include <string>
#include <vector>

namespace check {

struct ConfModel {
    int line = 0;
    unsigned vendor = 0;
    unsigned product = 0;
    std::string featureFile;
    std::string name;    // blanks in place of "_"
    bool counts = true;  // false: an earlier line has the same IDs
};

struct ConfFile {
    std::string path;
    bool isRead = false;
    std::vector<ConfModel> models;
    std::vector<int> skipped;  // lines; a line that is too long may be there several times

    // The model that the backend finds, or null.
    const ConfModel* find(unsigned vendor, unsigned product) const;

    static ConfFile read(const std::string& path, Findings& findings);
};

// The models that are named in more than one file.
void judgeTogether(const std::vector<ConfFile>& files, Findings& findings);

}  // namespace check
