// SPDX-License-Identifier: LGPL-2.1-or-later
#include "TextLine.h"
#include "TestSupport.h"

namespace {

TEST(TextLine, KnowsTheSixBlanksOfTheCLocale)
{
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(TextLine::isSpace(static_cast<char>(c)), c == ' ' || (c >= '\t' && c <= '\r'))
            << c;
    }
}

TEST(TextLine, SkipsLeadingWhiteSpace)
{
    const char* text = " \t\v\f\r\nx y ";
    EXPECT_EQ(TextLine::skipWhiteSpace(text), text + 6);
    EXPECT_EQ(TextLine::skipWhiteSpace(text + 6), text + 6);
    const char* blanks = "   ";
    EXPECT_EQ(TextLine::skipWhiteSpace(blanks), blanks + 3);
    const char* hardBlank = "\xA0x";
    EXPECT_EQ(TextLine::skipWhiteSpace(hardBlank), hardBlank);
    EXPECT_EQ(TextLine::skipWhiteSpace(nullptr), nullptr);
}

TEST(TextLine, TrimsInPlace)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"x", "x"},
        {" x", "x"},
        {"x\r\n", "x"},
        {" a  b\t", "a  b"},
        {" \t\r\n ", ""},
        {"\n", ""},
        {"\xA0x\xA0", "\xA0x\xA0"},
        {"  long text  ", "long text"},
    };
    for (const auto& [given, expected] : cases) {
        std::vector<char> line(given.begin(), given.end());
        line.push_back('\0');
        TextLine::trim(line.data());
        EXPECT_STREQ(line.data(), expected.c_str()) << given;
    }
}

}  // namespace
