// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace frontend {

namespace {

constexpr double kMillimetresPerInch = 25.4;
constexpr double kFullWidth = 216.0;
constexpr int kPreviewDpi = 75;
constexpr int kFeederDpi = 300;
constexpr const char* kFeeder = "Automatic Document Feeder";

bool isListed(const SANE_Option_Descriptor& option, const std::string& text)
{
    const SANE_String_Const* entry = option.constraint.string_list;
    while (*entry != nullptr && text != *entry) {
        ++entry;
    }
    return *entry != nullptr;
}

bool isListed(const SANE_Option_Descriptor& option, SANE_Word word)
{
    const SANE_Word* list = option.constraint.word_list;
    return std::find(list + 1, list + 1 + list[0], word) != list + 1 + list[0];
}

int dots(int dpi, double millimetres)
{
    return static_cast<int>(dpi * (millimetres / kMillimetresPerInch));
}

}  // namespace

Model::Model(const Scanner& scanner) : scanner_(scanner)
{
    const auto text = [&](const char* name) { return scanner.text(scanner.option(name)); };
    dpi_ = chosen_ = scanner.word(scanner.option("resolution"));
    mode_ = text("mode");
    source_ = text("source");
    media_ = text("media");
    isPreview_ = scanner.word(scanner.option("preview")) != 0;
    edge_ = SANE_UNFIX(scanner.descriptor(scanner.option("br-x"))->constraint.range->max);
    readArea();
}

void Model::readArea()
{
    for (const char* name : {"tl-x", "tl-y", "br-x", "br-y"}) {
        corner(name) = SANE_UNFIX(scanner_.word(scanner_.option(name)));
    }
    isRounded_ = true;
}

double& Model::corner(const std::string& option)
{
    if (option[0] == 't') {
        return option[3] == 'x' ? left_ : top_;
    }
    return option[3] == 'x' ? right_ : bottom_;
}

Outcome Model::change(const Change& change)
{
    const SANE_Value_Type type = scanner_.descriptor(scanner_.option(change.option))->type;
    return type == SANE_TYPE_STRING ? changeText(change) : changeWord(change);
}

Outcome Model::changeText(const Change& change)
{
    if (!isListed(*scanner_.descriptor(scanner_.option(change.option)), change.text)) {
        return {SANE_STATUS_INVAL, 0, 0};
    }
    Outcome outcome{SANE_STATUS_GOOD, SANE_INFO_RELOAD_PARAMS, 0};
    if (change.option == "mode") {
        mode_ = change.text;
    } else if (change.option == "source") {
        source_ = change.text;
    } else {
        media_ = change.text;
        outcome.info |= SANE_INFO_RELOAD_OPTIONS;
        readArea();
        require(left_ == 0 && top_ == 0 && right_ > 70 && right_ < 217 && bottom_ > 120 &&
                    bottom_ < 356,
                "the area of " + media_);
    }
    return outcome;
}

Outcome Model::changeWord(const Change& change)
{
    const SANE_Option_Descriptor& option = *scanner_.descriptor(scanner_.option(change.option));
    Outcome outcome{SANE_STATUS_GOOD, SANE_INFO_RELOAD_PARAMS, change.word};
    if (change.option == "resolution") {
        if (!isListed(option, change.word)) {
            return {SANE_STATUS_INVAL, 0, change.word};
        }
        dpi_ = chosen_ = change.word;
    } else if (change.option == "preview") {
        chosen_ = dpi_;
        isPreview_ = change.word != 0;
        dpi_ = isPreview_ ? kPreviewDpi : dpi_;
    } else {
        const SANE_Range& range = *option.constraint.range;
        outcome.word = std::clamp(change.word, range.min, range.max);
        outcome.info |= outcome.word != change.word ? SANE_INFO_INEXACT : 0;
        corner(change.option) = outcome.word / 65536.0;
    }
    return outcome;
}

Extent Model::extentAt(int dpi) const
{
    return {dots(dpi, right_ - left_), dots(dpi, bottom_ - top_)};
}

Extent Model::parameters()
{
    dpi_ = chosen_;
    return extentAt(isPreview_ ? kPreviewDpi : chosen_);
}

SANE_Status Model::checkArea() const
{
    const double smallest = std::min(right_ - left_, bottom_ - top_);
    return smallest + 0.005 < kMillimetresPerInch ? SANE_STATUS_UNSUPPORTED : SANE_STATUS_GOOD;
}

SANE_Status Model::checkFeeder() const
{
    const bool isRefused = source_ == kFeeder && (dpi_ > kFeederDpi || isPreview_);
    return isRefused ? SANE_STATUS_UNSUPPORTED : SANE_STATUS_GOOD;
}

// The feeder presents the paper from the other side; a failed start does it, too.
void Model::mirror()
{
    left_ = std::exchange(right_, edge_ - left_);
    left_ = edge_ - left_;
    isRounded_ = true;
}

SANE_Status Model::start()
{
    SANE_Status status = checkArea();
    if (status == SANE_STATUS_GOOD) {
        status = checkFeeder();
        if (status == SANE_STATUS_GOOD && dpi_ >= 300 && right_ == kFullWidth) {
            right_ = kFullWidth - 1;
        }
    }
    frame_ = extentAt(dpi_);
    if (status != SANE_STATUS_GOOD) {
        dpi_ = chosen_;
        mirror();
    } else if (source_ == kFeeder) {
        mirror();
    }
    return status;
}

void Model::compare() const
{
    const auto number = [&](const char* name) { return scanner_.word(scanner_.option(name)); };
    const auto text = [&](const char* name) { return scanner_.text(scanner_.option(name)); };
    require(number("resolution") == dpi_, "resolution " + std::to_string(number("resolution")) +
                                              " instead of " + std::to_string(dpi_));
    require(text("mode") == mode_, "mode " + text("mode") + " instead of " + mode_);
    require(text("source") == source_, "source " + text("source") + " instead of " + source_);
    require(text("media") == media_, "media " + text("media") + " instead of " + media_);
    require(number("preview") == (isPreview_ ? 1 : 0), "preview");
    const double corners[] = {left_, top_, right_, bottom_};
    const char* const names[] = {"tl-x", "tl-y", "br-x", "br-y"};
    for (int i = 0; i < 4; ++i) {
        const double value = SANE_UNFIX(number(names[i]));
        // A mirrored edge is made of two rounded ones.
        require(std::abs(value - corners[i]) <= (isRounded_ ? 1e-3 : 0),
                std::string(names[i]) + " " + std::to_string(value) + " instead of " +
                    std::to_string(corners[i]));
    }
}

}  // namespace frontend
