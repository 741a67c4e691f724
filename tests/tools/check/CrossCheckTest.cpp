// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tool says about files against what the backend really does with them: the kept inputs
// of the fuzzers, and random changes of them and of the shipped files.
#include "ConfFile.h"
#include "FeatureCheck.h"
#include "FlatFileReader.h"
#include "LogCapture.h"
#include "ModelCheck.h"
#include "SaneConfReader.h"
#include "Support.h"

#include <map>
#include <set>
#include <sstream>

using namespace check;

namespace {

constexpr int kChanges = 40;  // of each input

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> inputs(const std::string& kind)
{
    std::vector<std::string> texts;
    for (const auto& entry :
         std::filesystem::directory_iterator(FUZZ_FOLDER "/" + kind + "/corpus")) {
        texts.push_back(contentOf(entry.path()));
    }
    return texts;
}

// Bytes that mean something in one of the two kinds of file come more often.
std::string changed(std::string text, Random& random)
{
    const std::string likely = "=# \t\r\n[]xX0aG_-/usb";
    for (int i = random.pick(1, 6); i > 0; --i) {
        const char byte = random.pick(0, 3) == 0 ? static_cast<char>(random.byte())
                                                 : likely[static_cast<std::size_t>(random.pick(
                                                       0, static_cast<int>(likely.size()) - 1))];
        const std::size_t at =
            static_cast<std::size_t>(random.pick(0, static_cast<int>(text.size())));
        switch (random.pick(0, 3)) {
        case 0:
            text.insert(at, 1, byte);
            break;
        case 1:
            text.erase(at, static_cast<std::size_t>(random.pick(1, 3)));
            break;
        case 2:
            if (at < text.size()) {
                text[at] = byte;
            }
            break;
        default:
            text.insert(at, text.substr(text.size() / 2, 30));
            break;
        }
    }
    return text;
}

template <typename Compare>
void forEachInput(const std::string& kind, const std::vector<std::string>& more, Compare compare)
{
    Random random(4711);
    std::vector<std::string> texts = inputs(kind);
    ASSERT_GT(texts.size(), 10U);
    texts.insert(texts.end(), more.begin(), more.end());
    for (const std::string& text : texts) {
        compare(text);
        for (int i = 0; i < kChanges && !testing::Test::HasFailure(); ++i) {
            compare(changed(text, random));
        }
    }
}

// ---- configuration files -----------------------------------------------------------

// Every two numbers that follow each other behind a place in the text.
void addIds(const std::string& text, std::set<std::pair<int, int>>& ids)
{
    int last = 0;
    for (std::size_t at = 0; at < text.size();) {
        char* end = nullptr;
        const int number = static_cast<int>(strtoul(text.c_str() + at, &end, 16));
        const std::size_t size = static_cast<std::size_t>(end - text.c_str()) - at;
        if (size == 0) {
            ++at;
            continue;
        }
        ids.insert({last, number});
        last = number;
        at += size;
    }
}

// Those of the whole text, and those behind each "usb", whose end looks like a number, too.
std::set<std::pair<int, int>> idsIn(const std::string& text)
{
    std::set<std::pair<int, int>> ids;
    addIds(text, ids);
    for (std::size_t at = text.find("usb"); at != std::string::npos; at = text.find("usb", at)) {
        at += 3;
        addIds(text.substr(at, text.find('\n', at) - at), ids);
    }
    return ids;
}

// The path that the backend has for IDs, from a file of its own.
bool namesAModel(const Folder& folder, const std::string& line)
{
    SaneConfReader reader;
    reader.LoadConf(folder.write("line.conf", line).c_str());
    const std::set<std::pair<int, int>> ids = idsIn(line);
    return std::any_of(ids.begin(), ids.end(),
                       [&reader](const auto& id) { return reader.isFound(id.first, id.second); });
}

// What the backend reads at a time, without help of the tool.
std::vector<std::pair<int, std::string>> piecesOf(const std::string& text)
{
    std::vector<std::pair<int, std::string>> pieces;
    int line = 1;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t newline = text.find('\n', at);
        const std::size_t end = std::min(
            {newline == std::string::npos ? text.size() : newline + 1, at + 4095, text.size()});
        pieces.emplace_back(line, text.substr(at, end - at));
        line += text[end - 1] == '\n' ? 1 : 0;
        at = end;
    }
    return pieces;
}

bool isComment(const std::string& piece)
{
    const std::string text = piece.c_str();
    const std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    return at == std::string::npos || text[at] == '#';
}

void compareConf(const Folder& folder, const std::string& text)
{
    Findings findings;
    const std::string path = folder.write("a.conf", text);
    const ConfFile file = ConfFile::read(path, findings);

    std::vector<int> skipped;
    std::vector<int> taken;
    for (const auto& [line, piece] : piecesOf(text)) {
        if (!isComment(piece)) {
            (namesAModel(folder, piece) ? taken : skipped).push_back(line);
        }
    }
    std::vector<int> models;
    for (const ConfModel& model : file.models) {
        models.push_back(model.line);
    }
    EXPECT_EQ(file.skipped, skipped) << testing::PrintToString(text);
    EXPECT_EQ(models, taken) << testing::PrintToString(text);

    SaneConfReader backend;
    backend.LoadConf(path.c_str());
    for (const auto& [vendor, product] : idsIn(text)) {
        const ConfModel* model =
            file.find(static_cast<unsigned>(vendor), static_cast<unsigned>(product));
        const char* features = backend.GetFeatureFile(vendor, product);
        EXPECT_EQ(model != nullptr ? model->featureFile : "(none)",
                  features != nullptr ? features : "(none)")
            << testing::PrintToString(text);
    }
    for (const int line : skipped) {
        EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [line](const Finding& finding) {
            return finding.line == line && finding.severity == Severity::Error &&
                   finding.message.find("skipped: ") == 0;
        })) << line;
    }
}

// ---- feature files -------------------------------------------------------------------

// A record of the log keeps this much.
constexpr std::size_t kLogged = 1000;

std::string valueText(Section section, const Value& value)
{
    char text[400];
    if (section == Section::Integers) {
        snprintf(text, sizeof text, "iKeyValue = %d", value.integer);
    } else if (section == Section::Doubles) {
        snprintf(text, sizeof text, "iKeyValue = %.3f", value.number);
    } else {
        return "szKeyValue = " + value.text;
    }
    return text;
}

// The records of the backend: each line read, each key set.
std::vector<std::string> trace(const std::string& path)
{
    const LogCapture log;
    FlatFileReader reader;
    reader.LoadConfig(path.c_str());
    std::vector<std::string> records;
    for (const std::string& message : log.messages()) {
        for (const char* front :
             {"config entry = ", "szCurrentKey = ", "iKeyValue = ", "szKeyValue = "}) {
            if (message.rfind(front, 0) == 0) {
                const bool isLine = front[0] == 'c';
                records.push_back(isLine ? "line" : message.substr(0, kLogged));
            }
        }
    }
    return records;
}

// The same from what the tool has read.
std::vector<std::string> expectedTrace(const FeatureFile& file)
{
    std::vector<std::string> records;
    for (const FeatureLine& line : file.lines()) {
        records.emplace_back("line");
        for (const auto& [key, text] : line.pairs) {
            if (line.isRead()) {
                const std::string value =
                    valueText(line.section, converted(line.section, text, line.line));
                records.push_back(("szCurrentKey = " + key).substr(0, kLogged));
                records.push_back(value.substr(0, kLogged));
            }
        }
    }
    return records;
}

std::vector<std::string> listing(const std::string& path)
{
    FlatFileReader reader;
    reader.LoadConfig(path.c_str());
    const LogCapture log;
    reader.DisplayConfig();
    std::vector<std::string> lines;
    for (const std::string& line : log.messages()) {
        lines.push_back(line.substr(0, kLogged));
    }
    return lines;
}

std::vector<std::string> expectedListing(const FeatureFile& file)
{
    std::map<Section, std::vector<std::string>> bySection;
    for (const auto& [place, value] : file.values()) {
        char number[400];
        snprintf(number, sizeof number, "%f", value.number);
        const std::string text = place.first == Section::Integers  ? std::to_string(value.integer)
                                 : place.first == Section::Doubles ? number
                                                                   : value.text;
        bySection[place.first].push_back((place.second + " = " + text).substr(0, kLogged));
    }
    std::vector<std::string> lines = {"Display Config Options"};
    for (const auto& [section, head] :
         std::map<Section, std::string>{{Section::Integers, "Integer Options"},
                                        {Section::Doubles, "Double Options"},
                                        {Section::Strings, "String Options"}}) {
        lines.push_back(head);
        lines.insert(lines.end(), bySection[section].begin(), bySection[section].end());
    }
    lines.emplace_back("End of Config Options");
    return lines;
}

void compareFeatures(const Folder& folder, const std::string& text)
{
    Findings findings;
    const std::string path = folder.write("a.ini", text);
    const FeatureFile file = FeatureFile::read(path, findings);
    EXPECT_EQ(expectedTrace(file), trace(path)) << testing::PrintToString(text);
    EXPECT_EQ(expectedListing(file), listing(path)) << testing::PrintToString(text);
    judgeLines(file, findings);
    judgeModel(file, true, findings);
    for (const FeatureLine& line : file.lines()) {
        const bool isCalledSkipped =
            std::any_of(findings.begin(), findings.end(), [&line](const Finding& finding) {
                return finding.line == line.line && finding.message.find("skipped: ") == 0;
            });
        if (!line.isRead()) {
            EXPECT_TRUE(isCalledSkipped) << line.text;
        }
    }
}

}  // namespace

TEST(CheckAgainstBackend, ConfigurationFiles)
{
    const Folder folder;
    const std::string sample = "# c\nusb 0x1234 0x3260 /a/b.ini Name\nusb 12 34 /c D\n\nusb 5 6\n";
    const std::string longLine = "usb 1 2 /a " + std::string(4080, 'x') + " usb 3 4 /b y\n" +
                                 std::string(4094, ' ') + "usb 7 8 /c z\n";
    forEachInput("conf", {sample, longLine},
                 [&folder](const std::string& text) { compareConf(folder, text); });
}

TEST(CheckAgainstBackend, FeatureFiles)
{
    const Folder folder;
    std::vector<std::string> more;
    for (const auto& entry : std::filesystem::directory_iterator(MODEL_FOLDER)) {
        more.push_back(contentOf(entry.path()));
    }
    forEachInput("features", more,
                 [&folder](const std::string& text) { compareFeatures(folder, text); });
}
