// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SaneConfReader.h"
#include "LogCapture.h"
#include "TestSupport.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

PRIVATE_MEMBER(SaneConfReader, ScannerList, std::deque<ScannerInfo>);

Lines entriesOf(SaneConfReader& reader)
{
    Lines entries;
    for (const ScannerInfo& info : ScannerList(reader)) {
        entries.push_back(std::to_string(info.iVID) + " " + std::to_string(info.iPID) + " " +
                          info.szFeaturePathFname + "|" + info.szModelName);
    }
    return entries;
}

// ---- lines ----------------------------------------------------------------------------

struct LineCase {
    const char* name;
    std::string content;
    Lines expected;  // "vendor product path|model"
};

class SaneConfReaderContent : public testing::TestWithParam<LineCase> {};

TEST_P(SaneConfReaderContent, IsListed)
{
    TempFolder folder;
    SaneConfReader reader;
    EXPECT_EQ(reader.LoadConf(folder.file("conf", GetParam().content).c_str()), 1);
    EXPECT_EQ(entriesOf(reader), GetParam().expected);
}

std::string chars(std::size_t n, char c = 'x')
{
    return std::string(n, c);
}

const LineCase kContents[] = {
    {"Empty", "", {}},
    {"OnlyComments", "# usb 1 2 /a X\n\n   \n\t# usb 1 2 /a X\n#\n", {}},
    {"Example",
     "usb 0x1234 0x0a1b /usr/qilinkjet/qil08/etc/ModelA.ini Model_A_Series\n",
     {"4660 2587 /usr/qilinkjet/qil08/etc/ModelA.ini|Model A Series"}},
    {"LeadingBlanks", "  usb 4d 10 /a/b.ini X\n", {"77 16 /a/b.ini|X"}},
    {"UpperCaseWord", "USB 4d 10 /a/b.ini X\nUsb 4d 10 /a/b.ini X\n", {}},
    {"OtherWord", "usbx 4d 10 /a/b.ini X\nnet 4d 10 /a/b.ini X\nus\n", {}},
    {"MissingFields", "usb 4d 10 /a/b.ini\nusb 4d 10\nusb 4d\nusb\n", {}},
    {"NoNumbers", "usb xyz 10 /a X\nusb 10 xyz /a X\n", {}},
    {"HexInAnyCase",
     "usb 0XABCD 0xabcd /a X\nusb AbCd aBcD /b Y\n",
     {"43981 43981 /a|X", "43981 43981 /b|Y"}},
    {"AnyWhiteSpaceBetween", "usb\t4d \t 10\v/a/b.ini\fX\r\n", {"77 16 /a/b.ini|X"}},
    {"TextBehindTheFourthField", "usb 1 2 /a X # more text\n", {"1 2 /a|X"}},
    {"HashInsideALine", "usb 1 2 /a#b X#Y\n", {"1 2 /a#b|X#Y"}},
    {"UnderscoresOfTheModelOnly", "usb 1 2 /a_b _A__B_\n", {"1 2 /a_b| A  B "}},
    {"DuplicatesStay", "usb 1 2 /a X\nusb 1 2 /b Y\n", {"1 2 /a|X", "1 2 /b|Y"}},
    {"NoNewlineAtTheEnd", "usb 1 2 /a X", {"1 2 /a|X"}},
    {"SkipsBadLinesOnly", "garbage\nusb 1 2 /a X\nusb\nusb 3 4 /b Y\n", {"1 2 /a|X", "3 4 /b|Y"}},
    {"LongFields",
     "usb 1 2 " + chars(2000) + " " + chars(2000, 'y') + "\n",
     {"1 2 " + chars(2000) + "|" + chars(2000, 'y')}},
    {"FieldUpToTheEndOfTheBuffer", "usb 1 2 /a " + chars(4084) + "\n", {"1 2 /a|" + chars(4084)}},
    // A line is cut at 4095 characters; the rest is a line of its own.
    {"LongLineIsSplit", "#" + chars(4094) + "usb 1 2 /a X\n", {"1 2 /a|X"}},
    {"LongCommentHidesItsSecondPart", "#" + chars(4093) + "usb 1 2 /a X\n", {}},
    {"NulByte", std::string("usb 1 2 /a\0 X\nusb 3 4 /b Y\n", 28), {"3 4 /b|Y"}},
};

INSTANTIATE_TEST_SUITE_P(Contents, SaneConfReaderContent, testing::ValuesIn(kContents), CaseName());

// ---- look-ups -------------------------------------------------------------------------

TEST(SaneConfReader, FindsByBothIds)
{
    SaneConfReader reader;
    EXPECT_EQ(reader.isFound(0, 0), 0);
    EXPECT_EQ(reader.GetFeatureFile(0, 0), nullptr);
    reader.Add(1, 2, "/a", "A");
    reader.Add(1, 3, "/b", "B");
    reader.Add(1, 2, "/c", "C");
    EXPECT_EQ(reader.isFound(1, 2), 1);
    EXPECT_EQ(reader.isFound(1, 3), 1);
    EXPECT_EQ(reader.isFound(2, 1), 0);
    EXPECT_EQ(reader.isFound(1, 1), 0);
    EXPECT_EQ(reader.isFound(2, 2), 0);
    EXPECT_STREQ(reader.GetFeatureFile(1, 2), "/a");
    EXPECT_STREQ(reader.GetFeatureFile(1, 3), "/b");
    EXPECT_EQ(reader.GetFeatureFile(1, 4), nullptr);
    EXPECT_EQ(reader.GetFeatureFile(3, 3), nullptr);
}

TEST(SaneConfReader, CopiesWhatIsAdded)
{
    SaneConfReader reader;
    char path[] = "/a";
    char model[] = "A_B";
    reader.Add(1, 2, path, model);
    path[1] = model[0] = '!';
    EXPECT_THAT(entriesOf(reader), ElementsAre("1 2 /a|A_B"));
}

TEST(SaneConfReader, FeatureFileNamesLiveAsLongAsTheReader)
{
    SaneConfReader reader;
    const std::string longPath(100, 'p');
    reader.Add(1, 2, "/short", "A");
    reader.Add(3, 4, longPath.c_str(), "B");
    const char* first = reader.GetFeatureFile(1, 2);
    const char* second = reader.GetFeatureFile(3, 4);
    for (int i = 0; i < 1000; ++i) {
        reader.Add(5, i, "/other", "C");
    }
    EXPECT_STREQ(first, "/short");
    EXPECT_STREQ(second, longPath.c_str());
}

TEST(SaneConfReader, FurtherFilesAppend)
{
    TempFolder folder;
    SaneConfReader reader;
    EXPECT_EQ(reader.LoadConf(folder.file("one", "usb 1 2 /a X\n").c_str()), 1);
    EXPECT_EQ(reader.LoadConf(folder.file("two", "usb 1 2 /b Y\nusb 3 4 /c Z\n").c_str()), 1);
    EXPECT_THAT(entriesOf(reader), ElementsAre("1 2 /a|X", "1 2 /b|Y", "3 4 /c|Z"));
    EXPECT_STREQ(reader.GetFeatureFile(1, 2), "/a");
}

TEST(ScannerInfo, IsAValue)
{
    const ScannerInfo none;
    EXPECT_EQ(none.iVID, 0);
    EXPECT_EQ(none.iPID, 0);
    const ScannerInfo one = {1, 2, "/a", "A"};
    ScannerInfo copy = one;
    ScannerInfo assigned;
    assigned = copy;
    copy.szModelName = "B";
    EXPECT_EQ(assigned.iVID, 1);
    EXPECT_EQ(assigned.iPID, 2);
    EXPECT_EQ(assigned.szFeaturePathFname, "/a");
    EXPECT_EQ(assigned.szModelName, "A");
}

// ---- failures -------------------------------------------------------------------------

TEST(SaneConfReader, FilesThatCannotBeOpenedFail)
{
    TempFolder folder;
    SaneConfReader reader;
    reader.Add(1, 2, "/a", "A");
    for (const std::string& path : {folder.missing(), folder.unopenable(), std::string()}) {
        const LogCapture capture;
        EXPECT_EQ(reader.LoadConf(path.c_str()), 0);
        EXPECT_THAT(capture.messages(), Contains("Error opening configuration file."));
    }
    EXPECT_EQ(reader.LoadConf(nullptr), 0);
    EXPECT_THAT(entriesOf(reader), ElementsAre("1 2 /a|A"));
}

TEST(SaneConfReader, ReadsSilently)
{
    TempFolder folder;
    const std::string path = folder.file("conf", "usb 1 2 /a X\nmalformed\n");
    const LogCapture capture;
    SaneConfReader reader;
    EXPECT_EQ(reader.LoadConf(path.c_str()), 1);
    EXPECT_FALSE(capture.contains("malformed"));
    EXPECT_FALSE(capture.contains("Error"));
}

TEST(SaneConfReader, SurvivesRandomFiles)
{
    Random random(31);
    const std::string pieces[] = {"usb", " ", "0x", "ffffffffffffffffffff", "-1",   "/a",
                                  "_",   "#", "\n", std::string(1, '\0'),   "\xFF", "%s"};
    TempFolder folder;
    for (int round = 0; round < 200; ++round) {
        std::string content = round % 2 == 0 ? "usb 1 2 " : "";
        for (int i = random.pick(0, 60); i > 0; --i) {
            content += pieces[random.pick(0, static_cast<int>(std::size(pieces)) - 1)];
            if (random.pick(0, 60) == 0) {
                content += chars(static_cast<std::size_t>(random.pick(4000, 4200)));
            }
        }
        SaneConfReader reader;
        ASSERT_EQ(reader.LoadConf(folder.file("conf", content).c_str()), 1);
        for (const ScannerInfo& info : ScannerList(reader)) {
            EXPECT_FALSE(info.szFeaturePathFname.empty());
            EXPECT_EQ(info.szModelName.find('_'), std::string::npos);
        }
    }
}

// ---- the parts ------------------------------------------------------------------------

TEST(SaneConfReader, ReadsTrimmedLines)
{
    TempFolder folder;
    FILE* file = fopen(folder.file("conf", " \t a b \r\n\nabcdefg\n").c_str(), "r");
    ASSERT_NE(file, nullptr);
    SaneConfReader reader;
    char buffer[4096];
    EXPECT_EQ(reader.ConfigParser(buffer, sizeof buffer, file), buffer);
    EXPECT_STREQ(buffer, "a b");
    EXPECT_EQ(reader.ConfigParser(buffer, sizeof buffer, file), buffer);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(reader.ConfigParser(buffer, 5, file), buffer);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(reader.ConfigParser(buffer, 5, file), buffer);
    EXPECT_STREQ(buffer, "efg");
    EXPECT_EQ(reader.ConfigParser(buffer, sizeof buffer, file), nullptr);
    fclose(file);
}

TEST(SaneConfReader, SkipsWhiteSpace)
{
    SaneConfReader reader;
    const char* text = "\v x";
    EXPECT_EQ(reader.SkipWhiteSpace(text), text + 2);
    EXPECT_EQ(reader.SkipWhiteSpace(nullptr), nullptr);
}

}  // namespace
