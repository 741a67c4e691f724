// SPDX-License-Identifier: LGPL-2.1-or-later
// A feature file as the backend reads it.
#pragma once

#include "Finding.h"
#include "Keys.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace check {

// A value as the store has it.
struct Value {
    int line = 0;
    std::string text;     // as written
    int integer = 0;      // of [INTEGERS]
    double number = 0.0;  // of [DOUBLES]
};

struct FeatureLine {
    enum class Kind { Comment, Header, Entry };

    int line = 0;
    Kind kind = Kind::Comment;
    std::string text;
    Section section = Section::None;  // that it belongs to, or begins
    std::vector<std::pair<std::string, std::string>> pairs;
    std::string rest;  // a last word without a value

    // False for an entry that the backend passes over.
    bool isRead() const
    {
        return kind != Kind::Entry || (section != Section::None && !pairs.empty());
    }
};

class FeatureFile {
public:
    static FeatureFile read(const std::string& path, Findings& findings);

    const std::string& path() const { return path_; }
    bool isRead() const { return isRead_; }
    const std::vector<FeatureLine>& lines() const { return lines_; }
    std::vector<int> skipped() const;

    using Values = std::map<std::pair<Section, std::string>, Value>;
    const Values& values() const { return values_; }
    // Null where the file does not give the key in its section.
    const Value* find(Section section, const std::string& key) const;
    // What the backend gets: 0 and the empty text for what is missing.
    int integer(const std::string& key) const;
    double number(const std::string& key) const;
    std::string text(const std::string& key) const;
    int lineOf(const std::string& key) const;

private:
    void add(FeatureLine line);

    std::string path_;
    bool isRead_ = false;
    std::vector<FeatureLine> lines_;
    Values values_;
};

// A value as the backend's reader converts it for a section.
Value converted(Section section, const std::string& text, int line);

}  // namespace check
