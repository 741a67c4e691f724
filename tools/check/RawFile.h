// SPDX-License-Identifier: LGPL-2.1-or-later
// A file cut into lines as the backend's readers cut it.
#pragma once

#include "Finding.h"

#include <string>
#include <vector>

namespace check {

// What one read of the backend gets: a line, or a part of one that is too long.
struct Piece {
    int line = 0;          // from 1
    bool isRest = false;   // of a line that was too long
    bool hasMore = false;  // the line goes on in the next piece
    bool hasNul = false;
    std::string text;  // as the backend's reader leaves it
};

struct RawFile {
    bool isRead = false;
    std::vector<Piece> pieces;

    // Says what is wrong with the file as such. what: what it is for.
    static RawFile read(const std::string& path, const std::string& what, Findings& findings);
};

// What to do where a path leads through a folder that may not be entered.
std::string closedFolderAdvice(const std::string& path);

}  // namespace check
