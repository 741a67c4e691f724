// SPDX-License-Identifier: LGPL-2.1-or-later
#include "TextLine.h"

#include <cstring>

bool TextLine::isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

const char* TextLine::skipWhiteSpace(const char* s)
{
    while (s != nullptr && isSpace(*s)) {
        ++s;
    }
    return s;
}

void TextLine::trim(char* line)
{
    size_t length = strlen(line);
    while (length > 0 && isSpace(line[length - 1])) {
        --length;
    }
    line[length] = '\0';

    const char* start = skipWhiteSpace(line);
    memmove(line, start, strlen(start) + 1);
}
