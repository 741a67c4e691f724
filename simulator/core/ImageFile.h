// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>

#include "Bytes.h"

namespace scansim {

// A picture of 24-bit RGB pixels, at least one.
struct Image {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    Bytes rgb;
};

// Reads a PNG, JPEG or binary PNM (P5, P6, 8 bits) file. Throws InputError.
Image loadImage(const std::string& path);

}  // namespace scansim
