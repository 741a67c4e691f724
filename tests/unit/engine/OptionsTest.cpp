// SPDX-License-Identifier: LGPL-2.1-or-later
// The option set.
#include "LogCapture.h"
#include "SaneInterface.h"
#include "TestEngine.h"

#include <gmock/gmock.h>
#include <sane/saneopts.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

using testing::ElementsAre;
using namespace entry;

namespace {

constexpr SANE_Status kGood = SANE_STATUS_GOOD;
constexpr SANE_Status kInvalid = SANE_STATUS_INVAL;
constexpr int kParams = SANE_INFO_RELOAD_PARAMS;

// The numbers of the options.
enum {
    COUNT,
    IMAGE_GROUP,
    RESOLUTION,
    MODE,
    SOURCE,
    PREVIEW,
    SIZE_GROUP,
    TL_X,
    TL_Y,
    BR_X,
    BR_Y,
    MEDIA
};

SANE_Fixed fixed(double value)
{
    return static_cast<SANE_Fixed>(value * 65536.0);
}

// An engine with four resolutions and a feeder, and the table that describes it.
class OptionsTest : public testing::Test {
protected:
    OptionsTest()
    {
        const int resolutions[] = {75, 300, 150, 600};
        for (int i = 0; i < 4; i++) {
            engine.set(("RESOLUTIONS_" + std::to_string(i + 1)).c_str(), resolutions[i]);
        }
        engine.set("RESOLUTIONS", 4);
        engine.set("CURRENTDPI", 300);
        engine.set("COLORDEPTH", 3);
        engine.set("SCAN_SOURCE_ADF", 2);
        InitOptions(&engine);
    }
    ~OptionsTest() override { sane_ScanLib_exit(); }

    SANE_Handle handle() { return static_cast<ScanLib*>(&engine); }

    const SANE_Option_Descriptor& option(int n)
    {
        return *sane_ScanLib_get_option_descriptor(handle(), n);
    }

    SANE_Status control(int n, SANE_Action action, void* value)
    {
        info = -1;
        return sane_ScanLib_control_option(handle(), n, action, value, &info);
    }

    SANE_Status set(int n, SANE_Word value) { return control(n, SANE_ACTION_SET_VALUE, &value); }

    SANE_Status set(int n, std::string text)
    {
        text.resize(4096);
        return control(n, SANE_ACTION_SET_VALUE, text.data());
    }

    SANE_Word get(int n)
    {
        SANE_Word value = -12345;
        EXPECT_EQ(control(n, SANE_ACTION_GET_VALUE, &value), kGood);
        EXPECT_EQ(info, 0);
        return value;
    }

    std::string getText(int n)
    {
        std::vector<char> text(4096, 'x');
        EXPECT_EQ(control(n, SANE_ACTION_GET_VALUE, text.data()), kGood);
        return std::string(text.data(), strnlen(text.data(), text.size()));
    }

    TestEngine engine;
    int info = 0;
};

// ---- the table -------------------------------------------------------------------------

struct Row {
    const char* name;
    const char* title;
    const char* desc;
    SANE_Value_Type type;
    SANE_Unit unit;
    int size;
    int cap;
    SANE_Constraint_Type constraint;
};

const Row kRows[] = {
    {"", "Number of options",
     "Read-only option that specifies how many options a specific devices supports.", SANE_TYPE_INT,
     SANE_UNIT_NONE, 4, SANE_CAP_SOFT_DETECT, SANE_CONSTRAINT_NONE},
    {"", "Image Settings", "", SANE_TYPE_GROUP, SANE_UNIT_NONE, 0, 0, SANE_CONSTRAINT_NONE},
    {"resolution", "Resolution", "The resolution of the scan job in dots per inch.", SANE_TYPE_INT,
     SANE_UNIT_DPI, 4, 5, SANE_CONSTRAINT_WORD_LIST},
    {"mode", "Color Depth", "The color depth of the scan job.", SANE_TYPE_STRING, SANE_UNIT_NONE,
     4096, 5, SANE_CONSTRAINT_STRING_LIST},
    {"source", "Scan source", "Selects the scan source (such as a document-feeder).",
     SANE_TYPE_STRING, SANE_UNIT_NONE, 4096, 5, SANE_CONSTRAINT_STRING_LIST},
    {"preview", "Preview", "Request a preview-quality scan.", SANE_TYPE_BOOL, SANE_UNIT_NONE, 4, 5,
     SANE_CONSTRAINT_NONE},
    {"", "Custom Scan Size", "The size of the area to be scanned.", SANE_TYPE_GROUP, SANE_UNIT_NONE,
     0, 0, SANE_CONSTRAINT_NONE},
    {"tl-x", "Top-left x", "Top-left x position of scan area.", SANE_TYPE_FIXED, SANE_UNIT_MM, 4, 5,
     SANE_CONSTRAINT_RANGE},
    {"tl-y", "Top-left y", "Top-left y position of scan area.", SANE_TYPE_FIXED, SANE_UNIT_MM, 4, 5,
     SANE_CONSTRAINT_RANGE},
    {"br-x", "Bottom-right x", "Bottom-right x position of scan area.", SANE_TYPE_FIXED,
     SANE_UNIT_MM, 4, 5, SANE_CONSTRAINT_RANGE},
    {"br-y", "Bottom-right y", "Bottom-right y position of scan area.", SANE_TYPE_FIXED,
     SANE_UNIT_MM, 4, 5, SANE_CONSTRAINT_RANGE},
    {"media", "Media Size", "The size of the area to be scanned.", SANE_TYPE_STRING, SANE_UNIT_NONE,
     4096, 5, SANE_CONSTRAINT_STRING_LIST},
};

struct Medium {
    const char* name;
    double width;
    double height;
};

const Medium kMedia[] = {
    {"Letter (8 1/2 x 11 in)", 215.9, 279.4},
    {"Executive (7 1/4 x 10 1/2 in)", 184.1, 266.7},
    {"Legal (8 1/2 x 14 in)", 215.9, 355.6},
    {"Index Card (3 x 5 in)", 76.2, 127.0},
    {"4 x 6 in", 101.6, 152.4},
    {"4 x 8 in", 101.6, 203.2},
    {"10 x 15 cm", 100.0, 150.0},
    {"10 x 20 cm", 100.0, 200.0},
    {"A4 (210 x 297 mm)", 210.0, 297.0},
    {"B5 (182 x 257 mm)", 182.0, 257.0},
    {"A5 (148 x 210 mm)", 148.0, 210.0},
    {"A6 Card (105 x 148 mm)", 105.0, 148.0},
    {"Hagaki (100 x 148 mm)", 100.0, 148.0},
    {"L (89 x 127 mm)", 89.0, 127.0},
    {"2L (127 x 178 mm)", 127.0, 178.0},
    {"3.5 x 5 in", 88.9, 127.0},
    {"5 x 7 in", 127.0, 177.8},
    {"13 x 18 cm", 130.0, 180.0},
    {"Envelope 6 3/4 (3 5/8 x 6 1/2 in)", 92.1, 165.1},
    {"Envelope #9 (3 7/8 x 8 7/8 in)", 98.4, 225.4},
    {"Envelope #10 (4 1/8 x 9 1/2 in)", 104.8, 241.3},
    {"Envelope DL (110 x 220 mm)", 110.0, 220.0},
    {"Envelope C5 (162 x 229 mm)", 162.0, 229.0},
    {"Envelope C6 (114 x 162 mm)", 114.0, 162.0},
    {"Envelope B5 (176 x 250 mm)", 176.0, 250.0},
    {"Envelope 7 3/4 (3 7/8 x 7 1/2 in)", 98.4, 190.5},
    {"A2 Baronial (111 x 146 mm)", 111.0, 146.0},
    {"Chokei 3 (120 x 235 mm)", 120.0, 235.0},
    {"Chokei 4 (90 x 205 mm)", 90.0, 205.0},
    {"Chokei 40 (90 x 225 mm)", 90.0, 225.0},
    {"Kakugata 3 (216 x 277 mm)", 216.0, 277.0},
    {"Kakugata 4 (197 x 267 mm)", 197.0, 267.0},
    {"Kakugata 5 (190 x 240 mm)", 190.0, 240.0},
    {"Kakugata 6 (162 x 229 mm)", 162.0, 229.0},
};

std::vector<std::string> strings(const SANE_String_Const* list)
{
    std::vector<std::string> all;
    while (*list != nullptr) {
        all.emplace_back(*list++);
    }
    return all;
}

TEST_F(OptionsTest, Table)
{
    ASSERT_EQ(std::size(kRows), static_cast<std::size_t>(kOptionCount));
    for (int n = 0; n < kOptionCount; n++) {
        SCOPED_TRACE(n);
        const Row& row = kRows[n];
        EXPECT_STREQ(option(n).name, row.name);
        EXPECT_STREQ(option(n).title, row.title);
        EXPECT_STREQ(option(n).desc, row.desc);
        EXPECT_EQ(option(n).type, row.type);
        EXPECT_EQ(option(n).unit, row.unit);
        EXPECT_EQ(option(n).size, row.size);
        EXPECT_EQ(option(n).cap, row.cap);
        EXPECT_EQ(option(n).constraint_type, row.constraint);
    }
}

TEST_F(OptionsTest, Lists)
{
    const SANE_Word* words = option(RESOLUTION).constraint.word_list;
    EXPECT_THAT(std::vector<SANE_Word>(words, words + 5), ElementsAre(4, 600, 150, 300, 75));
    EXPECT_THAT(strings(option(MODE).constraint.string_list),
                ElementsAre("24-bit Color", "8-bit Grayscale"));
    EXPECT_THAT(strings(option(SOURCE).constraint.string_list),
                ElementsAre("Flatbed", "Automatic Document Feeder"));
    std::vector<std::string> media;
    for (const Medium& medium : kMedia) {
        media.emplace_back(medium.name);
    }
    EXPECT_EQ(strings(option(MEDIA).constraint.string_list), media);
}

TEST_F(OptionsTest, Ranges)
{
    engine.set("TOPLEFTX", -1.3);
    engine.set("TOPLEFTY", 2.5);
    InitOptions(&engine);
    const SANE_Range* width = option(TL_X).constraint.range;
    const SANE_Range* height = option(TL_Y).constraint.range;
    EXPECT_EQ(width->min, -85196) << "truncated toward zero";
    EXPECT_EQ(width->max, 14149222);
    EXPECT_EQ(width->quant, 0);
    EXPECT_EQ(height->min, 163840);
    EXPECT_EQ(height->max, 297 * 65536);
    EXPECT_EQ(height->quant, 0);
    EXPECT_EQ(option(BR_X).constraint.range, width);
    EXPECT_EQ(option(BR_Y).constraint.range, height);
}

TEST_F(OptionsTest, TableDescribesTheLastDevice)
{
    engine.set("SCAN_SOURCE_ADF", 1);
    engine.set("RESOLUTIONS", 2);
    InitOptions(&engine);
    EXPECT_THAT(strings(option(SOURCE).constraint.string_list), ElementsAre("Flatbed"));
    const SANE_Word* words = option(RESOLUTION).constraint.word_list;
    EXPECT_THAT(std::vector<SANE_Word>(words, words + 3), ElementsAre(2, 300, 75));
}

TEST_F(OptionsTest, NumbersOutsideOfTheTable)
{
    LogCapture log;
    for (const int n : {-1, 12, INT_MAX, INT_MIN}) {
        EXPECT_EQ(sane_ScanLib_get_option_descriptor(handle(), n), nullptr);
        EXPECT_EQ(set(n, 1), kInvalid);
        EXPECT_EQ(info, 0);
    }
    EXPECT_EQ(log.count("invalid option number"), 4);
    EXPECT_NE(sane_ScanLib_get_option_descriptor(nullptr, 0), nullptr);
}

// ---- reading -----------------------------------------------------------------------------

TEST_F(OptionsTest, GetNumbers)
{
    EXPECT_EQ(get(COUNT), 12);
    EXPECT_EQ(get(RESOLUTION), 300);
    EXPECT_EQ(get(PREVIEW), 0);
    engine.set("PREVIEW", 1);
    EXPECT_EQ(get(PREVIEW), 1);
    engine.set("CURRENTTLX", 1.5);
    engine.set("CURRENTTLY", -1.3);
    engine.set("CURRENTBRX", 215.9);
    engine.set("CURRENTBRY", 279.4);
    EXPECT_EQ(get(TL_X), 98304);
    EXPECT_EQ(get(TL_Y), -85196);
    EXPECT_EQ(get(BR_X), 14149222);
    EXPECT_EQ(get(BR_Y), 18310758);
}

TEST_F(OptionsTest, GetMode)
{
    EXPECT_EQ(getText(MODE), "24-bit Color");
    for (const int depth : {0, 1, 2, 8, 24}) {
        engine.set("COLORDEPTH", depth);
        EXPECT_EQ(getText(MODE), "8-bit Grayscale");
    }
}

TEST_F(OptionsTest, GetSource)
{
    const std::pair<int, const char*> sources[] = {
        {1, "Flatbed"}, {2, "Automatic Document Feeder"}, {3, ""}, {0, "Flatbed"}, {4, "Flatbed"}};
    for (const auto& [value, text] : sources) {
        engine.set("SCAN_SOURCE", value);
        EXPECT_EQ(getText(SOURCE), text) << value;
    }
    engine.set("SCAN_SOURCE_ADF", 0);
    InitOptions(&engine);
    for (const int value : {2, 3}) {
        engine.set("SCAN_SOURCE", value);
        EXPECT_EQ(getText(SOURCE), "") << "the list has no such entry";
    }
}

TEST_F(OptionsTest, GetMedia)
{
    for (int i = 0; i < 34; i++) {
        engine.set("MEDIA_INDEX", i);
        EXPECT_EQ(getText(MEDIA), kMedia[i].name);
    }
    for (const int index : {-1, 34, INT_MAX, INT_MIN}) {
        engine.set("MEDIA_INDEX", index);
        char text[4096] = "";
        const SANE_Status status = control(MEDIA, SANE_ACTION_GET_VALUE, text);
        EXPECT_TRUE(status == kInvalid ||
                    search_string_list(option(MEDIA).constraint.string_list, text) != nullptr);
    }
}

// ---- writing -----------------------------------------------------------------------------

TEST_F(OptionsTest, SetResolution)
{
    for (const int dpi : {75, 150, 300, 600}) {
        EXPECT_EQ(set(RESOLUTION, dpi), kGood);
        EXPECT_EQ(info, kParams);
        EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), dpi);
    }
    for (const int dpi : {0, 4, 74, 76, 1200, -75}) {
        EXPECT_EQ(set(RESOLUTION, dpi), kInvalid);
        EXPECT_EQ(info, 0);
        EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 600);
    }
}

TEST_F(OptionsTest, SetMode)
{
    EXPECT_EQ(set(MODE, "8-bit Grayscale"), kGood);
    EXPECT_EQ(info, kParams);
    EXPECT_EQ(engine.GetIntValue("COLORDEPTH"), 1);
    EXPECT_EQ(getText(MODE), "8-bit Grayscale");
    EXPECT_EQ(set(MODE, "24-bit Color"), kGood);
    EXPECT_EQ(engine.GetIntValue("COLORDEPTH"), 3);
}

TEST_F(OptionsTest, SetSource)
{
    EXPECT_EQ(set(SOURCE, "Automatic Document Feeder"), kGood);
    EXPECT_EQ(info, kParams);
    EXPECT_EQ(engine.GetIntValue("SCAN_SOURCE"), 2);
    EXPECT_EQ(set(SOURCE, "Flatbed"), kGood);
    EXPECT_EQ(engine.GetIntValue("SCAN_SOURCE"), 1);

    engine.set("SCAN_SOURCE_ADF", 0);
    InitOptions(&engine);
    EXPECT_EQ(set(SOURCE, "Automatic Document Feeder"), kInvalid);
    EXPECT_EQ(engine.GetIntValue("SCAN_SOURCE"), 1);
    EXPECT_EQ(set(SOURCE, "Flatbed"), kGood);
}

TEST_F(OptionsTest, UnknownStringsAreRefused)
{
    for (const int n : {MODE, SOURCE, MEDIA}) {
        const std::string first = option(n).constraint.string_list[0];
        for (const std::string& text :
             {std::string(), first + " ", first.substr(1), std::string(1, first[0]), "x" + first}) {
            EXPECT_EQ(set(n, text), kInvalid) << text;
            EXPECT_EQ(info, 0);
        }
    }
    EXPECT_EQ(set(SOURCE, "flatbed"), kInvalid) << "upper and lower case differ";
    EXPECT_EQ(engine.GetIntValue("COLORDEPTH"), 3);
    EXPECT_EQ(engine.GetIntValue("SCAN_SOURCE"), 1);
}

TEST_F(OptionsTest, SetArea)
{
    const std::pair<int, const char*> corners[] = {
        {TL_X, "CURRENTTLX"}, {TL_Y, "CURRENTTLY"}, {BR_X, "CURRENTBRX"}, {BR_Y, "CURRENTBRY"}};
    for (const auto& [n, key] : corners) {
        const double limit = n == TL_X || n == BR_X ? fixed(215.9) / 65536.0 : 297.0;
        EXPECT_EQ(set(n, fixed(12.25)), kGood);
        EXPECT_EQ(info, kParams);
        EXPECT_EQ(engine.GetDoubleValue(key), 12.25);

        EXPECT_EQ(set(n, fixed(300.0)), kGood);
        EXPECT_EQ(info, kParams | SANE_INFO_INEXACT);
        EXPECT_EQ(engine.GetDoubleValue(key), limit);

        EXPECT_EQ(set(n, -1), kGood);
        EXPECT_EQ(info, kParams | SANE_INFO_INEXACT);
        EXPECT_EQ(engine.GetDoubleValue(key), 0.0);

        EXPECT_EQ(set(n, fixed(limit)), kGood);
        EXPECT_EQ(info, kParams);
    }
}

// A feature file may say anything.
TEST_F(OptionsTest, AreaBeyondTheFixedPoint)
{
    const std::pair<double, SANE_Word> cases[] = {
        {std::nan(""), 0}, {1e6, INT_MAX}, {-1e6, INT_MIN}, {-0.5, -32768}};
    for (const auto& [millimetres, word] : cases) {
        engine.set("CURRENTTLX", millimetres);
        SANE_Word value = 1;
        EXPECT_EQ(control(TL_X, SANE_ACTION_GET_VALUE, &value), kGood);
        EXPECT_EQ(value, word) << millimetres;
    }
}

TEST_F(OptionsTest, MovedValueGoesBackToTheCaller)
{
    SANE_Word value = fixed(1000.0);
    EXPECT_EQ(control(TL_X, SANE_ACTION_SET_VALUE, &value), kGood);
    EXPECT_EQ(value, fixed(215.9));
}

TEST_F(OptionsTest, SetMedia)
{
    for (int i = 0; i < 34; i++) {
        engine.set("CURRENTTLX", 5.0);
        engine.set("CURRENTTLY", 5.0);
        EXPECT_EQ(set(MEDIA, kMedia[i].name), kGood);
        EXPECT_EQ(info, kParams | SANE_INFO_RELOAD_OPTIONS);
        EXPECT_EQ(engine.GetIntValue("MEDIA_INDEX"), i);
        EXPECT_EQ(engine.GetDoubleValue("CURRENTTLX"), 0.0);
        EXPECT_EQ(engine.GetDoubleValue("CURRENTTLY"), 0.0);
        EXPECT_EQ(engine.GetDoubleValue("CURRENTBRX"), kMedia[i].width);
        EXPECT_EQ(engine.GetDoubleValue("CURRENTBRY"), kMedia[i].height);
    }
}

TEST_F(OptionsTest, SetCount)
{
    EXPECT_EQ(set(COUNT, 5), kGood);
    EXPECT_EQ(info, kParams);
    EXPECT_EQ(get(COUNT), 12);
}

TEST_F(OptionsTest, InfoIsOptional)
{
    SANE_Word value = fixed(1000.0);
    EXPECT_EQ(sane_ScanLib_control_option(handle(), TL_X, SANE_ACTION_SET_VALUE, &value, nullptr),
              kGood);
    char media[4096] = "A4 (210 x 297 mm)";
    EXPECT_EQ(sane_ScanLib_control_option(handle(), MEDIA, SANE_ACTION_SET_VALUE, media, nullptr),
              kGood);
    EXPECT_EQ(engine.GetDoubleValue("CURRENTBRX"), 210.0);
}

// ---- preview -------------------------------------------------------------------------------

int linesReported(SANE_Handle handle)
{
    SANE_Parameters parameters = {};
    EXPECT_EQ(sane_ScanLib_get_parameters(handle, &parameters), kGood);
    return parameters.lines;
}

TEST_F(OptionsTest, Preview)
{
    EXPECT_EQ(set(RESOLUTION, 600), kGood);
    EXPECT_EQ(set(PREVIEW, SANE_TRUE), kGood);
    EXPECT_EQ(info, kParams);
    EXPECT_EQ(engine.GetIntValue("PREVIEW"), 1);
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 75);

    EXPECT_EQ(linesReported(handle()), 75);
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 600);
}

TEST_F(OptionsTest, PreviewOffLeavesTheResolution)
{
    EXPECT_EQ(set(RESOLUTION, 600), kGood);
    EXPECT_EQ(set(PREVIEW, SANE_TRUE), kGood);
    EXPECT_EQ(set(PREVIEW, SANE_FALSE), kGood);
    EXPECT_EQ(engine.GetIntValue("PREVIEW"), 0);
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 75);
    EXPECT_EQ(linesReported(handle()), 75) << "each setting takes the current resolution over";
}

TEST_F(OptionsTest, PreviewTwice)
{
    EXPECT_EQ(set(RESOLUTION, 600), kGood);
    EXPECT_EQ(set(PREVIEW, SANE_TRUE), kGood);
    EXPECT_EQ(set(PREVIEW, SANE_TRUE), kGood);
    linesReported(handle());
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 75);
}

// ---- the rest ------------------------------------------------------------------------------

TEST_F(OptionsTest, RefusedRequests)
{
    for (const SANE_Action action :
         {SANE_ACTION_GET_VALUE, SANE_ACTION_SET_VALUE, SANE_ACTION_SET_AUTO}) {
        for (int n = 0; n < kOptionCount; n++) {
            EXPECT_EQ(control(n, action, nullptr), kInvalid);
            EXPECT_EQ(info, -1) << "not even looked at";
        }
        for (const int n : {IMAGE_GROUP, SIZE_GROUP}) {
            char value[4096] = "";
            EXPECT_EQ(control(n, action, value), kInvalid);
            EXPECT_EQ(info, 0);
        }
    }
}

TEST_F(OptionsTest, NothingIsAutomatic)
{
    for (int n = 0; n < kOptionCount; n++) {
        char value[4096] = "";
        EXPECT_EQ(control(n, SANE_ACTION_SET_AUTO, value), kInvalid);
        EXPECT_EQ(info, 0);
    }
}

TEST_F(OptionsTest, OtherActionsDoNothing)
{
    SANE_Word value = 600;
    EXPECT_EQ(control(RESOLUTION, static_cast<SANE_Action>(3), &value), kGood);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(value, 600);
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 300);
}

TEST_F(OptionsTest, CheckValue)
{
    const SANE_Range range = {fixed(10.0), fixed(20.0), fixed(1.0)};
    SANE_Option_Descriptor ranged = {};
    ranged.type = SANE_TYPE_FIXED;
    ranged.size = 4;
    ranged.constraint_type = SANE_CONSTRAINT_RANGE;
    ranged.constraint.range = &range;
    struct {
        double given, result;
        int info;
    } const cases[] = {{9.9, 10.0, SANE_INFO_INEXACT},
                       {10.0, 10.0, 0},
                       {12.4, 12.4, 0},
                       {20.0, 20.0, 0},
                       {20.1, 20.0, SANE_INFO_INEXACT}};
    for (const auto& one : cases) {
        SANE_Word value = fixed(one.given);
        int flags = 0;
        EXPECT_EQ(::CheckValue(&ranged, &value, &flags), kGood);
        EXPECT_EQ(value, fixed(one.result)) << one.given;
        EXPECT_EQ(flags, one.info);
        EXPECT_EQ(::CheckValue(&ranged, &value, nullptr), kGood);
    }
    int flags = SANE_INFO_RELOAD_OPTIONS;
    SANE_Word high = fixed(99.0);
    EXPECT_EQ(::CheckValue(&ranged, &high, &flags), kGood);
    EXPECT_EQ(flags, SANE_INFO_RELOAD_OPTIONS | SANE_INFO_INEXACT) << "flags are added";

    SANE_Word word = 75;
    EXPECT_EQ(::CheckValue(&option(RESOLUTION), &word, &flags), kGood);
    word = 4;  // the length of the list
    EXPECT_EQ(::CheckValue(&option(RESOLUTION), &word, &flags), kInvalid);
    char text[] = "Flatbed";
    EXPECT_EQ(::CheckValue(&option(SOURCE), text, &flags), kGood);
    text[6] = '\0';
    EXPECT_EQ(::CheckValue(&option(SOURCE), text, &flags), kInvalid);
    EXPECT_EQ(::CheckValue(&option(PREVIEW), &word, &flags), kGood);
}

// A text is not looked at as a number, which a sanitizer would complain about at an odd address.
TEST_F(OptionsTest, TextsStandAnywhere)
{
    alignas(SANE_Word) char room[] = "?Flatbed";
    int flags = 0;
    EXPECT_EQ(::CheckValue(&option(SOURCE), room + 1, &flags), kGood);
    EXPECT_EQ(control(SOURCE, SANE_ACTION_SET_VALUE, room + 1), kGood);
}

TEST_F(OptionsTest, CheckValueLogsItsResult)
{
    LogCapture log;
    SANE_Word word = 1;
    ::CheckValue(&option(RESOLUTION), &word, nullptr);
    EXPECT_EQ(log.messages().back(), "::::::::::::::: METHOD END ::::::::::::::: 4");
}

TEST(StringListTest, Search)
{
    const char* const list[] = {"One", "one", "Two", nullptr};
    EXPECT_EQ(search_string_list(list, "one"), &list[1]);
    EXPECT_EQ(search_string_list(list, "Two"), &list[2]);
    EXPECT_EQ(search_string_list(list, "Tw"), nullptr);
    EXPECT_EQ(search_string_list(list, "Twos"), nullptr);
    EXPECT_EQ(search_string_list(list, ""), nullptr);
    EXPECT_EQ(search_string_list(list + 3, "One"), nullptr);
}

TEST_F(OptionsTest, ListValues)
{
    int* values = GetListValues(&engine);
    ASSERT_NE(values, nullptr);
    EXPECT_THAT(std::vector<int>(values, values + 5), ElementsAre(4, 75, 300, 150, 600));
    free(values);
}

// What the feature file says is not trusted.
TEST_F(OptionsTest, AbsurdNumberOfResolutions)
{
    for (const int count : {0, -1, INT_MIN}) {
        engine.set("RESOLUTIONS", count);
        InitOptions(&engine);
        EXPECT_EQ(set(RESOLUTION, 75), kInvalid) << count;
        free(GetListValues(&engine));
    }
}

TEST_F(OptionsTest, UpdateLeavesTheResolution)
{
    UpdateOptions(&engine);
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 300);
}

}  // namespace
