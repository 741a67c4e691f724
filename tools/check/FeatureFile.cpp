// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FeatureFile.h"

#include "Probe.h"
#include "RawFile.h"

#include <algorithm>

namespace check {

namespace {

Section sectionOf(const std::string& text)
{
    for (const Section section : {Section::Integers, Section::Doubles, Section::Strings}) {
        if (text == headerOf(section)) {
            return section;
        }
    }
    return Section::None;
}

// What stands between signs of equality, several of them being like one.
std::vector<std::string> tokens(const std::string& text)
{
    std::vector<std::string> found;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('=', at), text.size());
        if (end > at) {
            found.push_back(text.substr(at, end - at));
        }
        at = end + 1;
    }
    return found;
}

FeatureLine parse(const Piece& piece, Section current)
{
    FeatureLine line;
    line.line = piece.line;
    line.text = piece.text;
    line.section = current;
    if (piece.text.empty() || piece.text[0] == '#') {
        return line;
    }
    if (const Section section = sectionOf(piece.text); section != Section::None) {
        line.kind = FeatureLine::Kind::Header;
        line.section = section;
        return line;
    }
    line.kind = FeatureLine::Kind::Entry;
    const std::vector<std::string> found = tokens(piece.text);
    for (std::size_t i = 0; i + 1 < found.size(); i += 2) {
        line.pairs.emplace_back(found[i], found[i + 1]);
    }
    line.rest = found.size() % 2 == 1 ? found.back() : "";
    return line;
}

}  // namespace

Value converted(Section section, const std::string& text, int line)
{
    Value value;
    value.line = line;
    value.text = text;
    if (section == Section::Integers) {
        value.integer = probeInteger(text);
    } else if (section == Section::Doubles) {
        value.number = probeDouble(text);
    }
    return value;
}

void FeatureFile::add(FeatureLine line)
{
    if (line.kind == FeatureLine::Kind::Entry && line.section != Section::None) {
        for (const auto& [key, text] : line.pairs) {
            values_[{line.section, key}] = converted(line.section, text, line.line);
        }
    }
    lines_.push_back(std::move(line));
}

FeatureFile FeatureFile::read(const std::string& path, Findings& findings)
{
    FeatureFile file;
    file.path_ = path;
    const RawFile raw = RawFile::read(path, "the feature file", findings);
    file.isRead_ = raw.isRead;
    Section current = Section::None;
    for (const Piece& piece : raw.pieces) {
        FeatureLine line = parse(piece, current);
        current = line.section;
        file.add(std::move(line));
    }
    return file;
}

std::vector<int> FeatureFile::skipped() const
{
    std::vector<int> found;
    for (const FeatureLine& line : lines_) {
        if (!line.isRead()) {
            found.push_back(line.line);
        }
    }
    return found;
}

const Value* FeatureFile::find(Section section, const std::string& key) const
{
    const auto found = values_.find({section, key});
    return found != values_.end() ? &found->second : nullptr;
}

int FeatureFile::integer(const std::string& key) const
{
    const Value* value = find(Section::Integers, key);
    return value != nullptr ? value->integer : 0;
}

double FeatureFile::number(const std::string& key) const
{
    const Value* value = find(Section::Doubles, key);
    return value != nullptr ? value->number : 0.0;
}

std::string FeatureFile::text(const std::string& key) const
{
    const Value* value = find(Section::Strings, key);
    return value != nullptr ? value->text : "";
}

int FeatureFile::lineOf(const std::string& key) const
{
    const Key* known = findKey(key);
    const Value* value = known != nullptr ? find(known->section, key) : nullptr;
    return value != nullptr ? value->line : 0;
}

}  // namespace check
