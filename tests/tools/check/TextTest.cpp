// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Keys.h"
#include "Support.h"
#include "Text.h"

#include <filesystem>
#include <regex>

using namespace check;

TEST(CheckText, PlainTextStays)
{
    EXPECT_EQ(printable("Größe 10 × 15 – ok"), "Größe 10 × 15 – ok");
}

TEST(CheckText, ControlCharactersAreEscaped)
{
    EXPECT_EQ(printable("a\033[31mb\r\n\x7f"), "a\\x1b[31mb\\x0d\\x0a\\x7f");
    EXPECT_EQ(printable("\xC2\x9B"), "\\xc2\\x9b");  // a control beyond ASCII
}

TEST(CheckText, HiddenCharactersAreEscaped)
{
    EXPECT_EQ(printable("\xE2\x80\xAE"), "\\xe2\\x80\\xae");  // right-to-left override
    EXPECT_EQ(printable("\xEF\xBB\xBF"), "\\xef\\xbb\\xbf");
}

TEST(CheckText, WhatIsNoUtf8IsEscaped)
{
    EXPECT_EQ(printable("\xFF\xC3"), "\\xff\\xc3");
    EXPECT_EQ(printable("\xC0\xAF"), "\\xc0\\xaf");
    EXPECT_EQ(printable("\xE0\x80\xAF"), "\\xe0\\x80\\xaf");
    EXPECT_EQ(printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");
}

TEST(CheckText, LongTextsAreCut)
{
    EXPECT_EQ(quoted(std::string(500, 'x')), "'" + std::string(120, 'x') + "...'");
}

TEST(CheckText, DistanceCountsEdits)
{
    EXPECT_EQ(distance("abc", "abc"), 0);
    EXPECT_EQ(distance("abc", "abd"), 1);
    EXPECT_EQ(distance("abc", "ab"), 1);
    EXPECT_EQ(distance("abcd", "abdc"), 1);
    EXPECT_EQ(distance("", "abc"), 3);
}

TEST(CheckText, TrimsLikeTheBackend)
{
    EXPECT_EQ(trimmed(" \t a b\v\f\r\n"), "a b");
    EXPECT_EQ(trimmed(" \n"), "");
    EXPECT_FALSE(isTrimmed("a "));
}

TEST(CheckKeys, SimilarKeysAreFound)
{
    EXPECT_EQ(similarKey("COMANDVERSION"), "COMMANDVERSION");
    EXPECT_EQ(similarKey("commandversion"), "COMMANDVERSION");
    EXPECT_EQ(similarKey("COMPRESION"), "COMPRESSION");
    EXPECT_EQ(similarKey("RESOLUTION_3"), "RESOLUTIONS_3");
    EXPECT_EQ(similarKey("RESOLUTIONS12"), "RESOLUTIONS_12");
    EXPECT_EQ(similarKey("SOMETHING_ELSE"), "");
    EXPECT_EQ(similarKey("X"), "");
}

TEST(CheckKeys, TheManualListsThemAll)
{
    std::ifstream file(MAN_PAGE);
    const std::string page{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const Key& key : knownKeys()) {
        EXPECT_THAT(page, testing::ContainsRegex("[^A-Z_]" + key.name + "[^A-Z_]"));
    }
}

TEST(CheckCodes, TheManualListsThemAll)
{
    std::ifstream page(MAN_PAGE);
    std::string line;
    std::string listed = ",";
    for (bool isIn = false; std::getline(page, line);) {
        isIn = line == ".SH CODES" || (isIn && line.rfind(".SH", 0) != 0);
        listed += isIn ? line + "," : "";
    }
    for (std::size_t at = 0; (at = listed.find_first_of("\\ ", at)) != std::string::npos;) {
        listed.erase(at, 1);
    }
    // Every text in the sources that looks like one.
    const std::regex code("\"([a-z0-9]+(?:-[a-z0-9]+)+|crlf)\"");
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CHECK_FOLDER)) {
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file),
                               std::istreambuf_iterator<char>()};
        for (std::sregex_iterator at(text.begin(), text.end(), code), end; at != end; ++at) {
            const std::string name = (*at)[1];
            if (name != "scanlib-check") {
                ++found;
                EXPECT_THAT(listed, testing::HasSubstr("," + name + ",")) << entry.path();
            }
        }
    }
    EXPECT_GT(found, 80);
}

TEST(CheckKeys, ResolutionsAreNumberedFromOneWithoutZerosInFront)
{
    EXPECT_EQ(resolutionNumber("RESOLUTIONS_1"), 1);
    EXPECT_EQ(resolutionNumber("RESOLUTIONS_1024"), 1024);
    for (const char* name : {"RESOLUTIONS_0", "RESOLUTIONS_01", "RESOLUTIONS_1025", "RESOLUTIONS_",
                             "RESOLUTIONS_1x", "RESOLUTIONS", "resolutions_1"}) {
        EXPECT_EQ(resolutionNumber(name), 0) << name;
    }
}
