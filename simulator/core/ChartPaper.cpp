// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ChartPaper.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Glyphs.h"

namespace scansim {

namespace {

constexpr double kMillimetresPerInch = 25.4;
constexpr double kRulerDepth = 5.0;
constexpr double kBandHeight = 16.0;
constexpr double kTitleCell = 1.5;
constexpr double kPrintCell = 0.35;
constexpr double kPrintPitch = 4.0;
constexpr double kDiagonalWidth = 0.6;

struct Colour {
    std::uint8_t r, g, b;
};

constexpr Colour kInk = {20, 22, 28};

std::uint8_t level(double fraction)
{
    return static_cast<std::uint8_t>(std::clamp(fraction, 0.0, 1.0) * 255.0);
}

// Sheets are of slightly different stock, so that no two look alike.
Colour stockColour(std::uint32_t number)
{
    return {static_cast<std::uint8_t>(252 - number * 7 % 40),
            static_cast<std::uint8_t>(251 - number * 13 % 40),
            static_cast<std::uint8_t>(246 - number * 29 % 60)};
}

// Ticks every millimetre, longer ones every five and ten; the first half of each is ink.
bool isTick(double along, double depth)
{
    const double whole = std::floor(along);
    if (along - whole >= 0.5) {
        return false;
    }
    const int millimetre = static_cast<int>(whole);
    const double length = millimetre % 10 == 0 ? kRulerDepth : millimetre % 5 == 0 ? 3.5 : 2.0;
    return depth < length;
}

bool isPrinted(const std::string& text, double x, double cell, int row)
{
    const int column = static_cast<int>(std::floor(x / cell));
    if (column < 0 || row < 0 || row >= kGlyphRows) {
        return false;
    }
    const auto index = static_cast<std::size_t>(column / kGlyphColumns);
    return index < text.size() && hasInk(text[index], column % kGlyphColumns, row);
}

// One height of the chart. All heights with the same kind and step look alike except for the
// rulers at the sides and the diagonal.
struct Stripe {
    enum class Kind { Ruler, Title, Print, Ramps, Patches, Grating, Checks, Plain };
    Kind kind = Kind::Plain;
    int step = 0;

    bool operator==(const Stripe& other) const { return kind == other.kind && step == other.step; }
};

class Chart {
public:
    Chart(std::string title, std::uint32_t number, PaperSize size)
        : title_(std::move(title)), stock_(stockColour(number)), size_(size)
    {
    }

    Stripe stripe(double y) const
    {
        const double edge = std::min(y, size_.height - y);
        if (edge < kRulerDepth) {
            return {Stripe::Kind::Ruler, static_cast<int>(edge * 2)};
        }
        const double inside = y - kRulerDepth;
        const int band = static_cast<int>(inside / kBandHeight);
        const double within = inside - band * kBandHeight;
        if (band == 0) {
            return {Stripe::Kind::Title, static_cast<int>(std::floor((within - 2.0) / kTitleCell))};
        }
        return bandStripe(band, within);
    }

    Colour colour(const Stripe& stripe, double x) const
    {
        const double inside = x - kRulerDepth;
        const double fraction = inside / (size_.width - 2 * kRulerDepth);
        if (stripe.kind == Stripe::Kind::Ruler) {
            return isTick(x, stripe.step / 2.0) ? kInk : stock_;
        }
        if (inside < 0 || fraction >= 1.0) {
            return stock_;
        }
        switch (stripe.kind) {
        case Stripe::Kind::Title:
            return isPrinted(title_, inside - 4.0, kTitleCell, stripe.step) ? kInk : stock_;
        case Stripe::Kind::Print:
            return printColour(stripe.step, inside);
        case Stripe::Kind::Ramps:
            return rampColour(stripe.step, fraction);
        case Stripe::Kind::Patches:
            return patchColour(stripe.step, fraction);
        case Stripe::Kind::Grating:
            return gratingColour(inside);
        case Stripe::Kind::Checks:
            return (static_cast<int>(inside / 2.0) + stripe.step) % 2 == 0 ? kInk : stock_;
        default:
            return stock_;
        }
    }

    // The rulers at the left and right edges.
    bool isSideTick(double x, double y) const { return isTick(y, std::min(x, size_.width - x)); }

    bool isDiagonal(double x, double y) const
    {
        return std::abs(x - y * size_.width / size_.height) < kDiagonalWidth / 2;
    }

    double diagonalAt(double y) const { return y * size_.width / size_.height; }
    double width() const { return size_.width; }

private:
    static Stripe bandStripe(int band, double within)
    {
        switch (band % 5) {
        case 1:
            return {Stripe::Kind::Print,
                    static_cast<int>(within / kPrintPitch) * 16 +
                        static_cast<int>(std::fmod(within, kPrintPitch) / kPrintCell)};
        case 2:
            return {Stripe::Kind::Ramps, static_cast<int>(within / 4.0)};
        case 3:
            return {Stripe::Kind::Patches, static_cast<int>(within / 8.0)};
        case 4:
            return {Stripe::Kind::Grating, 0};
        default:
            return {Stripe::Kind::Checks, static_cast<int>(within / 2.0)};
        }
    }

    Colour printColour(int step, double inside) const
    {
        static const std::string lines[] = {
            "THE 7 OLD FOXES TROT SOFTLY OTHER 0123456789 SHEETS BEFORE THE LAST HAS LEFT ",
            "SHORELESS DOTS REST 31415926535 ABLE TO REFLECT A QUOTE FROM THE OTHER SIDE ",
            "LEFT TO RIGHT 27182818284 THE SEALED TABLE HOLDS TREE DOORS OF SOLID ASH ",
            "A HOT DRAFT LEAD THE BLADES 16180339887 OF TALL RED REEDS ASTRAY FOR HOURS "};
        const std::string& text = lines[static_cast<std::size_t>(step / 16) % 4];
        const double period = static_cast<double>(text.size()) * kGlyphColumns * kPrintCell;
        return isPrinted(text, std::fmod(inside, period), kPrintCell, step % 16) ? kInk : stock_;
    }

    static Colour rampColour(int step, double fraction)
    {
        const std::uint8_t up = level(fraction);
        switch (step) {
        case 0:
            return {up, up, up};
        case 1:
            return {up, 0, 0};
        case 2:
            return {0, up, 0};
        default:
            return {0, 0, up};
        }
    }

    static Colour patchColour(int step, double fraction)
    {
        static const Colour patches[2][8] = {{{230, 30, 30},
                                              {30, 180, 40},
                                              {30, 50, 210},
                                              {20, 190, 210},
                                              {200, 30, 170},
                                              {240, 220, 30},
                                              {250, 250, 250},
                                              {8, 8, 8}},
                                             {{180, 120, 90},
                                              {90, 120, 160},
                                              {100, 110, 60},
                                              {220, 160, 40},
                                              {70, 40, 110},
                                              {190, 190, 190},
                                              {130, 130, 130},
                                              {60, 60, 60}}};
        return patches[std::min(step, 1)][std::min(static_cast<int>(fraction * 8), 7)];
    }

    // Line pairs, coarser towards the right.
    Colour gratingColour(double inside) const
    {
        const double pitch = 0.25 + 0.25 * std::floor(inside / 25.0);
        return std::fmod(inside, pitch) < pitch / 2 ? kInk : stock_;
    }

    std::string title_;
    Colour stock_;
    PaperSize size_;
};

class ChartReader : public PaperReader {
public:
    ChartReader(Chart chart, const Window& window) : chart_(std::move(chart)), window_(window)
    {
        row_.resize(std::size_t{window.pixels} * window.channels);
        findSides();
    }

    void readLine(std::uint32_t line, std::uint8_t* out) override
    {
        const double y = millimetres(window_.top + line);
        const Stripe stripe = chart_.stripe(y);
        if (!hasRow_ || !(stripe == stripe_)) {
            drawRow(stripe);
        }
        std::copy(row_.begin(), row_.end(), out);
        drawSides(y, out);
        drawDiagonal(y, out);
    }

private:
    double millimetres(std::uint32_t dot) const
    {
        return (dot + 0.5) * kMillimetresPerInch / window_.dpi;
    }
    double place(std::uint32_t pixel) const { return millimetres(window_.left + pixel); }

    // First pixel of the window at or right of a place.
    std::uint32_t pixelAt(double x) const
    {
        const double dot = std::floor(x * window_.dpi / kMillimetresPerInch) - window_.left;
        return static_cast<std::uint32_t>(
            std::clamp(dot, 0.0, static_cast<double>(window_.pixels)));
    }

    void findSides()
    {
        leftSideEnd_ = std::min(pixelAt(kRulerDepth) + 1, window_.pixels);
        rightSideBegin_ = std::max(pixelAt(chart_.width() - kRulerDepth), leftSideEnd_);
    }

    void put(std::uint8_t* line, std::uint32_t pixel, Colour colour) const
    {
        const std::uint8_t rgb[3] = {colour.r, colour.g, colour.b};
        if (window_.channels == 1) {
            line[pixel] = greyOf(rgb);
        } else {
            std::copy_n(rgb, 3, line + std::size_t{3} * pixel);
        }
    }

    void drawRow(const Stripe& stripe)
    {
        for (std::uint32_t i = 0; i < window_.pixels; ++i) {
            put(row_.data(), i, chart_.colour(stripe, place(i)));
        }
        stripe_ = stripe;
        hasRow_ = true;
    }

    void drawSides(double y, std::uint8_t* out) const
    {
        drawTicks(0, leftSideEnd_, y, out);
        drawTicks(rightSideBegin_, window_.pixels, y, out);
    }

    void drawTicks(std::uint32_t begin, std::uint32_t end, double y, std::uint8_t* out) const
    {
        for (std::uint32_t i = begin; i < end; ++i) {
            if (chart_.isSideTick(place(i), y)) {
                put(out, i, kInk);
            }
        }
    }

    void drawDiagonal(double y, std::uint8_t* out) const
    {
        const std::uint32_t begin = pixelAt(chart_.diagonalAt(y) - kDiagonalWidth);
        const std::uint32_t end = pixelAt(chart_.diagonalAt(y) + kDiagonalWidth);
        for (std::uint32_t i = begin; i < end; ++i) {
            if (chart_.isDiagonal(place(i), y)) {
                put(out, i, kInk);
            }
        }
    }

    Chart chart_;
    Window window_;
    Bytes row_;
    Stripe stripe_;
    bool hasRow_ = false;
    std::uint32_t leftSideEnd_ = 0;
    std::uint32_t rightSideBegin_ = 0;
};

}  // namespace

ChartPaper::ChartPaper(std::string title, std::uint32_t number, PaperSize size)
    : title_(std::move(title)), number_(number), size_(size)
{
}

std::unique_ptr<PaperReader> ChartPaper::open(const Window& window) const
{
    return std::make_unique<ChartReader>(Chart(title_, number_, size_), window);
}

}  // namespace scansim
