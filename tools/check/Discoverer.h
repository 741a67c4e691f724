// SPDX-License-Identifier: LGPL-2.1-or-later
// The backend's search of the network, with nothing left out. It broadcasts.
#pragma once

#include "ConfFile.h"
#include "Finding.h"

#include <string>
#include <vector>

namespace check {

struct Answer {
    std::string name;
    std::string maker;
    std::string ip;
    std::string mac;
    unsigned vendor = 0;
    unsigned product = 0;
};

struct Search {
    bool isDone = false;  // false: it could not begin
    std::vector<Answer> answers;

    // Takes ten seconds, as in the backend. The answers of the makers' devices, once each.
    static Search run();
};

void judgeSearch(const Search& search, const std::vector<ConfFile>& files, Findings& findings);

}  // namespace check
