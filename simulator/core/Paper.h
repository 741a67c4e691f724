// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>
#include <string>

#include "Bytes.h"

namespace scansim {

// The area of a sheet or of the glass, in millimetres.
struct PaperSize {
    double width = 0;
    double height = 0;
};

// Which pixels of the paper a scan wants.
struct Window {
    std::uint32_t dpi = 0;
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t pixels = 0;
    std::uint32_t channels = 3;  // 3: RGB, 1: grey
};

// Reads lines of one window; lines are numbered from the top of the window.
class PaperReader {
public:
    virtual ~PaperReader() = default;
    virtual void readLine(std::uint32_t line, std::uint8_t* out) = 0;
};

// Something to scan. A pixel depends on its place on the paper and on the resolution only, so
// every window shows the same picture.
class Paper {
public:
    virtual ~Paper() = default;
    virtual std::unique_ptr<PaperReader> open(const Window& window) const = 0;
};

// `name` is "chart", "noise" or a PNM, PNG or JPEG file; `title` is printed on the chart, and
// `number` makes charts and noises differ. Throws InputError for a file that is no picture.
std::unique_ptr<Paper> makePaper(const std::string& name, const std::string& title,
                                 std::uint32_t number, PaperSize size);

// The grey value of a colour, as every paper converts it.
inline std::uint8_t greyOf(const std::uint8_t* rgb)
{
    return static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
}

}  // namespace scansim
