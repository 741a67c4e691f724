// SPDX-License-Identifier: LGPL-2.1-or-later
// The option store filled from a model feature file.
#pragma once

#include "ConfigReader.h"

#include <cstdio>

// A feature file is plain text with the sections [INTEGERS], [DOUBLES] and
// [STRINGS]; an entry is KEY=VALUE on a line of its own, a line that starts with
// "#" is a comment. Blanks around "=" belong to the key and the value.
class FlatFileReader : public ConfigReader {
public:
    ~FlatFileReader() override;
    int LoadConfig(const char* path) override;

    // Reads, logs and trims one line; null at the end of the file.
    char* ConfigParser(char* buf, int size, FILE* stream);
    const char* SkipWhiteSpace(const char* s);

private:
    enum class Section { None, Integers, Doubles, Strings };

    static bool parseHeader(const char* line, Section* section);
    void parseEntries(char* line, Section section);
    void setEntry(Section section, const char* key, const char* value);
};
