// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FlatFileReader.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <cerrno>

#include <syslog.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

// ---- what a file leaves in the store ------------------------------------------------

struct Contents {
    Lines ints, doubles, strings;  // "key = value"
};

bool operator==(const Contents& a, const Contents& b)
{
    return a.ints == b.ints && a.doubles == b.doubles && a.strings == b.strings;
}

void PrintTo(const Contents& contents, std::ostream* out)
{
    *out << testing::PrintToString(contents.ints) << testing::PrintToString(contents.doubles)
         << testing::PrintToString(contents.strings);
}

Contents contentsOf(ConfigReader& store)
{
    const LogCapture capture;
    store.DisplayConfig();
    Contents contents;
    Lines* section = nullptr;
    for (const std::string& line : capture.lines()) {
        if (line == "Integer Options") {
            section = &contents.ints;
        } else if (line == "Double Options") {
            section = &contents.doubles;
        } else if (line == "String Options") {
            section = &contents.strings;
        } else if (section != nullptr && line != "End of Config Options") {
            section->push_back(line);
        }
    }
    return contents;
}

struct FileCase {
    const char* name;
    std::string content;
    Contents expected;
};

class FlatFileReaderContent : public testing::TestWithParam<FileCase> {};

TEST_P(FlatFileReaderContent, IsStored)
{
    TempFolder folder;
    FlatFileReader reader;
    EXPECT_EQ(reader.LoadConfig(folder.file("model", GetParam().content).c_str()), 1);
    EXPECT_EQ(contentsOf(reader), GetParam().expected);
}

std::string chars(std::size_t n)
{
    return std::string(n, 'x');
}

const FileCase kFiles[] = {
    {"Empty", "", {}},
    {"Example",
     "[INTEGERS]\nCOMMANDVERSION=401\nENABLE_NPA=1\n[DOUBLES]\nCURRENTBRX=215.9\n[STRINGS]\n"
     "SCLIB=/usr/qilinkjet/qil08/lib/libCS_ScanCorrect.so\n",
     {{"COMMANDVERSION = 401", "ENABLE_NPA = 1"},
      {"CURRENTBRX = 215.900000"},
      {"SCLIB = /usr/qilinkjet/qil08/lib/libCS_ScanCorrect.so"}}},
    {"BlanksAroundHeader", "  [DOUBLES]  \nA=1\n", {{}, {"A = 1.000000"}, {}}},
    {"HeaderIsCaseSensitive", "[doubles]\nA=1\n[Integers]\nB=2\n", {}},
    {"HeaderIsTheWholeLine", "[INTEGERS] x\nA=1\n[INTEGERS\nB=1\nx[INTEGERS]\nC=1\n", {}},
    {"BeforeTheFirstHeader", "A=1\n[INTEGERS]\nB=2\n", {{"B = 2"}, {}, {}}},
    {"UnknownHeaderKeepsTheSection", "[INTEGERS]\n[OTHER]\nA=1\n", {{"A = 1"}, {}, {}}},
    {"HeaderAsKey", "[INTEGERS]\n[STRINGS]=5\nA=1\n", {{"A = 1", "[STRINGS] = 5"}, {}, {}}},
    {"SectionsComeBack",
     "[INTEGERS]\nA=1\n[STRINGS]\nA=1\n[INTEGERS]\nB=2\n",
     {{"A = 1", "B = 2"}, {}, {"A = 1"}}},
    {"Comments",
     "[INTEGERS]\n#COMPRESSION=1\n  # A=2\nB=3 # note\nC#=4\n",
     {{"B = 3", "C# = 4"}, {}, {}}},
    {"NoteInAString", "[STRINGS]\nCOMPRESSION=1 # note\n", {{}, {}, {"COMPRESSION = 1 # note"}}},
    // Only the first character of the line makes a comment.
    {"HashBehindEqualSign", "[INTEGERS]\n=#A=5\n", {{"#A = 5"}, {}, {}}},
    {"EmptyLines", "\n\n[INTEGERS]\n   \n\t\nA=1\n\n", {{"A = 1"}, {}, {}}},
    {"NoValue", "[INTEGERS]\nKEY=\nKEY\n", {}},
    {"NoKey", "[INTEGERS]\n=5\n", {}},
    {"OnlyEqualSigns", "[STRINGS]\n=\n====\n", {}},
    {"Pairs", "[INTEGERS]\nA=1=B=2\n", {{"A = 1", "B = 2"}, {}, {}}},
    {"LoneThird", "[INTEGERS]\nA=1=B\n", {{"A = 1"}, {}, {}}},
    {"RunsOfEqualSigns", "[STRINGS]\n==A===5==B=6=\n", {{}, {}, {"A = 5", "B = 6"}}},
    {"NoEqualSignInAString", "[STRINGS]\nA=x=y\n", {{}, {}, {"A = x"}}},
    {"BlanksBelongToKeyAndValue",
     "[INTEGERS]\n  A = 1  \n[STRINGS]\nA = 1  \n",
     {{"A  = 1"}, {}, {"A  =  1"}}},
    {"BlankValueIsTrimmedAway", "[STRINGS]\nA=  \n", {}},
    {"Integers",
     "[INTEGERS]\nA=-7\nB=+7\nC=12abc\nD=abc\nE=0x10\nF=3.9\nG=\t8\nH=007\n",
     {{"A = -7", "B = 7", "C = 12", "D = 0", "E = 0", "F = 3", "G = 8", "H = 7"}, {}, {}}},
    {"Doubles",
     "[DOUBLES]\nA=1e3\nB=-0.5\nC=abc\nD=2.5mm\nE= 4\n",
     {{},
      {"A = 1000.000000", "B = -0.500000", "C = 0.000000", "D = 2.500000", "E = 4.000000"},
      {}}},
    {"LaterValueStays", "[INTEGERS]\nA=1\nA=2\n[STRINGS]\nA=x\nA=y\n", {{"A = 2"}, {}, {"A = y"}}},
    {"NoNewlineAtTheEnd", "[INTEGERS]\nA=1", {{"A = 1"}, {}, {}}},
    {"CarriageReturns", "[INTEGERS]\r\nA=1\r\n[STRINGS]\r\nB=x\r\n", {{"A = 1"}, {}, {"B = x"}}},
    {"LongestLine",
     "[STRINGS]\nK=" + chars(4092) + "\nL=5\n",
     {{}, {}, {"K = " + chars(1019), "L = 5"}}},
    // The listing cuts at 1023 characters, so the split shows in the second entry.
    {"LongLineIsSplit",
     "[STRINGS]\nK=" + chars(4093) + "L=5\n",
     {{}, {}, {"K = " + chars(1019), "L = 5"}}},
    {"RestOfALongLine", "[STRINGS]\nK=" + chars(5000) + "\n", {{}, {}, {"K = " + chars(1019)}}},
    {"SplitHeader", "#" + chars(4094) + "[INTEGERS]\nA=1\n", {{"A = 1"}, {}, {}}},
    {"NulBytes",
     std::string("[INTEGERS]\n\0\nA=1\0B=2\n\0=\nC=3\n", 27),
     {{"A = 1", "C = 3"}, {}, {}}},
};

INSTANTIATE_TEST_SUITE_P(Files, FlatFileReaderContent, testing::ValuesIn(kFiles), CaseName());

TEST(FlatFileReader, SplitsLongLinesAt4095Characters)
{
    TempFolder folder;
    FlatFileReader reader;
    const std::string path = folder.file("model", "[STRINGS]\nK=" + chars(4093) + "L=5\n");
    EXPECT_EQ(reader.LoadConfig(path.c_str()), 1);
    EXPECT_EQ(reader.GetStringOption("K"), chars(4093));
    EXPECT_STREQ(reader.GetStringOption("L"), "5");
}

TEST(FlatFileReader, LaterFilesAddAndOverwrite)
{
    TempFolder folder;
    FlatFileReader reader;
    reader.SetIntOption("SET", 1);
    EXPECT_EQ(reader.LoadConfig(folder.file("one", "[INTEGERS]\nA=1\nB=2\n").c_str()), 1);
    // The section starts anew with each file.
    EXPECT_EQ(reader.LoadConfig(folder.file("two", "A=9\n[INTEGERS]\nB=3\nC=4\n").c_str()), 1);
    EXPECT_EQ(reader.LoadConfig(folder.file("three", "").c_str()), 1);
    EXPECT_EQ(contentsOf(reader), (Contents{{"A = 1", "B = 3", "C = 4", "SET = 1"}, {}, {}}));
}

TEST(FlatFileReader, ComputedKeysMayBePreset)
{
    TempFolder folder;
    FlatFileReader reader;
    reader.LoadConfig(folder
                          .file("model",
                                "[INTEGERS]\nLINES=50\nCURRENTDPI=254\n"
                                "[DOUBLES]\nCURRENTBRX=10\n")
                          .c_str());
    EXPECT_EQ(reader.GetIntOption("LINES"), 50);
    EXPECT_EQ(reader.GetIntOption("SCANWIDTH"), 100);
}

TEST(FlatFileReader, SurvivesRandomFiles)
{
    Random random(21);
    const std::string pieces[] = {"[INTEGERS]",
                                  "[DOUBLES]",
                                  "[STRINGS]",
                                  "=",
                                  "\n",
                                  "#",
                                  " ",
                                  "A",
                                  "99999999999999999999",
                                  "1e999",
                                  "nan",
                                  "-",
                                  std::string(1, '\0'),
                                  "\xFF"};
    TempFolder folder;
    for (int round = 0; round < 200; ++round) {
        std::string content;
        for (int i = random.pick(0, 80); i > 0; --i) {
            content += pieces[random.pick(0, static_cast<int>(std::size(pieces)) - 1)];
            if (random.pick(0, 60) == 0) {
                content += std::string(static_cast<std::size_t>(random.pick(4000, 4200)), '=');
            }
        }
        FlatFileReader reader;
        ASSERT_EQ(reader.LoadConfig(folder.file("model", content).c_str()), 1);
        // No key and no value ever holds "=" or a line end.
        for (const std::string& entry : contentsOf(reader).strings) {
            EXPECT_EQ(entry.find('\n'), std::string::npos);
        }
    }
}

// ---- failures ------------------------------------------------------------------------

TEST(FlatFileReader, AMissingFileFails)
{
    TempFolder folder;
    const LogCapture capture;
    FlatFileReader reader;
    EXPECT_EQ(reader.LoadConfig(folder.missing().c_str()), 0);
    EXPECT_THAT(capture.messages(), ElementsAre("::::::::::::::: METHOD START ::::::::::::::: ",
                                                "checking config file: " + folder.missing(),
                                                "[ERROR] The file " + folder.missing() +
                                                    " does not exist. 2; " + strerror(ENOENT),
                                                "::::::::::::::: METHOD END ::::::::::::::: 0"));
    EXPECT_THAT(capture.lines()[2], MatchesRegex(".P:[0-9]+ T:-?[0-9]+. src/FlatFileRea : "
                                                 "[0-9]+ +LoadConfig           -- .ERROR. .*"));
}

TEST(FlatFileReader, AnUnopenableFileFailsUnderAFixedName)
{
    TempFolder folder;
    const std::string path = folder.unopenable();
    const LogCapture capture;
    FlatFileReader reader;
    EXPECT_EQ(reader.LoadConfig(path.c_str()), 0);
    EXPECT_THAT(capture.messages(),
                ElementsAre("::::::::::::::: METHOD START ::::::::::::::: ",
                            "checking config file: " + path, "opening config file: " + path,
                            "[ERROR] Error opening /tmp/Temp.conf file. " + std::to_string(ENXIO) +
                                "; " + strerror(ENXIO),
                            "::::::::::::::: METHOD END ::::::::::::::: 0"));
}

TEST(FlatFileReader, NoPathFails)
{
    FlatFileReader reader;
    reader.SetIntOption("A", 1);
    EXPECT_EQ(reader.LoadConfig(nullptr), 0);
    EXPECT_EQ(reader.LoadConfig(""), 0);
    EXPECT_EQ(contentsOf(reader), (Contents{{"A = 1"}, {}, {}}));
}

// ---- the log -------------------------------------------------------------------------

TEST(FlatFileReader, LogsLinesAndEntries)
{
    TempFolder folder;
    const std::string path = folder.file(
        "model", "A=0\n[INTEGERS]\n A=1=B=2 \n[DOUBLES]\nC=25.4\n# x\n\n[STRINGS]\nD=100%d");
    const LogCapture capture;
    FlatFileReader reader;
    EXPECT_EQ(reader.LoadConfig(path.c_str()), 1);
    EXPECT_THAT(
        capture.messages(),
        ElementsAre(
            "::::::::::::::: METHOD START ::::::::::::::: ", "checking config file: " + path,
            "opening config file: " + path, "config entry = A=0\n", "config entry = [INTEGERS]\n",
            "config entry =  A=1=B=2 \n", "szCurrentKey = A", "iKeyValue = 1", "szCurrentKey = B",
            "iKeyValue = 2", "config entry = [DOUBLES]\n", "config entry = C=25.4\n",
            "szCurrentKey = C", "iKeyValue = 25.400", "config entry = # x\n", "config entry = \n",
            "config entry = [STRINGS]\n", "config entry = D=100%d", "szCurrentKey = D",
            "szKeyValue = 100%d", "::::::::::::::: METHOD END ::::::::::::::: 1"));
    EXPECT_EQ(capture.priorities(), std::vector<int>(capture.lines().size(), LOG_DEBUG));
}

// ---- the parts -----------------------------------------------------------------------

class Stream {
public:
    explicit Stream(std::string text)
        : content(std::move(text)), file(fmemopen(content.data(), content.size(), "r"))
    {
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { fclose(file); }

    std::string content;
    FILE* file;
};

TEST(FlatFileReader, ReadsTrimmedLines)
{
    Stream stream(" \t a b \v\f\r\n\nlast");
    FlatFileReader reader;
    char buffer[4096];
    const LogCapture capture;
    for (const char* expected : {"a b", "", "last"}) {
        EXPECT_EQ(reader.ConfigParser(buffer, sizeof buffer, stream.file), buffer);
        EXPECT_STREQ(buffer, expected);
    }
    EXPECT_EQ(reader.ConfigParser(buffer, sizeof buffer, stream.file), nullptr);
    EXPECT_THAT(capture.plainMessages(), ElementsAre("config entry =  \t a b \v\f\r\n",
                                                     "config entry = \n", "config entry = last"));
}

TEST(FlatFileReader, ReadsNoMoreThanTheBufferHolds)
{
    Stream stream("abcdefg\n");
    FlatFileReader reader;
    char buffer[8] = {0, 0, 0, 0, 'G', 'U', 'R', 'D'};
    EXPECT_EQ(reader.ConfigParser(buffer, 4, stream.file), buffer);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(reader.ConfigParser(buffer, 4, stream.file), buffer);
    EXPECT_STREQ(buffer, "def");
    EXPECT_EQ(reader.ConfigParser(buffer, 4, stream.file), buffer);
    EXPECT_STREQ(buffer, "g");
    EXPECT_EQ(std::string(buffer + 4, 4), "GURD");
}

TEST(FlatFileReader, SkipsWhiteSpace)
{
    FlatFileReader reader;
    const char* text = " \t\r\n\v\fx ";
    EXPECT_EQ(reader.SkipWhiteSpace(text), text + 6);
    EXPECT_EQ(reader.SkipWhiteSpace(nullptr), nullptr);
    const char* high = "\x85";
    EXPECT_EQ(reader.SkipWhiteSpace(high), high);
}

}  // namespace
