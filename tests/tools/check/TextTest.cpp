// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Keys.h"
#include "Support.h"
#include "Text.h"

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

TEST(CheckKeys, ResolutionsAreNumberedFromOneWithoutZerosInFront)
{
    EXPECT_EQ(resolutionNumber("RESOLUTIONS_1"), 1);
    EXPECT_EQ(resolutionNumber("RESOLUTIONS_1024"), 1024);
    for (const char* name : {"RESOLUTIONS_0", "RESOLUTIONS_01", "RESOLUTIONS_1025", "RESOLUTIONS_",
                             "RESOLUTIONS_1x", "RESOLUTIONS", "resolutions_1"}) {
        EXPECT_EQ(resolutionNumber(name), 0) << name;
    }
}
