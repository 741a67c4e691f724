// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Keys.h"

#include "Text.h"

#include <algorithm>
#include <cstdlib>

namespace check {

namespace {

constexpr int kMaxResolutions = 1024;
constexpr double kLongest = 32767.0;  // millimetres, what SANE can express
constexpr double kLargestResolution = 65535.0;
constexpr const char* kResolution = "RESOLUTIONS_";
constexpr std::size_t kMostUnlike = 3;

constexpr const char* kComputedKeys[] = {"SCANOFFSETX",   "SCANOFFSETY", "SCANWIDTH",
                                         "SCANHEIGHT",    "LINES",       "PIXELS_PER_LINE",
                                         "BYTES_PER_LINE"};

Key choice(const char* name, std::vector<int> values, const char* meaning,
           Missing missing = Missing::Fine, const char* whenMissing = "")
{
    return {name, Section::Integers, std::move(values), 0, 0, meaning, missing, whenMissing};
}

Key onOff(const char* name, const char* meaning)
{
    Key key = choice(name, {0, 1}, meaning);
    key.otherwise = Otherwise::OnUnlessZero;
    return key;
}

Key npaSwitch()
{
    Key key = choice("ENABLE_NPA", {0, 1}, "1: commands travel inside an NPA frame", Missing::Noted,
                     "commands are sent without a frame (as with 0)");
    key.otherwise = Otherwise::OnIfPositive;
    return key;
}

Key number(const char* name, double least, double most, const char* meaning,
           Missing missing = Missing::Fine, const char* whenMissing = "")
{
    return {name, Section::Integers, {}, least, most, meaning, missing, whenMissing};
}

Key millimetres(const char* name, const char* meaning, Missing missing = Missing::Fine,
                const char* whenMissing = "")
{
    return {name, Section::Doubles, {}, 0, kLongest, meaning, missing, whenMissing};
}

Key text(const char* name, const char* meaning)
{
    return {name, Section::Strings, {}, 0, 0, meaning, Missing::Fine, ""};
}

std::vector<Key> makeKeys()
{
    using M = Missing;
    return {
        choice("COMMANDVERSION", {326, 401, 402}, "the command protocol of the model", M::Warned,
               "protocol 326 is spoken"),
        npaSwitch(),
        number("RESOLUTIONS", 0, kMaxResolutions, "the number of resolutions"),
        number("ADFDPILIMIT", 0, kLargestResolution, "the highest resolution of the feeder"),
        number("CURRENTDPI", 1, kLargestResolution, "the resolution that is set at first",
               M::Warned, "0 dpi is set until a resolution is chosen, so pages have no size"),
        choice("COLORDEPTH", {1, 3}, "3 colour, 1 grey, what is set at first", M::Warned,
               "lines have no bytes until a mode is chosen"),
        choice("SCAN_SOURCE", {1, 2, 3}, "the source that is set at first: 1 flatbed, 2 feeder",
               M::Noted, "the flatbed is set at first"),
        choice("PREVIEW", {0, 1}, "1: previews at first"),
        number("MEDIA_INDEX", 0, 33, "the media size that is set at first, 0 is Letter"),
        choice("SCAN_SOURCE_ADF", {0, 2}, "2: offer the document feeder"),
        onOff("ADFPREVIEW", "1: previews may be taken from the feeder"),
        choice("SCANNERTYPE", {0, 1, 4, 5},
               "1 flatbed, 4 flatbed and feeder, 5 feeder; the scanner reports it"),
        number("SCANBARID", 0, 9, "the scan bar, a digit of the names of the colour tables"),
        choice("COMPRESSION", {0, 1}, "1: images come compressed"),
        number("COMPRESSIONLEVEL", 0, 255, "the level of compression"),
        choice("COMPRESSIONTECH", {0, 2}, "the technique of compression, 2 is the only one known"),
        onOff("BGRTORGB", "1: colours come as blue, green, red"),
        onOff("ADFSIDEFLIP", "1: lines come mirrored from the feeder"),
        onOff("FLATBEDSIDEFLIP", "1: lines come mirrored from the flatbed"),
        onOff("COLORCORRECT", "1: colours are corrected with a library"),
        millimetres("TOPLEFTX", "the left edge of the scan area in millimetres"),
        millimetres("TOPLEFTY", "the upper edge of the scan area in millimetres"),
        millimetres("BOTTOMRIGHTX", "the right edge of the scan area in millimetres", M::Warned,
                    "the scan area has no width, so that no area can be chosen"),
        millimetres("BOTTOMRIGHTY", "the lower edge of the scan area in millimetres", M::Warned,
                    "the scan area has no height, so that no area can be chosen"),
        millimetres("CURRENTTLX", "the left edge of what is selected at first"),
        millimetres("CURRENTTLY", "the upper edge of what is selected at first"),
        millimetres("CURRENTBRX", "the right edge of what is selected at first", M::Warned,
                    "nothing is selected until an area is chosen, and scans of nothing fail"),
        millimetres("CURRENTBRY", "the lower edge of what is selected at first", M::Warned,
                    "nothing is selected until an area is chosen, and scans of nothing fail"),
        text("SCLIB", "the library that corrects colours"),
        text("SCFUNC", "the function in the library"),
        text("COLORLUT", "the table for colour pages"),
        text("GRAYLUT", "the table for grey pages"),
    };
}

// The keys that differ in their number only.
const Key& resolutionKey()
{
    static const Key key = number(kResolution, 1, kLargestResolution, "a resolution in dpi");
    return key;
}

bool isTooUnlike(const std::string& a, const std::string& b)
{
    return a.size() > b.size() + kMostUnlike || b.size() > a.size() + kMostUnlike;
}

// The number that a misspelt RESOLUTIONS_n ends in, with what separates it.
std::string numberedKey(const std::string& name)
{
    const std::size_t digits = name.find_last_not_of("0123456789") + 1;
    if (digits == 0 || digits == name.size() || name[digits] == '0') {
        return "";
    }
    const std::string front = lowered(name.substr(0, digits));
    const bool isAlike = !isTooUnlike(front, kResolution) &&
                         distance(front, lowered(kResolution)) <= static_cast<int>(kMostUnlike);
    return isAlike ? kResolution + name.substr(digits) : "";
}

}  // namespace

const char* headerOf(Section section)
{
    switch (section) {
    case Section::Integers:
        return "[INTEGERS]";
    case Section::Doubles:
        return "[DOUBLES]";
    case Section::Strings:
        return "[STRINGS]";
    default:
        return "";
    }
}

const std::vector<Key>& knownKeys()
{
    static const std::vector<Key> keys = makeKeys();
    return keys;
}

int resolutionNumber(const std::string& name)
{
    if (!startsWith(name, kResolution)) {
        return 0;
    }
    const std::string digits = name.substr(std::string(kResolution).size());
    const long value = strtol(digits.c_str(), nullptr, 10);
    const bool isRead = value >= 1 && value <= kMaxResolutions && digits == std::to_string(value);
    return isRead ? static_cast<int>(value) : 0;
}

const Key* findKey(const std::string& name)
{
    if (resolutionNumber(name) > 0) {
        return &resolutionKey();
    }
    const auto found = std::find_if(knownKeys().begin(), knownKeys().end(),
                                    [&name](const Key& key) { return key.name == name; });
    return found != knownKeys().end() ? &*found : nullptr;
}

bool isComputedKey(const std::string& name)
{
    return std::find(std::begin(kComputedKeys), std::end(kComputedKeys), name) !=
           std::end(kComputedKeys);
}

std::string similarKey(const std::string& name)
{
    const std::string plain = trimmed(name);
    if (std::string numbered = numberedKey(plain); !numbered.empty()) {
        return numbered;
    }
    std::string best;
    int least = static_cast<int>(std::min(kMostUnlike, plain.size() / 3)) + 1;
    for (const Key& key : knownKeys()) {
        if (isTooUnlike(plain, key.name)) {
            continue;
        }
        const int cost = distance(lowered(plain), lowered(key.name));
        if (cost < least) {
            best = key.name;
            least = cost;
        }
    }
    return best;
}

}  // namespace check
