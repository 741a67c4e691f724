// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ConfigReader.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <climits>
#include <cmath>
#include <limits>
#include <map>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char* const kComputed[] = {"SCANOFFSETX",     "SCANOFFSETY", "SCANWIDTH",     "SCANHEIGHT",
                                 "PIXELS_PER_LINE", "LINES",       "BYTES_PER_LINE"};

struct Window {
    int dpi;
    int depth;
    double tlx, tly, brx, bry;
};

void setWindow(ConfigReader& store, const Window& window)
{
    store.SetIntOption("CURRENTDPI", window.dpi);
    store.SetIntOption("COLORDEPTH", window.depth);
    store.SetDoubleOption("CURRENTTLX", window.tlx);
    store.SetDoubleOption("CURRENTTLY", window.tly);
    store.SetDoubleOption("CURRENTBRX", window.brx);
    store.SetDoubleOption("CURRENTBRY", window.bry);
}

std::vector<int> computedValues(ConfigReader& store)
{
    std::vector<int> values;
    for (const char* key : kComputed) {
        values.push_back(store.GetComputedOption(key));
    }
    return values;
}

// ---- stored values -----------------------------------------------------------------

TEST(ConfigReader, SettersTellNewKeysFromReplacedOnes)
{
    TestStore store;
    EXPECT_EQ(store.SetIntOption("A", 5), 1);
    EXPECT_EQ(store.SetIntOption("A", -7), 2);
    EXPECT_EQ(store.SetIntOption("A", -7), 2);
    EXPECT_EQ(store.GetIntOption("A"), -7);
    // The three maps do not share their keys.
    EXPECT_EQ(store.SetDoubleOption("A", 1.5), 1);
    EXPECT_EQ(store.SetDoubleOption("A", 2.5), 2);
    EXPECT_EQ(store.SetStringOption("A", "one"), 1);
    EXPECT_EQ(store.SetStringOption("A", "two"), 2);
    EXPECT_EQ(store.GetIntOption("A"), -7);
    EXPECT_EQ(store.GetDoubleOption("A"), 2.5);
    EXPECT_STREQ(store.GetStringOption("A"), "two");
}

TEST(ConfigReader, AbsentKeysReadAsNothing)
{
    TestStore store;
    EXPECT_EQ(store.GetIntOption("A"), 0);
    EXPECT_EQ(store.GetDoubleOption("A"), 0.0);
    EXPECT_EQ(store.GetStringOption("A"), nullptr);
    // Looking does not create.
    EXPECT_EQ(store.SetIntOption("A", 0), 1);
    EXPECT_EQ(store.SetDoubleOption("A", 0), 1);
    EXPECT_EQ(store.SetStringOption("A", ""), 1);
    EXPECT_STREQ(store.GetStringOption("A"), "");
}

TEST(ConfigReader, KeysAreComparedByteByByte)
{
    TestStore store{{"key", 1}, {"Key", 2}, {"key ", 3}, {"", 4}, {"k\xC3\xA4y", 5}};
    EXPECT_EQ(store.GetIntOption("key"), 1);
    EXPECT_EQ(store.GetIntOption("Key"), 2);
    EXPECT_EQ(store.GetIntOption("key "), 3);
    EXPECT_EQ(store.GetIntOption(""), 4);
    EXPECT_EQ(store.GetIntOption("k\xC3\xA4y"), 5);
    EXPECT_EQ(store.GetIntOption("KEY"), 0);
}

TEST(ConfigReader, KeepsItsOwnCopyOfTexts)
{
    TestStore store;
    char text[] = "text";
    store.SetStringOption("A", text);
    text[0] = 'n';
    EXPECT_STREQ(store.GetStringOption("A"), "text");
    // A value may come from the store itself.
    store.SetStringOption("A", store.GetStringOption("A") + 1);
    EXPECT_STREQ(store.GetStringOption("A"), "ext");
}

TEST(ConfigReader, TextsStayWhereTheyAreUntilTheirKeyIsSet)
{
    TestStore store;
    store.SetStringOption("M", "short");
    const char* text = store.GetStringOption("M");
    for (int i = 0; i < 1000; ++i) {
        const std::string key = std::to_string(i * 7919 % 1000);
        store.SetStringOption(key.c_str(), "other");
        store.SetIntOption(key.c_str(), i);
    }
    EXPECT_EQ(store.GetStringOption("M"), text);
    EXPECT_STREQ(text, "short");
}

TEST(ConfigReader, FollowsAModelOverRandomSettings)
{
    Random random(11);
    TestStore store;
    std::map<std::string, int> ints;
    std::map<std::string, double> doubles;
    std::map<std::string, std::string> strings;
    for (int i = 0; i < 5000; ++i) {
        const std::string key = "K" + std::to_string(random.pick(0, 40));
        const int value = random.pick(-100, 100);
        switch (random.pick(0, 2)) {
        case 0:
            EXPECT_EQ(store.SetIntOption(key.c_str(), value), ints.count(key) != 0 ? 2 : 1);
            ints[key] = value;
            break;
        case 1:
            EXPECT_EQ(store.SetDoubleOption(key.c_str(), value / 8.0),
                      doubles.count(key) != 0 ? 2 : 1);
            doubles[key] = value / 8.0;
            break;
        default: {
            const std::string text = std::to_string(value);
            EXPECT_EQ(store.SetStringOption(key.c_str(), text.c_str()),
                      strings.count(key) != 0 ? 2 : 1);
            strings[key] = text;
        }
        }
    }
    for (const auto& [key, value] : ints) {
        EXPECT_EQ(store.GetIntOption(key.c_str()), value);
    }
    for (const auto& [key, value] : doubles) {
        EXPECT_EQ(store.GetDoubleOption(key.c_str()), value);
    }
    for (const auto& [key, value] : strings) {
        EXPECT_EQ(store.GetStringOption(key.c_str()), value);
    }
}

// ---- computed values ---------------------------------------------------------------

struct ComputedCase {
    const char* name;
    Window window;
    std::vector<int> expected;  // in the order of kComputed
};

class ConfigReaderComputed : public testing::TestWithParam<ComputedCase> {};

TEST_P(ConfigReaderComputed, FollowsTheWindow)
{
    TestStore store;
    setWindow(store, GetParam().window);
    EXPECT_EQ(computedValues(store), GetParam().expected);
    for (std::size_t i = 0; i < std::size(kComputed); ++i) {
        EXPECT_EQ(store.GetIntOption(kComputed[i]), GetParam().expected[i]) << kComputed[i];
        EXPECT_EQ(store.GetDoubleOption(kComputed[i]), 0.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Windows, ConfigReaderComputed,
    testing::Values(
        ComputedCase{"Letter", {300, 3, 0, 0, 215.9, 279.4}, {0, 0, 2550, 3300, 2550, 3300, 7650}},
        ComputedCase{
            "Offset", {300, 3, 10, 20, 215.9, 279.4}, {118, 236, 2550, 3300, 2431, 3063, 7293}},
        ComputedCase{"Grey", {600, 1, 25.4, 0, 50.8, 12.7}, {600, 0, 1200, 300, 600, 300, 600}},
        ComputedCase{"NoDepth", {300, 0, 0, 0, 25.4, 25.4}, {0, 0, 300, 300, 300, 300, 0}},
        ComputedCase{"NoResolution", {0, 3, 10, 10, 100, 100}, {0, 0, 0, 0, 0, 0, 0}},
        // Truncation is toward zero, also below it.
        ComputedCase{"BelowZero", {100, 1, -1, -2, 0, 1}, {-3, -7, 0, 3, 3, 11, 3}},
        ComputedCase{"Inverted", {100, 3, 10, 10, 9, 8.9}, {39, 39, 35, 35, -3, -4, -9}},
        // dpi * (x / 25.4) and dpi * x / 25.4 differ here.
        ComputedCase{"DivisionFirst",
                     {75, 1, 2.3706666666666663, 17.272, 0, 0},
                     {6, 50, 0, 0, -6, -50, -6}}),
    CaseName());

TEST(ConfigReader, AbsentOperandsAreZeroNotWhatTheyWere)
{
    // The first store leaves values where the second one may find them.
    for (int round = 0; round < 2; ++round) {
        TestStore store;
        EXPECT_EQ(computedValues(store), std::vector<int>(7, 0));
        store.SetIntOption("CURRENTDPI", 254);
        store.SetDoubleOption("CURRENTBRX", 30.0);
        EXPECT_EQ(store.GetComputedOption("PIXELS_PER_LINE"), 300);
        EXPECT_EQ(store.GetComputedOption("LINES"), 0);
        store.SetIntOption("CURRENTDPI", 0);
        EXPECT_EQ(computedValues(store), std::vector<int>(7, 0));
    }
}

// Operands of the wrong map do not count.
TEST(ConfigReader, OperandsComeFromTheirOwnMaps)
{
    TestStore store{{"CURRENTBRX", 100}, {"CURRENTBRY", 100}, {"CURRENTTLX", 7}};
    store.SetDoubleOption("CURRENTDPI", 300);
    store.SetDoubleOption("COLORDEPTH", 3);
    EXPECT_EQ(computedValues(store), std::vector<int>(7, 0));
    store.SetIntOption("CURRENTDPI", 300);
    EXPECT_EQ(computedValues(store), std::vector<int>(7, 0));
}

TEST(ConfigReader, StoredValuesShowWhileTheComputedOneIsZero)
{
    TestStore store;
    for (const char* key : kComputed) {
        store.SetIntOption(key, 50);
    }
    for (const char* key : kComputed) {
        EXPECT_EQ(store.GetIntOption(key), 50) << key;
        EXPECT_EQ(store.GetComputedOption(key), 0) << key;
    }
    setWindow(store, {300, 3, 0, 10, 215.9, 279.4});
    EXPECT_EQ(store.GetIntOption("LINES"), 3181);
    EXPECT_EQ(store.GetIntOption("SCANOFFSETX"), 50);
    EXPECT_EQ(store.GetIntOption("SCANOFFSETY"), 118);
    store.SetIntOption("CURRENTDPI", 0);
    EXPECT_EQ(store.GetIntOption("LINES"), 50);
}

TEST(ConfigReader, OnlyTheExactNamesAreComputed)
{
    TestStore store;
    setWindow(store, {300, 3, 1, 1, 100, 100});
    const LogCapture capture;
    for (const char* key : {"lines", "LINES ", " LINES", "LINE", "LINESX", "", "Scanwidth"}) {
        EXPECT_EQ(store.GetComputedOption(key), 0);
        store.SetIntOption(key, 77);
        EXPECT_EQ(store.GetIntOption(key), 77);
    }
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(ConfigReader, ComputesRandomWindowsLikeTheFormula)
{
    Random random(12);
    TestStore store;
    for (int i = 0; i < 3000; ++i) {
        const auto millimetres = [&] { return random.pick(-2000, 40000) / 97.0; };
        const Window w = {random.pick(0, 2400), random.pick(0, 4), millimetres(),
                          millimetres(),        millimetres(),     millimetres()};
        setWindow(store, w);
        const auto dots = [&](double x) {
            return static_cast<int>(std::trunc(w.dpi * (x / 25.4)));
        };
        const int pixels = dots(w.brx - w.tlx);
        EXPECT_THAT(computedValues(store),
                    ElementsAre(dots(w.tlx), dots(w.tly), dots(w.brx), dots(w.bry), pixels,
                                dots(w.bry - w.tly), pixels * w.depth));
    }
}

TEST(ConfigReader, ValuesThatDoNotFitAreHeldAtTheLimits)
{
    TestStore store;
    setWindow(store, {INT_MAX, INT_MAX, 0, 0, 1e300, -1e300});
    EXPECT_EQ(store.GetComputedOption("SCANWIDTH"), INT_MAX);
    EXPECT_EQ(store.GetComputedOption("PIXELS_PER_LINE"), INT_MAX);
    EXPECT_EQ(store.GetComputedOption("SCANHEIGHT"), INT_MIN);
    EXPECT_EQ(store.GetComputedOption("LINES"), INT_MIN);
    EXPECT_EQ(store.GetComputedOption("BYTES_PER_LINE"), INT_MAX);
    // The product alone overflows.
    setWindow(store, {1200, INT_MAX, 0, 0, 254, 254});
    EXPECT_EQ(store.GetComputedOption("PIXELS_PER_LINE"), 12000);
    EXPECT_EQ(store.GetComputedOption("BYTES_PER_LINE"), INT_MAX);
    setWindow(store, {1200, INT_MAX, 254, 0, 0, 254});
    EXPECT_EQ(store.GetComputedOption("BYTES_PER_LINE"), INT_MIN);
    // No number at all counts as 0.
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    setWindow(store, {300, 3, kInfinity, 0, kInfinity, 254});
    EXPECT_EQ(store.GetComputedOption("PIXELS_PER_LINE"), 0);
    EXPECT_EQ(store.GetComputedOption("BYTES_PER_LINE"), 0);
    EXPECT_EQ(store.GetComputedOption("SCANWIDTH"), INT_MAX);
}

// ---- the log -----------------------------------------------------------------------

TEST(ConfigReader, LogsComputedLookUpsOnly)
{
    const LogCapture capture;
    TestStore store;
    setWindow(store, {300, 3, 0, 0, 215.9, 279.4});
    store.SetStringOption("S", "s");
    store.GetStringOption("S");
    store.GetDoubleOption("CURRENTBRX");
    store.GetIntOption("CURRENTDPI");
    store.GetIntOption("ABSENT");
    store.SetUpOperands();
    EXPECT_THAT(capture.lines(), IsEmpty());
    store.GetComputedOption("SCANWIDTH");
    store.GetIntOption("LINES");
    store.GetIntOption("SCANOFFSETX");
    EXPECT_THAT(capture.lines(),
                ElementsAre("Computed option: SCANWIDTH = 2550", "Computed option: LINES = 3300",
                            "Computed option: SCANOFFSETX = 0"));
}

TEST(ConfigReader, ListsAnEmptyStore)
{
    const LogCapture capture;
    TestStore store;
    store.DisplayConfig();
    EXPECT_THAT(capture.lines(),
                ElementsAre("Display Config Options", "Integer Options", "Double Options",
                            "String Options", "End of Config Options"));
}

TEST(ConfigReader, ListsItsEntriesInByteOrder)
{
    TestStore store{{"b", 1}, {"B", -2}, {"a", 3}, {"\xC3\xA4", 4}, {"B_", 5}, {"", 6}};
    store.SetDoubleOption("Z", 25.4);
    store.SetDoubleOption("Y", -1e-9);
    store.SetStringOption("S", "100%d");
    store.SetStringOption("A", "");
    const LogCapture capture;
    store.DisplayConfig();
    EXPECT_THAT(capture.lines(),
                ElementsAre("Display Config Options", "Integer Options", " = 6", "B = -2", "B_ = 5",
                            "a = 3", "b = 1", "\xC3\xA4 = 4", "Double Options", "Y = -0.000000",
                            "Z = 25.400000", "String Options", "A = ", "S = 100%d",
                            "End of Config Options"));
}

TEST(ConfigReader, ListsTheComputedValues)
{
    TestStore store;
    setWindow(store, {300, 3, 10, 0, 215.9, 279.4});
    const LogCapture capture;
    store.DisplayComputedValues();
    EXPECT_THAT(
        capture.lines(),
        ElementsAre("Display Computed Values:", "Computed option: SCANOFFSETX = 118",
                    "Computed option: SCANOFFSETY = 0", "Computed option: SCANWIDTH = 2550",
                    "Computed option: SCANHEIGHT = 3300", "Computed option: PIXELS_PER_LINE = 2431",
                    "Computed option: LINES = 3300", "Computed option: BYTES_PER_LINE = 7293"));
}

TEST(ConfigReader, HasLoadConfigBehindItsDestructor)
{
    EXPECT_EQ(virtualSlot(&ConfigReader::LoadConfig), 2);
}

}  // namespace
