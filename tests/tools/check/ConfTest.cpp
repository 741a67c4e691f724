// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ConfFile.h"
#include "Support.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace check;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct ConfCase {
    const char* name;
    std::string line;  // "@" stands for a feature file that is there
    bool isSkipped;
    std::vector<std::string> codes;
    const char* words;  // of the first message
};

class ConfLines : public testing::TestWithParam<ConfCase> {};

std::string withFile(std::string text, const std::string& file)
{
    for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@')) {
        text.replace(at, 1, file);
    }
    return text;
}

}  // namespace

TEST_P(ConfLines, AreJudged)
{
    const Folder folder;
    const std::string features = folder.write("a.ini", "");
    const std::string text =
        "usb 1 2 " + features + " First\n" + withFile(GetParam().line, features);
    Findings findings;
    const ConfFile file = ConfFile::read(folder.write("a.conf", text + "\n"), findings);
    EXPECT_EQ(codesOf(findings), GetParam().codes) << testing::PrintToString(findings);
    EXPECT_EQ(!file.skipped.empty(), GetParam().isSkipped);
    EXPECT_THAT(findings.empty() ? "" : findings[0].message, HasSubstr(GetParam().words));
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.severity != Severity::Note, !finding.advice.empty()) << finding.code;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, ConfLines,
    testing::Values(
        ConfCase{"Good", "usb 0x1234 0xABCD @ A_B", false, {}, ""},
        ConfCase{"Comment", "  # usb", false, {}, ""}, ConfCase{"Blank", "   \t ", false, {}, ""},
        ConfCase{"Capitals", "USB 1 3 @ X", true, {"error 2 wrong-word"}, "small letters"},
        ConfCase{"Misspelt", "ubs 1 3 @ X", true, {"error 2 wrong-word"}, "did you mean"},
        ConfCase{"OtherWord", "scsi 1 3 @ X", true, {"error 2 wrong-word"}, "'scsi'"},
        ConfCase{"OnlyUsb", "usb", true, {"error 2 too-few-fields"}, "vendor ID, product ID"},
        ConfCase{"NoName", "usb 1 3 @", true, {"error 2 too-few-fields"}, "missing: model name"},
        ConfCase{"NoHex", "usb 1 g4 @ X", true, {"error 2 id-not-hexadecimal"}, "product ID 'g4'"},
        ConfCase{"NoHexVendor", "usb zz 3 @ X", true, {"error 2 id-not-hexadecimal"}, "vendor ID"},
        ConfCase{"TooLarge", "usb 12345 3 @ X", false, {"error 2 id-too-large"}, "no device"},
        ConfCase{"Overflow", "usb 0x100001234 3 @ X", false, {"error 2 id-too-large"}, "1234."},
        ConfCase{"Behind", "usb 1 3 @ X Y Z", false, {"warning 2 text-behind-name"}, "'Y'"},
        ConfCase{"CommentBehind", "usb 1 3 @ X # Y", false, {"note 2 text-behind-name"}, "'#'"},
        ConfCase{"CommentName", "usb 1 3 @ #X", false, {"warning 2 comment-as-name"}, "'#X'"},
        ConfCase{"RunTogether", "usb1 3 @ X", false, {"warning 2 fields-run-together"}, "0001"},
        ConfCase{"NoBlank", "usb 1 3@ X", false, {"warning 2 fields-run-together"}, "0003"},
        ConfCase{"HalfHex",
                 "usb 1 12g4 @ X",
                 false,
                 {"warning 2 fields-run-together", "error 2 feature-path-relative"},
                 "'12g4' is no hexadecimal number"},
        ConfCase{"Negative",
                 "usb -1 3 @ X",
                 false,
                 {"warning 2 fields-run-together", "error 2 id-too-large"},
                 "ffffffff"},
        ConfCase{"Relative", "usb 1 3 a.ini X", false, {"error 2 feature-path-relative"}, "a.ini"},
        ConfCase{"Quoted", "usb 1 3 \"@\" X", false, {"error 2 feature-path-relative"}, ""},
        ConfCase{"PathWithBlank",
                 "usb 1 3 /no/my file.ini X",
                 false,
                 {"warning 2 text-behind-name", "error 2 feature-file-missing"},
                 "'X'"},
        ConfCase{
            "Missing", "usb 1 3 /no/x.ini X", false, {"error 2 feature-file-missing"}, "fails"},
        ConfCase{"FolderAsFile", "usb 1 3 /usr X", false, {"error 2 feature-file-not-a-file"}, ""},
        ConfCase{"Duplicate", "usb 0x0001 0002 @ X", false, {"warning 2 duplicate-ids"}, "line 1"},
        ConfCase{"Mark", "\xEF\xBB\xBFusb 1 3 @ X", true, {"error 2 wrong-word"}, "invisible"}),
    CaseName());

namespace {

std::vector<std::string> codesOfFile(const std::string& text, ConfFile* out = nullptr)
{
    const Folder folder;
    Findings findings;
    const ConfFile file =
        ConfFile::read(folder.write("a.conf", withFile(text, folder.write("a.ini", ""))), findings);
    if (out != nullptr) {
        *out = file;
    }
    return codesOf(findings);
}

}  // namespace

TEST(CheckConf, ModelsAreAsTheBackendHasThem)
{
    ConfFile file;
    EXPECT_THAT(codesOfFile("usb 0x12 a @ A__B\nusb 12 0xA @ C\n", &file),
                ElementsAre("warning 2 duplicate-ids"));
    ASSERT_EQ(file.models.size(), 2U);
    EXPECT_EQ(file.models[0].vendor, 0x12U);
    EXPECT_EQ(file.models[0].product, 0xAU);
    EXPECT_EQ(file.models[0].name, "A  B");
    EXPECT_TRUE(file.models[0].counts);
    EXPECT_FALSE(file.models[1].counts);
    EXPECT_EQ(file.find(0x12, 0xA), &file.models[0]);
}

TEST(CheckConf, FilesWithoutModels)
{
    EXPECT_THAT(codesOfFile(""), ElementsAre("error 0 no-models"));
    EXPECT_THAT(codesOfFile("# nothing\n"), ElementsAre("error 0 no-models"));
    EXPECT_THAT(codesOfFile("x\n"), ElementsAre("error 1 wrong-word", "error 0 no-models"));
}

TEST(CheckConf, EndsOfLines)
{
    EXPECT_THAT(codesOfFile("usb 1 2 @ A\r\nusb 1 3 @ B\r\n"), ElementsAre("note 0 crlf"));
    EXPECT_THAT(codesOfFile("usb 1 2 @ A\nusb 1 3 @ B"), ElementsAre("note 2 no-final-newline"));
}

TEST(CheckConf, InvisibleMarkAtTheBeginning)
{
    EXPECT_THAT(codesOfFile("\xEF\xBB\xBFusb 1 2 @ A\nusb 1 3 @ B\n"),
                ElementsAre("error 1 byte-order-mark", "error 1 wrong-word"));
}

TEST(CheckConf, ZeroBytes)
{
    EXPECT_THAT(codesOfFile(std::string("usb 1 2 @ A\0 more\n", 18)),
                ElementsAre("error 1 nul-byte"));
}

TEST(CheckConf, LinesThatAreTooLong)
{
    const std::string comment = "#" + std::string(4094, 'x');
    ConfFile file;
    EXPECT_THAT(codesOfFile(comment + "usb 1 2 @ Behind\nusb 1 3 @ B\n", &file),
                ElementsAre("error 1 line-too-long"));
    ASSERT_EQ(file.models.size(), 2U);
    EXPECT_EQ(file.models[0].line, 1);
    EXPECT_EQ(file.models[1].line, 2);
    // As long as a line can be.
    EXPECT_THAT(codesOfFile(comment + "\nusb 1 3 @ B\n", &file), ElementsAre());
    ASSERT_EQ(file.models.size(), 1U);
    EXPECT_EQ(file.models[0].line, 2);
    EXPECT_THAT(codesOfFile(comment + "x\nusb 1 3 @ B\n"),
                ElementsAre("error 1 line-too-long", "error 1 wrong-word"));
}

TEST(CheckConf, FilesThatCannotBeRead)
{
    const Folder folder;
    Findings findings;
    EXPECT_FALSE(ConfFile::read(folder / "none.conf", findings).isRead);
    EXPECT_FALSE(ConfFile::read(folder / "", findings).isRead);
    EXPECT_FALSE(
        ConfFile::read(folder.write("large.conf", std::string(300000, '\n')), findings).isRead);
    EXPECT_THAT(codesOf(findings), ElementsAre("error 0 file-missing", "error 0 not-a-file",
                                               "error 0 file-too-large"));
}

TEST(CheckConf, FeatureFilesForSomeUsersOnly)
{
    const Folder folder;
    const std::string features = folder.write("a.ini", "");
    chmod(features.c_str(), 0600);
    Findings findings;
    ConfFile::read(folder.write("a.conf", "usb 1 2 " + features + " X\n"), findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 1 feature-file-private"));
}

TEST(CheckConf, FilesInAFolderThatMayNotBeEntered)
{
    const Folder folder;
    const std::string features = folder.write("closed/a.ini", "");
    const std::string inside = folder.write("closed/a.conf", "");
    const std::string outside = folder.write("a.conf", "usb 1 2 " + features + " X\n");
    chmod((folder / "").c_str(), 0755);
    chmod((folder / "closed").c_str(), 0);
    const uid_t user = geteuid();
    constexpr uid_t kNobody = 65534;
    // Root of a user namespace that has no other user cannot become one.
    if (user == 0 && seteuid(kNobody) != 0) {
        GTEST_SKIP() << "nothing is closed to root, and there is no other user here";
    }
    Findings findings;
    EXPECT_FALSE(ConfFile::read(inside, findings).isRead);
    EXPECT_TRUE(ConfFile::read(outside, findings).isRead);
    EXPECT_EQ(seteuid(user), 0);
    chmod((folder / "closed").c_str(), 0700);
    EXPECT_THAT(codesOf(findings),
                ElementsAre("error 0 file-unreadable", "error 1 feature-file-unreadable"));
    EXPECT_THAT(findings[1].message, HasSubstr("a.ini' may not be read by you, so opening 'X'"));
    EXPECT_THAT(findings[1].advice, HasSubstr("enter the folders"));
}

TEST(CheckConf, IdsInTwoFiles)
{
    const Folder folder;
    const std::string line = "usb 1 2 " + folder.write("a.ini", "") + " X\n";
    Findings findings;
    const std::vector<ConfFile> files = {ConfFile::read(folder.write("a.conf", line), findings),
                                         ConfFile::read(folder.write("b.conf", line), findings)};
    EXPECT_THAT(codesOf(findings), ElementsAre());
    judgeTogether(files, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 1 ids-in-two-files"));
    EXPECT_EQ(findings[0].place, folder / "b.conf");
}

TEST(CheckConf, HostileTextsAreHarmlessInMessages)
{
    const Folder folder;
    Findings findings;
    ConfFile::read(folder.write("a.conf", "\033]0;evil\007 1 2 3 4\n"), findings);
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.message.find('\033'), std::string::npos);
    }
    EXPECT_THAT(messageOf(findings, "wrong-word"), HasSubstr("\\x1b]0;evil\\x07"));
}
