// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Paper.h"
#include "ImageFile.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include <jpeglib.h>  // needs <cstdio> before it

#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

constexpr PaperSize kSize = {216, 297};

Bytes scan(const Paper& paper, const Window& window, std::uint32_t lines)
{
    const std::size_t size = std::size_t{window.pixels} * window.channels;
    Bytes out(size * lines);
    const std::unique_ptr<PaperReader> reader = paper.open(window);
    for (std::uint32_t line = 0; line < lines; ++line) {
        reader->readLine(line, out.data() + size * line);
    }
    return out;
}

Bytes cropped(const Bytes& page, const Window& window, std::uint32_t left, std::uint32_t top,
              std::uint32_t pixels, std::uint32_t lines)
{
    Bytes out;
    for (std::uint32_t line = 0; line < lines; ++line) {
        const std::size_t from = (std::size_t{top + line} * window.pixels + left) * window.channels;
        const auto first = page.begin() + static_cast<long>(from);
        out.insert(out.end(), first,
                   first + static_cast<long>(std::size_t{pixels} * window.channels));
    }
    return out;
}

std::string testPicture(const TempFolder& folder)
{
    // 2 x 2: red green / blue white
    const char pixels[] = {'\xFF', 0, 0, 0, '\xFF', 0, 0, 0, '\xFF', '\xFF', '\xFF', '\xFF'};
    return folder.write("picture.ppm",
                        "P6\n# comment\n2 2\n255\n" + std::string(pixels, sizeof pixels));
}

}  // namespace

class EveryPaper : public testing::TestWithParam<const char*> {
protected:
    std::unique_ptr<Paper> paper() const
    {
        const std::string name = GetParam();
        return makePaper(name == "picture" ? testPicture(folder_) : name, "SHEET 1", 1, kSize);
    }

private:
    TempFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(Paper, EveryPaper, testing::Values("chart", "noise", "picture"));

TEST_P(EveryPaper, WindowShowsThePartOfTheWhole)
{
    for (std::uint32_t channels : {1U, 3U}) {
        const Window whole = {75, 0, 0, 637, channels};
        const Bytes page = scan(*paper(), whole, 876);
        for (std::uint32_t left : {0U, 1U, 13U, 300U, 537U}) {
            for (std::uint32_t top : {0U, 1U, 47U, 776U}) {
                EXPECT_EQ(scan(*paper(), {75, left, top, 100, channels}, 100),
                          cropped(page, whole, left, top, 100, 100))
                    << left << ", " << top;
            }
        }
    }
}

TEST_P(EveryPaper, IsNotTheSameEverywhere)
{
    const Bytes page = scan(*paper(), {75, 0, 0, 637, 3}, 876);
    EXPECT_GT(std::set<std::uint8_t>(page.begin(), page.end()).size(), 1U);
}

// A front end that loses a pixel or a line is to be seen at once.
TEST(ChartPaper, ShiftByOnePixelShowsAtEveryEdge)
{
    const std::unique_ptr<Paper> paper = makePaper("chart", "FLATBED", 0, kSize);
    for (std::uint32_t dpi : {75U, 150U, 300U, 600U}) {
        const auto inches = [dpi](std::uint32_t millimetres) {
            return millimetres * dpi * 10 / 254;
        };
        for (std::uint32_t left : {0U, 20U, 196U}) {
            const Window window = {dpi, inches(left), 0, inches(19), 1};
            Window shifted = window;
            ++shifted.left;
            EXPECT_NE(scan(*paper, window, 1), scan(*paper, shifted, 1))
                << dpi << " dpi, left " << left;
        }
        for (std::uint32_t left : {0U, 215U}) {
            const Window window = {dpi, inches(left), inches(30), 1, 1};
            Window shifted = window;
            ++shifted.top;
            EXPECT_NE(scan(*paper, window, inches(20)), scan(*paper, shifted, inches(20)))
                << dpi << " dpi, at " << left;
        }
    }
}

TEST(ChartPaper, IsNotSymmetric)
{
    const std::unique_ptr<Paper> paper = makePaper("chart", "FLATBED", 0, kSize);
    const Window window = {75, 0, 0, 637, 3};
    const Bytes page = scan(*paper, window, 876);
    Bytes mirrored;
    for (std::uint32_t line = 0; line < 876; ++line) {
        for (std::uint32_t i = 0; i < 637; ++i) {
            const std::uint8_t* pixel = &page[(std::size_t{line} * 637 + 636 - i) * 3];
            mirrored.insert(mirrored.end(), pixel, pixel + 3);
        }
    }
    EXPECT_NE(page, mirrored);
}

TEST(ChartPaper, SheetsAreOfDifferentStockAndTitle)
{
    const Window window = {75, 20, 16, 300, 3};
    const Bytes first = scan(*makePaper("chart", "SHEET 1", 1, kSize), window, 30);
    EXPECT_NE(first, scan(*makePaper("chart", "SHEET 2", 1, kSize), window, 30));
    EXPECT_NE(first, scan(*makePaper("chart", "SHEET 1", 2, kSize), window, 30));
    EXPECT_EQ(first, scan(*makePaper("chart", "SHEET 1", 1, kSize), window, 30));
}

TEST(ImagePaper, IsStretchedOverThePaper)
{
    TempFolder folder;
    const std::unique_ptr<Paper> paper = makePaper(testPicture(folder), "", 0, {25.4, 25.4});
    const Bytes page = scan(*paper, {4, 0, 0, 4, 3}, 4);
    const auto at = [&page](int x, int y) {
        const auto first = page.begin() + (y * 4 + x) * 3;
        return Bytes(first, first + 3);
    };
    EXPECT_EQ(at(0, 0), (Bytes{255, 0, 0}));
    EXPECT_EQ(at(1, 1), (Bytes{255, 0, 0}));
    EXPECT_EQ(at(2, 0), (Bytes{0, 255, 0}));
    EXPECT_EQ(at(1, 2), (Bytes{0, 0, 255}));
    EXPECT_EQ(at(3, 3), (Bytes{255, 255, 255}));
    EXPECT_EQ(scan(*paper, {2, 0, 0, 2, 1}, 1), (Bytes{76, 150}));
}

TEST(ImageFile, ReadsPng)
{
    TempFolder folder;
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = 2;
    png.height = 1;
    png.format = PNG_FORMAT_RGB;
    const std::uint8_t pixels[] = {1, 2, 3, 4, 5, 6};
    const std::string path = folder.path("p.png");
    ASSERT_NE(png_image_write_to_file(&png, path.c_str(), 0, pixels, 0, nullptr), 0);
    EXPECT_EQ(loadImage(path).rgb, Bytes(pixels, pixels + 6));
}

TEST(ImageFile, ReadsJpeg)
{
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &data, &size);
    info.image_width = 8;
    info.image_height = 2;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_start_compress(&info, TRUE);
    Bytes row(24, 120);
    JSAMPROW rows[] = {row.data()};
    while (info.next_scanline < info.image_height) {
        jpeg_write_scanlines(&info, rows, 1);
    }
    jpeg_finish_compress(&info);
    TempFolder folder;
    const std::string path =
        folder.write("p.jpg", std::string(reinterpret_cast<char*>(data), size));
    jpeg_destroy_compress(&info);
    std::free(data);

    const Image image = loadImage(path);
    EXPECT_EQ(image.width, 8U);
    EXPECT_EQ(image.height, 2U);
    for (std::uint8_t sample : image.rgb) {
        EXPECT_NEAR(sample, 120, 2);
    }
}

TEST(ImageFile, ReadsGreyPnm)
{
    TempFolder folder;
    const Image image = loadImage(folder.write("g.pgm", "P5 2 1 255\nAB"));
    EXPECT_EQ(image.width, 2U);
    EXPECT_EQ(image.rgb, (Bytes{'A', 'A', 'A', 'B', 'B', 'B'}));
}

TEST(ImageFile, RefusesWhatIsNoPicture)
{
    TempFolder folder;
    EXPECT_THROW(loadImage("/nowhere/x.png"), InputError);
    EXPECT_THROW(loadImage(folder.write("t.txt", "hello")), InputError);
    EXPECT_THROW(loadImage(folder.write("short.ppm", "P6 2 2 255\nabc")), InputError);
    EXPECT_THROW(loadImage(folder.write("deep.ppm", "P6 1 1 65535\nabcdef")), InputError);
    EXPECT_THROW(loadImage(folder.write("huge.pgm", "P5 16000000 16000000 255\n")), InputError);
    EXPECT_THROW(loadImage(folder.write("bad.png", "\x89PNG\r\n\x1A\nrubbish")), InputError);
    EXPECT_THROW(loadImage(folder.write("bad.jpg", "\xFF\xD8\xFFrubbish")), InputError);
}

}  // namespace scansim::test
