// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IMColorCorrect.h"
#include "ImageData.h"

#include "Allocations.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <climits>
#include <memory>

#include <dlfcn.h>

using testing::ElementsAre;

namespace {

const char* const kLibrary = CORRECTION_LIBRARY;

bool isLoaded()
{
    void* handle = dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}

class ColorCorrect : public testing::Test {
protected:
    ColorCorrect()
        : colour(folder.file("colour", std::string("\x05tab", 4))),
          grey(folder.file("grey", std::string("\x07", 1)))
    {
    }
    std::unique_ptr<IMColorCorrect> create(const char* function)
    {
        return std::make_unique<IMColorCorrect>(kLibrary, function, colour.c_str(), grey.c_str());
    }
    void prepare(TripletTypeEnum type, int width, int stride, int lines)
    {
        image.SetAttributes(width, lines, stride, type, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        append(image, Bytes(static_cast<std::size_t>(stride * lines), 10));
    }
    void expectInactive(IMColorCorrect& correct)
    {
        prepare(RGB, 2, 6, 1);
        const LogCapture capture;
        EXPECT_EQ(correct.Perform(&image, 6), 0);
        EXPECT_EQ(rawBytes(image), Bytes(6, 10));
        EXPECT_THAT(capture.plainMessages(), ElementsAre("Scan Correct failed."));
    }

    TempFolder folder;
    std::string colour;
    std::string grey;
    ImageData image;
};

TEST_F(ColorCorrect, CorrectsColour)
{
    prepare(RGB, 2, 8, 2);
    const auto correct = create("AddFirst");
    const LogCapture capture;
    EXPECT_EQ(correct->Perform(&image, 16), 1);
    const Bytes line = {15, 15, 15, 15, 15, 15, 10, 10};
    EXPECT_EQ(rawBytes(image), line + line);
    EXPECT_THAT(capture.plainMessages(), ElementsAre("Scan Correct successful."));
}

TEST_F(ColorCorrect, CorrectsGreyWithItsOwnTable)
{
    prepare(GRAY, 3, 4, 2);
    image.SetProcessedDataSize(4);
    EXPECT_EQ(create("AddFirst")->Perform(&image, 4), 1);
    EXPECT_EQ(allBytes(image), (Bytes{10, 10, 10, 10, 17, 17, 17, 10}));
}

TEST_F(ColorCorrect, PassesTheGeometryOn)
{
    prepare(BGR, 3, 11, 4);
    // Two lines and a part of the third.
    EXPECT_EQ(create("Arguments")->Perform(&image, 30), 1);
    EXPECT_EQ(slice(rawBytes(image), 0, 7), (Bytes{3, 2, 11, 1, 4, 1, 10}));
    prepare(GRAY, 9, 9, 2);
    EXPECT_EQ(create("Arguments")->Perform(&image, 18), 1);
    EXPECT_EQ(slice(rawBytes(image), 0, 7), (Bytes{9, 2, 9, 0, 1, 1, 10}));
}

TEST_F(ColorCorrect, CountsOnlyLinesThatAreThere)
{
    prepare(GRAY, 6, 6, 3);
    EXPECT_EQ(create("Arguments")->Perform(&image, INT_MAX), 1);
    EXPECT_EQ(rawBytes(image)[1], 3);
}

TEST_F(ColorCorrect, AnErrorIsLoggedAndTheDataGoesOn)
{
    prepare(RGB, 2, 6, 1);
    const auto correct = create("Fail");
    const LogCapture capture;
    EXPECT_EQ(correct->Perform(&image, 6), 1);
    EXPECT_EQ(rawBytes(image), Bytes{0xEE} + Bytes(5, 10));
    EXPECT_THAT(capture.plainMessages(), ElementsAre("Scan Correct error = 42."));
}

TEST_F(ColorCorrect, AnEmptyTableIsPresent)
{
    colour = folder.file("empty", "");
    prepare(RGB, 4, 12, 1);
    EXPECT_EQ(create("Arguments")->Perform(&image, 12), 1);
    EXPECT_EQ(slice(rawBytes(image), 0, 6), (Bytes{4, 1, 12, 1, 0, 1}));
}

// ---- without a part ------------------------------------------------------------------------

TEST_F(ColorCorrect, NullArgumentsLeaveItInactive)
{
    const char* const arguments[] = {kLibrary, "AddFirst", colour.c_str(), grey.c_str()};
    for (int missing = 0; missing < 4; ++missing) {
        const char* a[4];
        std::copy(std::begin(arguments), std::end(arguments), a);
        a[missing] = nullptr;
        IMColorCorrect correct(a[0], a[1], a[2], a[3]);
        EXPECT_FALSE(isLoaded()) << missing;
        expectInactive(correct);
    }
}

TEST_F(ColorCorrect, MissingPartsLeaveItInactive)
{
    const std::string nowhere = folder.missing();
    IMColorCorrect library(nowhere.c_str(), "AddFirst", colour.c_str(), grey.c_str());
    expectInactive(library);
    IMColorCorrect function(kLibrary, "NoSuchFunction", colour.c_str(), grey.c_str());
    expectInactive(function);
    IMColorCorrect colourTable(kLibrary, "AddFirst", nowhere.c_str(), grey.c_str());
    expectInactive(colourTable);
    IMColorCorrect greyTable(kLibrary, "AddFirst", colour.c_str(), nowhere.c_str());
    expectInactive(greyTable);
    IMColorCorrect maker;
    expectInactive(maker);
}

TEST_F(ColorCorrect, ClosesItsLibrary)
{
    EXPECT_FALSE(isLoaded());
    {
        const auto correct = create("AddFirst");
        EXPECT_TRUE(isLoaded());
    }
    EXPECT_FALSE(isLoaded());
    {
        const auto correct = create("NoSuchFunction");
    }
    EXPECT_FALSE(isLoaded());
}

// ---- the tables ----------------------------------------------------------------------------

struct Table {
    unsigned char* bytes = nullptr;
    int size = 0;

    Table() = default;
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table() { free(bytes); }
};

TEST_F(ColorCorrect, ReadsWholeTables)
{
    for (const std::size_t size : {1U, 255U, 4096U, 100000U}) {
        std::string content(size, '\0');
        Random random(static_cast<unsigned>(size));
        for (char& c : content) {
            c = static_cast<char>(random.byte());
        }
        const std::string path = folder.file("table", content);
        Table table;
        IMColorCorrect(nullptr, nullptr, nullptr, nullptr)
            .SetupLutFiles(&table.bytes, path.c_str(), &table.size);
        ASSERT_NE(table.bytes, nullptr);
        ASSERT_EQ(table.size, static_cast<int>(size));
        EXPECT_EQ(std::string(table.bytes, table.bytes + size), content);
    }
}

TEST_F(ColorCorrect, TablesThatCannotBeReadAreAbsent)
{
    IMColorCorrect correct(nullptr, nullptr, nullptr, nullptr);
    for (const std::string& path : {folder.missing(), folder.unopenable(), folder.path()}) {
        Table table;
        correct.SetupLutFiles(&table.bytes, path.c_str(), &table.size);
        EXPECT_EQ(table.bytes, nullptr) << path;
        EXPECT_EQ(table.size, 0) << path;
    }
    {
        const ShortReads shortReads;
        Table table;
        correct.SetupLutFiles(&table.bytes, colour.c_str(), &table.size);
        EXPECT_EQ(table.bytes, nullptr);
        EXPECT_EQ(table.size, 0);
    }
    Table table;
    {
        const Allocations none(0);
        correct.SetupLutFiles(&table.bytes, colour.c_str(), &table.size);
    }
    EXPECT_EQ(table.bytes, nullptr);
    correct.SetupLutFiles(&table.bytes, colour.c_str(), &table.size);
    EXPECT_EQ(table.size, 4);
}

TEST_F(ColorCorrect, UnusualStridesAreHarmless)
{
    for (const int stride : {INT_MIN, -1, 0, 1, INT_MAX}) {
        for (const int width : {-1, 0, 100, INT_MAX}) {
            image.SetAttributes(width, 1, stride, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
            append(image, Bytes(12, 10));
            const int result = create("Fail")->Perform(&image, 12);
            EXPECT_TRUE(result == 0 || result == 1);
            EXPECT_EQ(image.GetRawDataSize(), 12);
        }
    }
}

TEST_F(ColorCorrect, AnEmptyImageIsHarmless)
{
    image.SetAttributes(2, 1, 6, RGB, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
    create("Fail")->Perform(&image, 6);
    EXPECT_EQ(image.GetAllDataSize(), 0);
}

TEST(TRIPLET_TYPE, HasItsNumbers)
{
    EXPECT_THAT((std::vector<int>{TRIPLET_TYPE_GRAY, TRIPLET_TYPE_RGB, TRIPLET_TYPE_BGR,
                                  TRIPLET_TYPE_UNKNOWN}),
                ElementsAre(0, 1, 2, 65535));
}

}  // namespace
