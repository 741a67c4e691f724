// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Text.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace scansim {

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string> words(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) {
        result.push_back(word);
    }
    return result;
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string part; std::getline(stream, part, separator);) {
        result.push_back(part);
    }
    return result;
}

bool parseFlag(const std::string& text)
{
    if (text == "1" || text == "yes" || text == "on") {
        return true;
    }
    if (text == "0" || text == "no" || text == "off") {
        return false;
    }
    throw InputError("'" + text + "' is neither yes nor no");
}

bool parseChoice(const std::string& text, const std::string& no, const std::string& yes)
{
    if (text != no && text != yes) {
        throw InputError("'" + text + "' is neither " + no + " nor " + yes);
    }
    return text == yes;
}

std::uint32_t parseNumber(const std::string& text, std::uint32_t low, std::uint32_t high)
{
    const bool isHex = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const bool hasDigits = !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, isHex ? 16 : 10);
    if (!hasDigits || *end != '\0' || errno != 0) {
        throw InputError("'" + text + "' is not a number");
    }
    if (value < low || value > high) {
        throw InputError("'" + text + "' is not between " + std::to_string(low) + " and " +
                         std::to_string(high));
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace scansim
