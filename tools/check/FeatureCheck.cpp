// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FeatureCheck.h"

#include "NumberCheck.h"
#include "Text.h"

#include <map>

namespace check {

namespace {

constexpr const char* kEntryForm =
    "An entry reads KEY=VALUE, without blanks around \"=\", below one of the headers [INTEGERS], "
    "[DOUBLES] and [STRINGS].";

class LineJudge {
public:
    LineJudge(const FeatureFile& file, Findings& findings) : voice_(findings, file.path()) {}

    void judge(const FeatureLine& line)
    {
        if (line.kind == FeatureLine::Kind::Entry) {
            line.isRead() ? judgeEntry(line) : explainSkipped(line);
        }
    }

private:
    void explainSkipped(const FeatureLine& line)
    {
        if (line.pairs.empty() && line.text[0] == '[') {
            explainHeader(line);
        } else if (line.pairs.empty() && line.text.find('=') == std::string::npos) {
            voice_.error(line.line, "no-equals",
                         "skipped: there is no \"=\" in " + quoted(line.text) + ".", kEntryForm);
        } else if (line.pairs.empty()) {
            explainHalf(line);
        } else {
            voice_.error(line.line, "before-section",
                         "skipped: " + quoted(line.text) +
                             " stands before the first section header, so it has no type.",
                         "Put a header in front of it, for example [INTEGERS].");
        }
    }

    void explainHeader(const FeatureLine& line)
    {
        const std::string where =
            line.section == Section::None
                ? "what follows is skipped"
                : std::string("what follows still belongs to ") + headerOf(line.section);
        const std::string similar = similarHeader(words(line.text)[0]);
        voice_.error(line.line, "unknown-section",
                     "skipped: " + quoted(line.text) + " is no section header, and " + where + "." +
                         (similar.empty() ? "" : " Did you mean " + similar + "?"),
                     "The headers are [INTEGERS], [DOUBLES] and [STRINGS], in capitals, alone on "
                     "their lines.");
    }

    static std::string similarHeader(const std::string& text)
    {
        for (const Section section : {Section::Integers, Section::Doubles, Section::Strings}) {
            std::string header = headerOf(section);
            if (distance(lowered(text).substr(0, 40), lowered(header)) <= 3) {
                return header;
            }
        }
        return "";
    }

    void explainHalf(const FeatureLine& line)
    {
        if (line.rest.empty()) {
            voice_.error(line.line, "no-value", "skipped: neither a key nor a value.", kEntryForm);
        } else if (line.text[0] == '=') {
            voice_.error(line.line, "no-key",
                         "skipped: there is no key in front of \"=\" in " + quoted(line.text) + ".",
                         kEntryForm);
        } else {
            voice_.error(line.line, "no-value",
                         "skipped: there is no value behind \"=\", so " + quoted(line.rest) +
                             " keeps what it had, or 0.",
                         kEntryForm);
        }
    }

    void judgeEntry(const FeatureLine& line)
    {
        if (line.text.find("==") != std::string::npos || line.text[0] == '=') {
            voice_.note(line.line, "needless-equals", "there are more \"=\" than needed.");
        }
        if (line.pairs.size() > 1) {
            voice_.warning(line.line, "several-pairs",
                           "the line sets " + plural(line.pairs.size(), "key") +
                               ", because every second \"=\" ends a value.",
                           kEntryForm);
        }
        if (!line.rest.empty()) {
            voice_.warning(line.line, "value-cut",
                           "the value ends at the next \"=\"; " + quoted(line.rest) +
                               " is dropped. A value cannot contain \"=\".",
                           kEntryForm);
        }
        for (const auto& [key, text] : line.pairs) {
            judgePair(line, key, text);
        }
    }

    void judgePair(const FeatureLine& line, const std::string& key, const std::string& text)
    {
        judgeRepeated(line, key);
        const Key* known = findKey(key);
        if (known == nullptr) {
            explainKey(line, key);
            return;
        }
        if (known->section != line.section) {
            voice_.error(line.line, "wrong-section",
                         key + " stands below " + headerOf(line.section) +
                             ", where the backend does not look for it: it has to stand below " +
                             headerOf(known->section) + ".",
                         "Move " + key + " below the header " + headerOf(known->section) + ".");
            return;
        }
        const Value value = converted(line.section, text, line.line);
        if (line.section == Section::Strings) {
            judgeText(key, value);
        } else if (judgeNumber(line.section, key, value, voice_)) {
            judgeRange(*known, key, value, voice_);
        }
    }

    void judgeRepeated(const FeatureLine& line, const std::string& key)
    {
        const auto [first, isNew] = seen_.insert({{line.section, key}, line.line});
        if (!isNew) {
            voice_.warning(line.line, "duplicate-key",
                           printable(key) + " stands on line " + std::to_string(first->second) +
                               " already; this value replaces the earlier one.",
                           "Remove one of the lines with the same key.");
            first->second = line.line;
        }
    }

    void explainKey(const FeatureLine& line, const std::string& key)
    {
        const std::string plain = trimmed(key);
        if (plain != key) {
            explainBlank(line, key, plain);
        } else if (isComputedKey(key)) {
            voice_.warning(line.line, "computed-key",
                           key +
                               " is computed from the resolution and the area; the value here "
                               "shows only while that gives 0.",
                           "Remove the line with " + key + ".");
        } else if (const std::string similar = similarKey(key); !similar.empty()) {
            voice_.warning(
                line.line, "misspelt-key",
                "the backend never reads " + quoted(key) + ". Did you mean " + similar + "?",
                "Correct the spelling of " + similar + " (in capitals).");
        } else {
            voice_.warning(line.line, "unknown-key", "the backend never reads " + quoted(key) + ".",
                           "Remove keys that the backend does not know; scanlib-check(1) lists "
                           "those that it knows.");
        }
    }

    void explainBlank(const FeatureLine& line, const std::string& key, const std::string& plain)
    {
        voice_.error(line.line, "blank-in-key",
                     "the blank beside \"=\" has become part of the key: " + quoted(key) +
                         " is not " + quoted(plain) + ", and is never read.",
                     kEntryForm);
    }

    void judgeText(const std::string& key, const Value& value)
    {
        if (!isTrimmed(value.text)) {
            voice_.warning(value.line, "blank-in-value",
                           "the blank beside \"=\" has become part of the value of " + key + ": " +
                               quoted(value.text) + ".",
                           kEntryForm);
        }
        if (value.text.find('#') != std::string::npos) {
            voice_.warning(value.line, "comment-in-value",
                           "the \"#\" begins no comment here: all of " + quoted(value.text) +
                               " is the value of " + key + ".",
                           "Put comments on lines of their own.");
        }
    }

    Voice voice_;
    std::map<std::pair<Section, std::string>, int> seen_;
};

}  // namespace

void judgeLines(const FeatureFile& file, Findings& findings)
{
    LineJudge judge(file, findings);
    for (const FeatureLine& line : file.lines()) {
        judge.judge(line);
    }
}

}  // namespace check
