// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FlatFileReader.h"

#include "TextLine.h"

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/stat.h>

namespace {

constexpr int kLineSize = 4096;

// atof, but always with "." as the decimal point: front ends set their locale.
double toDouble(const char* text)
{
    const locale_t c = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    if (c == nullptr) {
        return atof(text);
    }
    const double value = strtod_l(text, nullptr, c);
    freelocale(c);
    return value;
}

}  // namespace

FlatFileReader::~FlatFileReader() = default;

const char* FlatFileReader::SkipWhiteSpace(const char* s)
{
    return TextLine::skipWhiteSpace(s);
}

char* FlatFileReader::ConfigParser(char* buf, int size, FILE* stream)
{
    char* line = fgets(buf, size, stream);
    if (line != nullptr) {
        log_debug("config entry = %s", line);
        TextLine::trim(line);
    }
    return line;
}

bool FlatFileReader::parseHeader(const char* line, Section* section)
{
    if (strcmp(line, "[INTEGERS]") == 0) {
        *section = Section::Integers;
    } else if (strcmp(line, "[DOUBLES]") == 0) {
        *section = Section::Doubles;
    } else if (strcmp(line, "[STRINGS]") == 0) {
        *section = Section::Strings;
    } else {
        return false;
    }
    return true;
}

void FlatFileReader::setEntry(Section section, const char* key, const char* value)
{
    switch (section) {
    case Section::Integers: {
        const int number = atoi(value);
        SetIntOption(key, number);
        log_debug("szCurrentKey = %s", key);
        log_debug("iKeyValue = %d", number);
        break;
    }
    case Section::Doubles: {
        const double number = toDouble(value);
        SetDoubleOption(key, number);
        log_debug("szCurrentKey = %s", key);
        log_debug("iKeyValue = %.3f", number);
        break;
    }
    case Section::Strings:
        SetStringOption(key, value);
        log_debug("szCurrentKey = %s", key);
        log_debug("szKeyValue = %s", value);
        break;
    case Section::None:
        break;
    }
}

// Tokens between "=" signs, in pairs of key and value: "A=1=B=2" sets A and B.
void FlatFileReader::parseEntries(char* line, Section section)
{
    char* rest = nullptr;
    const char* key = strtok_r(line, "=", &rest);
    while (key != nullptr) {
        const char* value = strtok_r(nullptr, "=", &rest);
        if (value == nullptr) {
            return;
        }
        setEntry(section, key, value);
        key = strtok_r(nullptr, "=", &rest);
    }
}

int FlatFileReader::LoadConfig(const char* path)
{
    SL_START();
    if (path == nullptr) {
        SL_TRACE("[ERROR] no feature file is configured for this device");
        SL_RETURN(0);
    }
    SL_TRACE("checking config file: %s", path);
    struct stat info;
    if (stat(path, &info) != 0) {
        SL_TRACE("[ERROR] The file %s does not exist. %d; %s", path, errno, strerror(errno));
        SL_RETURN(0);
    }

    SL_TRACE("opening config file: %s", path);
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "re"), fclose);
    if (!file) {
        SL_TRACE("[ERROR] Error opening %s file. %d; %s", "/tmp/Temp.conf", errno, strerror(errno));
        SL_RETURN(0);
    }

    char line[kLineSize];
    Section section = Section::None;
    while (ConfigParser(line, sizeof line, file.get()) != nullptr) {
        const bool isComment = line[0] == '#' || line[0] == '\0';
        if (!isComment && !parseHeader(line, &section)) {
            parseEntries(line, section);
        }
    }
    SL_RETURN(1);
}
