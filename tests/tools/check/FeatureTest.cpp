// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FeatureCheck.h"
#include "ModelCheck.h"
#include "Support.h"

using namespace check;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSubsetOf;
using testing::Not;

namespace {

struct LineCase {
    const char* name;
    std::string text;
    std::vector<std::string> codes;
    const char* words;  // of the first message
};

class FeatureLines : public testing::TestWithParam<LineCase> {};

Findings judgeText(const std::string& text)
{
    const Folder folder;
    Findings findings;
    judgeLines(FeatureFile::read(folder.write("a.ini", text + "\n"), findings), findings);
    return findings;
}

}  // namespace

TEST_P(FeatureLines, AreJudged)
{
    const Findings findings = judgeText(GetParam().text);
    EXPECT_EQ(codesOf(findings), GetParam().codes) << testing::PrintToString(findings);
    EXPECT_THAT(findings.empty() ? "" : findings[0].message, HasSubstr(GetParam().words));
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.severity != Severity::Note, !finding.advice.empty()) << finding.code;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, FeatureLines,
    testing::Values(
        LineCase{"Good",
                 "[INTEGERS]\nPREVIEW=1\n [DOUBLES] \nTOPLEFTX=1.5\n[STRINGS]\nSCFUNC=f",
                 {},
                 ""},
        LineCase{"Comment", "[INTEGERS]\n  #PREVIEW=x\n\n", {}, ""},
        LineCase{"NoEquals", "[INTEGERS]\nPREVIEW 1", {"error 2 no-equals"}, "'PREVIEW 1'"},
        LineCase{"NoValue", "[INTEGERS]\nPREVIEW=", {"error 2 no-value"}, "'PREVIEW'"},
        LineCase{"NoKey", "[INTEGERS]\n=5", {"error 2 no-key"}, "no key"},
        LineCase{"OnlyEquals", "[INTEGERS]\n==", {"error 2 no-value"}, "neither"},
        LineCase{"BeforeSection", "PREVIEW=1\n[INTEGERS]", {"error 1 before-section"}, "skipped"},
        LineCase{"UnknownHeader",
                 "[INTEGERS]\n[OTHER]",
                 {"error 2 unknown-section"},
                 "still belongs to [INTEGERS]"},
        LineCase{"FirstUnknownHeader",
                 "[OTHER]\nPREVIEW=1",
                 {"error 1 unknown-section", "error 2 before-section"},
                 "what follows is skipped"},
        LineCase{"SmallHeader", "[integers]", {"error 1 unknown-section"}, "mean [INTEGERS]?"},
        LineCase{
            "HeaderWithComment", "[DOUBLES] # mm", {"error 1 unknown-section"}, "mean [DOUBLES]?"},
        LineCase{"BlankInKey", "[INTEGERS]\nPREVIEW =1", {"error 2 blank-in-key"}, "'PREVIEW '"},
        LineCase{"BlankInNumber", "[INTEGERS]\nPREVIEW= 1", {"note 2 blank-in-value"}, ""},
        LineCase{"BlankInText", "[STRINGS]\nSCFUNC= f", {"warning 2 blank-in-value"}, "' f'"},
        LineCase{"Misspelt", "[INTEGERS]\nPREVEIW=1", {"warning 2 misspelt-key"}, "mean PREVIEW?"},
        LineCase{"SmallKey", "[INTEGERS]\npreview=1", {"warning 2 misspelt-key"}, "mean PREVIEW?"},
        LineCase{
            "Unknown", "[INTEGERS]\nWHATEVER_ELSE=1", {"warning 2 unknown-key"}, "never reads"},
        LineCase{"Computed", "[INTEGERS]\nLINES=1", {"warning 2 computed-key"}, "computed"},
        LineCase{
            "WrongSection", "[STRINGS]\nPREVIEW=1", {"error 2 wrong-section"}, "below [INTEGERS]"},
        LineCase{"AreaBelowIntegers",
                 "[INTEGERS]\nTOPLEFTX=1",
                 {"error 2 wrong-section"},
                 "below [DOUBLES]"},
        LineCase{
            "Repeated", "[INTEGERS]\nPREVIEW=1\nPREVIEW=0", {"warning 3 duplicate-key"}, "line 2"},
        LineCase{"NoNumber", "[INTEGERS]\nPREVIEW=yes", {"error 2 not-a-number"}, "0 is read"},
        LineCase{"Fraction", "[INTEGERS]\nCURRENTDPI=75.5", {"warning 2 number-tail"}, "whole"},
        LineCase{"CommentBehind",
                 "[INTEGERS]\nPREVIEW=1 # no",
                 {"warning 2 number-tail"},
                 "read as 1: '# no'"},
        LineCase{"Comma", "[DOUBLES]\nTOPLEFTX=1,5", {"warning 2 number-tail"}, "point"},
        LineCase{"Unit", "[DOUBLES]\nTOPLEFTX=1.5mm", {"warning 2 number-tail"}, "1.5: 'mm'"},
        LineCase{
            "TooLarge", "[INTEGERS]\nCURRENTDPI=99999999999", {"error 2 number-too-large"}, ""},
        LineCase{"Infinite", "[DOUBLES]\nTOPLEFTX=inf", {"error 2 number-too-large"}, "inf"},
        LineCase{"NotANumber", "[DOUBLES]\nTOPLEFTX=nan", {"error 2 not-a-number"}, "is none."},
        LineCase{"Protocol",
                 "[INTEGERS]\nCOMMANDVERSION=400",
                 {"error 2 value-not-allowed"},
                 "only 326, 401 or 402"},
        LineCase{"Resolution",
                 "[INTEGERS]\nRESOLUTIONS_1=0",
                 {"error 2 value-out-of-range"},
                 "1 to 65535"},
        LineCase{"OnAnyway",
                 "[INTEGERS]\nBGRTORGB=-1",
                 {"warning 2 value-counts-as"},
                 "0 or 1; -1 counts as 1"},
        LineCase{"FramedAnyway",
                 "[INTEGERS]\nENABLE_NPA=7",
                 {"warning 2 value-counts-as"},
                 "7 counts as 1"},
        LineCase{"NotFramed",
                 "[INTEGERS]\nENABLE_NPA=-1",
                 {"warning 2 value-counts-as"},
                 "-1 counts as 0"},
        LineCase{"Media", "[INTEGERS]\nMEDIA_INDEX=34", {"error 2 value-out-of-range"}, "0 to 33"},
        LineCase{"NegativeArea", "[DOUBLES]\nTOPLEFTX=-1", {"error 2 value-out-of-range"}, ""},
        LineCase{"HugeArea", "[DOUBLES]\nBOTTOMRIGHTX=40000", {"error 2 value-out-of-range"}, ""},
        LineCase{"SeveralPairs",
                 "[INTEGERS]\nPREVIEW=1=ADFPREVIEW=0",
                 {"warning 2 several-pairs"},
                 "2 keys"},
        LineCase{"ValueCut", "[STRINGS]\nSCLIB=/a=b", {"warning 2 value-cut"}, "'b'"},
        LineCase{"CommentInText",
                 "[STRINGS]\nSCFUNC=f # no",
                 {"warning 2 comment-in-value"},
                 "'f # no'"},
        LineCase{"NeedlessEquals", "[INTEGERS]\nPREVIEW==1", {"note 2 needless-equals"}, ""}),
    CaseName());

TEST(CheckFeatures, AKeyMayStandInSeveralSections)
{
    EXPECT_THAT(codesOf(judgeText("[STRINGS]\nPREVIEW=1\n[INTEGERS]\nPREVIEW=1")),
                ElementsAre("error 2 wrong-section"));
}

// ---- the model as a whole --------------------------------------------------------

namespace {

const char* const kWhole =
    "[INTEGERS]\nCOMMANDVERSION=401\nENABLE_NPA=1\nRESOLUTIONS=2\nRESOLUTIONS_1=75\n"
    "RESOLUTIONS_2=300\nCURRENTDPI=300\nCOLORDEPTH=3\nSCAN_SOURCE=1\n[DOUBLES]\n"
    "BOTTOMRIGHTX=215.9\nBOTTOMRIGHTY=297\nCURRENTBRX=215.9\nCURRENTBRY=279.4\n";

Findings judgeWhole(const std::string& text, bool isInUse = true)
{
    const Folder folder;
    Findings findings;
    judgeModel(FeatureFile::read(folder.write("a.ini", text), findings), isInUse, findings);
    return findings;
}

// A whole file in which a line is another one.
Findings judgeWith(const std::string& key, const std::string& line)
{
    std::string text = kWhole;
    const std::size_t at = text.find(key + "=");
    text.replace(at, text.find('\n', at) + 1 - at, line);
    return judgeWhole(text);
}

Findings judgeMore(const std::string& integers)
{
    return judgeWith("ENABLE_NPA", "ENABLE_NPA=1\n" + integers + "\n");
}

}  // namespace

TEST(CheckModel, AWholeFileIsFine)
{
    EXPECT_THAT(codesOf(judgeWhole(kWhole)), ElementsAre());
}

TEST(CheckModel, MissingKeysAreNamedWithWhatHappens)
{
    for (const char* key : {"COMMANDVERSION", "CURRENTDPI", "COLORDEPTH", "BOTTOMRIGHTX",
                            "BOTTOMRIGHTY", "CURRENTBRX", "CURRENTBRY"}) {
        const Findings findings = judgeWith(key, "");
        EXPECT_THAT(codesOf(findings), ElementsAre("warning 0 missing-key")) << key;
        EXPECT_THAT(messageOf(findings, "missing-key"), HasSubstr(key));
    }
    EXPECT_THAT(messageOf(judgeWith("COMMANDVERSION", ""), "missing-key"),
                HasSubstr("protocol 326 is spoken"));
    for (const char* key : {"ENABLE_NPA", "SCAN_SOURCE"}) {
        EXPECT_THAT(codesOf(judgeWith(key, "")), ElementsAre("note 0 missing-key")) << key;
    }
}

TEST(CheckModel, AnEmptyFileLacksEverything)
{
    const std::vector<std::string> codes = codesOf(judgeWhole(""));
    EXPECT_EQ(std::count(codes.begin(), codes.end(), "warning 0 missing-key"), 7);
    EXPECT_THAT(codes, Contains("warning 0 too-few-resolutions"));
}

TEST(CheckModel, Resolutions)
{
    EXPECT_THAT(codesOf(judgeWith("RESOLUTIONS", "")),
                ElementsAre("warning 0 too-few-resolutions", "warning 4 resolution-uncounted",
                            "warning 5 resolution-uncounted"));
    EXPECT_THAT(codesOf(judgeWith("RESOLUTIONS", "RESOLUTIONS=1\n")),
                ElementsAre("warning 4 too-few-resolutions", "warning 6 resolution-uncounted"));
    EXPECT_THAT(codesOf(judgeWith("RESOLUTIONS", "RESOLUTIONS=3\n")),
                ElementsAre("warning 4 resolution-missing"));
    EXPECT_THAT(codesOf(judgeWith("RESOLUTIONS_1", "RESOLUTIONS_1=300\n")),
                ElementsAre("warning 6 resolution-repeated", "warning 4 no-preview-resolution"));
    EXPECT_THAT(codesOf(judgeWith("RESOLUTIONS_1", "RESOLUTIONS_1=150\n")),
                ElementsAre("warning 4 no-preview-resolution"));
    EXPECT_THAT(codesOf(judgeWith("CURRENTDPI", "CURRENTDPI=150\n")),
                ElementsAre("warning 7 resolution-not-offered"));
}

TEST(CheckModel, Areas)
{
    EXPECT_THAT(codesOf(judgeWith("BOTTOMRIGHTX", "BOTTOMRIGHTX=0\n")),
                ElementsAre("error 11 empty-area", "warning 13 selection-outside"));
    EXPECT_THAT(codesOf(judgeWith("CURRENTBRX", "CURRENTBRX=25.3\n")),
                ElementsAre("warning 13 small-selection"));
    EXPECT_THAT(codesOf(judgeWith("CURRENTBRX", "CURRENTBRX=25.4\n")), ElementsAre());
    EXPECT_THAT(codesOf(judgeWith("CURRENTBRY", "CURRENTBRY=297.5\n")),
                ElementsAre("warning 14 selection-outside"));
    EXPECT_THAT(codesOf(judgeWith("CURRENTBRY", "CURRENTBRY=200\nTOPLEFTY=10\n")),
                ElementsAre("warning 14 selection-outside"));
}

TEST(CheckModel, Feeder)
{
    EXPECT_THAT(codesOf(judgeMore("SCAN_SOURCE_ADF=2")), ElementsAre("warning 0 no-feeder-limit"));
    EXPECT_THAT(codesOf(judgeMore("SCAN_SOURCE_ADF=2\nADFDPILIMIT=300")), ElementsAre());
    EXPECT_THAT(codesOf(judgeWith("SCAN_SOURCE", "SCAN_SOURCE=2\n")),
                ElementsAre("warning 9 feeder-not-offered"));
}

TEST(CheckModel, Compression)
{
    EXPECT_THAT(codesOf(judgeMore("COMPRESSION=1")), ElementsAre("warning 4 no-technique"));
    EXPECT_THAT(codesOf(judgeMore("COMPRESSION=1\nCOMPRESSIONTECH=2")), ElementsAre());
}

TEST(CheckModel, Correction)
{
    const std::string base = std::string(kWhole) + "[INTEGERS]\nCOLORCORRECT=1\n[STRINGS]\n";
    const std::string keys = base + "SCLIB=/no/lib.so\nSCFUNC=f\n";
    EXPECT_THAT(codesOf(judgeWhole(keys + "COLORLUT=/no/c0.bin\n")),
                ElementsAre("warning 16 correction-key-missing"));
    EXPECT_THAT(codesOf(judgeWhole(keys + "COLORLUT=/no/c0.bin\nGRAYLUT=/no/g0.bin\n")),
                ElementsAre("warning 16 correction-file-missing"));
    EXPECT_THAT(codesOf(judgeWhole(keys + "COLORLUT=/no/c0.bin\nGRAYLUT=/no/g0.bin\n", false)),
                ElementsAre("note 16 correction-file-missing"));
    EXPECT_THAT(
        codesOf(judgeWhole(base + "SCLIB=lib.so\nSCFUNC=f\nCOLORLUT=c0.bin\nGRAYLUT=/dev/null\n")),
        ElementsAre("warning 20 correction-path-relative", "warning 21 no-bar-digit"));
}

TEST(CheckModel, ShippedFilesAreFine)
{
    for (const auto& entry : std::filesystem::directory_iterator(MODEL_FOLDER)) {
        Findings findings;
        const FeatureFile file = FeatureFile::read(entry.path(), findings);
        judgeLines(file, findings);
        judgeModel(file, false, findings);
        EXPECT_EQ(countOf(findings, Severity::Error) + countOf(findings, Severity::Warning), 0)
            << testing::PrintToString(findings);
    }
}
