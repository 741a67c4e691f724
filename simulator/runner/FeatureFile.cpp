// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FeatureFile.h"

#include <sstream>

namespace scansim {

namespace {

bool isAbout(const std::string& line, const std::string& key)
{
    return line.rfind(key + "=", 0) == 0;
}

const char* sectionFor(const std::string& value)
{
    const bool isNumber = value.find_first_not_of("0123456789.-") == std::string::npos;
    if (!isNumber) {
        return "[STRINGS]";
    }
    return value.find('.') == std::string::npos ? "[INTEGERS]" : "[DOUBLES]";
}

std::string changed(const std::string& text, const FeatureChange& change)
{
    const auto& [key, value] = change;
    const std::string entry = key + "=" + value + "\n";
    std::istringstream in(text);
    std::string out;
    bool isFound = false;
    for (std::string line; std::getline(in, line);) {
        if (!isAbout(line, key)) {
            out += line + "\n";
        } else if (!value.empty()) {
            out += entry;
        }
        isFound = isFound || isAbout(line, key);
    }
    if (!isFound && !value.empty()) {
        out += std::string(sectionFor(value)) + "\n" + entry;
    }
    return out;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

}  // namespace

std::string changedFeatures(const std::string& text, const std::vector<FeatureChange>& changes)
{
    std::string result = text;
    for (const FeatureChange& change : changes) {
        result = changed(result, change);
    }
    return result;
}

std::string withCorrectionFrom(const std::string& text, const std::string& libraryFolder,
                               const std::string& tableFolder)
{
    std::string result = text;
    replaceAll(result, "=/usr/qilinkjet/qil08/lib/", "=" + libraryFolder + "/");
    replaceAll(result, "=/usr/qilinkjet/qil08/etc/", "=" + tableFolder + "/");
    return result;
}

}  // namespace scansim
