// SPDX-License-Identifier: LGPL-2.1-or-later
// Lines of the configuration files, read the same way by both readers.
#pragma once

namespace TextLine {

// White space as in the C locale, whatever locale the front end has chosen.
bool isSpace(char c);

// The first character of s that is not white space; null for null.
const char* skipWhiteSpace(const char* s);

// Removes trailing, then leading white space in place.
void trim(char* line);

}  // namespace TextLine
