// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NumberCheck.h"

#include "Text.h"
#include "TextLine.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace check {

namespace {

constexpr const char* kPlainNumber =
    "Write a plain number directly behind \"=\", and comments on lines of their own.";

double valueOf(Section section, const Value& value)
{
    return section == Section::Integers ? value.integer : value.number;
}

// Where the conversion stops.
std::size_t numberSize(Section section, const std::string& text, bool* isTooLarge)
{
    char* end = nullptr;
    errno = 0;
    if (section == Section::Integers) {
        const long number = strtol(text.c_str(), &end, 10);
        *isTooLarge = errno == ERANGE || number > std::numeric_limits<int>::max() ||
                      number < std::numeric_limits<int>::min();
    } else {
        strtod(text.c_str(), &end);
        *isTooLarge = false;
    }
    return static_cast<std::size_t>(end - text.c_str());
}

void judgeTail(Section section, const std::string& key, const Value& value, std::size_t size,
               Voice& voice)
{
    const std::string tail = trimmed(value.text.substr(size));
    if (tail.empty()) {
        return;
    }
    std::string why = " is not part of the number and is dropped";
    if (section == Section::Integers && (tail[0] == '.' || tail[0] == ',')) {
        why = " is dropped, because only whole numbers are read here";
    } else if (section == Section::Doubles && tail[0] == ',') {
        why = " is dropped: the decimal sign is the point";
    } else if (tail[0] == '#') {
        why = " is dropped; comments are lines of their own";
    }
    voice.warning(
        value.line, "number-tail",
        key + " is read as " + shown(valueOf(section, value)) + ": " + quoted(tail) + why + ".",
        kPlainNumber);
}

std::string allowed(const Key& key)
{
    std::string list;
    for (std::size_t i = 0; i < key.values.size(); ++i) {
        list += (i == 0                       ? ""
                 : i + 1 == key.values.size() ? " or "
                                              : ", ") +
                std::to_string(key.values[i]);
    }
    return list;
}

void judgeChoice(const Key& key, const std::string& name, const Value& value,
                 const std::string& advice, Voice& voice)
{
    const std::string number = shown(value.integer);
    if (key.otherwise == Otherwise::Wrong) {
        voice.error(value.line, "value-not-allowed",
                    name + " cannot be " + number + ", only " + allowed(key) + ".", advice);
        return;
    }
    const bool isOn = value.integer > 0 || key.otherwise == Otherwise::OnUnlessZero;
    voice.warning(
        value.line, "value-counts-as",
        name + " should be " + allowed(key) + "; " + number + " counts as " + (isOn ? "1." : "0."),
        advice);
}

}  // namespace

std::string shown(double number)
{
    char text[64];
    snprintf(text, sizeof text, "%.12g", number);
    return text;
}

bool judgeNumber(Section section, const std::string& key, const Value& value, Voice& voice)
{
    bool isTooLarge = false;
    const std::size_t size = numberSize(section, value.text, &isTooLarge);
    const std::string name = printable(key);
    if (size == 0) {
        voice.error(value.line, "not-a-number",
                    name + " needs a number, but " + quoted(value.text) + " is none; 0 is read.",
                    kPlainNumber);
        return false;
    }
    if (std::isnan(valueOf(section, value))) {
        voice.error(value.line, "not-a-number",
                    name + " needs a number, but " + quoted(value.text) + " is none.",
                    kPlainNumber);
        return false;
    }
    if (isTooLarge || !std::isfinite(valueOf(section, value))) {
        voice.error(value.line, "number-too-large",
                    name + ": " + quoted(value.text) + " is too large; " +
                        shown(valueOf(section, value)) + " is read.",
                    kPlainNumber);
        return false;
    }
    if (TextLine::isSpace(value.text[0])) {
        voice.note(value.line, "blank-in-value",
                   "there are blanks behind \"=\"; a number does not mind.");
    }
    judgeTail(section, name, value, size, voice);
    return true;
}

void judgeRange(const Key& key, const std::string& name, const Value& value, Voice& voice)
{
    const double number = valueOf(key.section, value);
    const std::string advice = name + " means: " + key.meaning + ".";
    if (!key.values.empty()) {
        if (std::find(key.values.begin(), key.values.end(), value.integer) == key.values.end()) {
            judgeChoice(key, name, value, advice, voice);
        }
    } else if (number < key.least || number > key.most) {
        voice.error(value.line, "value-out-of-range",
                    name + " cannot be " + shown(number) + ", only " + shown(key.least) + " to " +
                        shown(key.most) + ".",
                    advice);
    }
}

}  // namespace check
