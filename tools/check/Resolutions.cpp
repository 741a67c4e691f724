// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ModelCheck.h"
#include "NumberCheck.h"

#include <algorithm>

namespace check {

namespace {

constexpr int kFewest = 2;
constexpr int kMost = 1024;
constexpr int kPreview = 75;

std::string keyOf(int number)
{
    return "RESOLUTIONS_" + std::to_string(number);
}

// What the backend lists: missing ones count as 0.
std::vector<int> listed(const FeatureFile& file, int count, Voice& voice)
{
    std::vector<int> found;
    std::string missing;
    for (int i = 1; i <= count; ++i) {
        found.push_back(file.integer(keyOf(i)));
        if (file.find(Section::Integers, keyOf(i)) == nullptr && missing.empty()) {
            missing = keyOf(i);
        }
    }
    if (!missing.empty()) {
        voice.warning(file.lineOf("RESOLUTIONS"), "resolution-missing",
                      "RESOLUTIONS announces " + std::to_string(count) + ", but " + missing +
                          " is missing: 0 dpi is offered in its place, unless the scanner "
                          "reports its own list.",
                      "Number the resolutions from RESOLUTIONS_1 without gaps.");
    }
    return found;
}

void judgeUncounted(const FeatureFile& file, int count, Voice& voice)
{
    for (const auto& [place, value] : file.values()) {
        if (place.first == Section::Integers && resolutionNumber(place.second) > count) {
            voice.warning(value.line, "resolution-uncounted",
                          place.second + " is not offered, because RESOLUTIONS is " +
                              std::to_string(count) + ".",
                          "Set RESOLUTIONS to the number of resolutions.");
        }
    }
}

void judgeRepeated(const FeatureFile& file, const std::vector<int>& offered, Voice& voice)
{
    for (std::size_t i = 1; i < offered.size(); ++i) {
        const auto end = offered.begin() + static_cast<long>(i);
        const auto first = std::find(offered.begin(), end, offered[i]);
        const std::string key = keyOf(static_cast<int>(i) + 1);
        if (first != end && file.lineOf(key) > 0) {
            voice.warning(file.lineOf(key), "resolution-repeated",
                          key + " is " + std::to_string(offered[i]) + " like " +
                              keyOf(static_cast<int>(first - offered.begin()) + 1) + ".",
                          "Remove the resolution that stands twice and count again.");
        }
    }
}

bool isOffered(const std::vector<int>& offered, int dpi)
{
    return std::find(offered.begin(), offered.end(), dpi) != offered.end();
}

void judgeOffered(const FeatureFile& file, const std::vector<int>& offered, Voice& voice)
{
    if (!isOffered(offered, kPreview)) {
        voice.warning(file.lineOf("RESOLUTIONS"), "no-preview-resolution",
                      "75 dpi is not among the resolutions, but previews are scanned with it.",
                      "Add 75 to the resolutions if the scanner can do it.");
    }
    const int current = file.integer("CURRENTDPI");
    if (current > 0 && !isOffered(offered, current)) {
        voice.warning(file.lineOf("CURRENTDPI"), "resolution-not-offered",
                      "CURRENTDPI, what is set at first, is " + std::to_string(current) +
                          ", which is not among the resolutions.",
                      "Set CURRENTDPI to one of the resolutions.");
    }
}

}  // namespace

void judgeResolutions(const FeatureFile& file, Voice& voice)
{
    const int count = file.integer("RESOLUTIONS");
    if (count < kFewest) {
        voice.warning(file.lineOf("RESOLUTIONS"), "too-few-resolutions",
                      "RESOLUTIONS is missing or below 2: unless the flatbed reports its own "
                      "resolutions, opening the scanner fails as \"device busy\".",
                      "Add RESOLUTIONS, the number of them, and RESOLUTIONS_1, RESOLUTIONS_2, ... "
                      "below [INTEGERS].");
    } else if (count <= kMost) {
        const std::vector<int> offered = listed(file, count, voice);
        judgeRepeated(file, offered, voice);
        judgeOffered(file, offered, voice);
    }
    judgeUncounted(file, std::max(count, 0), voice);
}

}  // namespace check
