// SPDX-License-Identifier: LGPL-2.1-or-later
// The scans that are measured.
#pragma once

#include "Scene.h"

namespace bench {

// Papers are PNM files. Bare bytes, in blocks that are as small as a transfer.
Scene rawScene(const std::string& paper, int dpi);
// The same over the network, in frames of 8192 bytes, two to a block.
Scene networkScene(const std::string& paper);
// Chunks of quality 90, in blocks of the usual size.
Scene compressedScene(const std::string& paper);
// Two half-lines to a line, in blocks of the usual size.
Scene interleavedScene();

}  // namespace bench
