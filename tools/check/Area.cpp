// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ModelCheck.h"
#include "NumberCheck.h"

namespace check {

namespace {

constexpr double kSmallest = 25.4;
constexpr double kTolerance = 0.005;

// One direction of an area, with the keys of its two edges.
struct Extent {
    const char* near;
    const char* far;
    const char* name;
};
constexpr Extent kWidth = {"TOPLEFTX", "BOTTOMRIGHTX", "width"};
constexpr Extent kHeight = {"TOPLEFTY", "BOTTOMRIGHTY", "height"};
constexpr Extent kSelectedWidth = {"CURRENTTLX", "CURRENTBRX", "width"};
constexpr Extent kSelectedHeight = {"CURRENTTLY", "CURRENTBRY", "height"};

bool isGiven(const FeatureFile& file, const Extent& extent)
{
    return file.find(Section::Doubles, extent.far) != nullptr;
}

double sizeOf(const FeatureFile& file, const Extent& extent)
{
    return file.number(extent.far) - file.number(extent.near);
}

void judgeWhole(const FeatureFile& file, const Extent& extent, Voice& voice)
{
    if (isGiven(file, extent) && !(sizeOf(file, extent) > 0)) {
        voice.error(file.lineOf(extent.far), "empty-area",
                    "the scan area has no " + std::string(extent.name) + ": " + extent.far +
                        " is not larger than " + extent.near + ".",
                    "Give the size of the scan area in millimetres below [DOUBLES].");
    }
}

void judgeSelected(const FeatureFile& file, const Extent& extent, const Extent& whole, Voice& voice)
{
    if (!isGiven(file, extent)) {
        return;
    }
    if (!(sizeOf(file, extent) + kTolerance >= kSmallest)) {
        voice.warning(file.lineOf(extent.far), "small-selection",
                      "the " + std::string(extent.name) + " that is selected at first (" +
                          extent.far + " less " + extent.near +
                          ") is below 25.4 mm, the least that is scanned.",
                      "Give what is to be selected at first in millimetres below [DOUBLES].");
    }
    const bool isOutside = file.number(extent.far) > file.number(whole.far) ||
                           file.number(extent.near) < file.number(whole.near);
    if (isGiven(file, whole) && isOutside) {
        voice.warning(file.lineOf(extent.far), "selection-outside",
                      "the " + std::string(extent.name) + " that is selected at first (" +
                          extent.near + ", " + extent.far + ") reaches beyond the scan area (" +
                          whole.near + ", " + whole.far + ").",
                      "Give what is to be selected at first in millimetres below [DOUBLES].");
    }
}

}  // namespace

void judgeAreas(const FeatureFile& file, Voice& voice)
{
    judgeWhole(file, kWidth, voice);
    judgeWhole(file, kHeight, voice);
    judgeSelected(file, kSelectedWidth, kWidth, voice);
    judgeSelected(file, kSelectedHeight, kHeight, voice);
}

}  // namespace check
