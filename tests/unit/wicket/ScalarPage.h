// SPDX-License-Identifier: LGPL-2.1-or-later
// A second opinion on the lines of a compressed page.
#pragma once

#include <vector>

namespace samples {

// The lines that the chunks of a stream hold for a scan of that geometry, without gaps, by the
// scalar decoder alone. Chunks count as long as one can be found behind the other.
std::vector<unsigned char> scalarPage(const std::vector<unsigned char>& stream, int width,
                                      int channels);

}  // namespace samples
