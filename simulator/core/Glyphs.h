// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

namespace scansim {

constexpr int kGlyphColumns = 6;  // five of ink, one of space
constexpr int kGlyphRows = 7;

// Whether the character (capital letters, digits, blank) has ink there.
bool hasInk(char character, int column, int row);

}  // namespace scansim
