// SPDX-License-Identifier: LGPL-2.1-or-later
// Writes the papers that are scanned: FOLDER/blank.pnm and FOLDER/photo.pnm.
#include "Samples.h"

#include <fstream>
#include <iostream>

namespace {

bool write(const std::string& path, const samples::Image& image)
{
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << image.width << ' ' << image.height << "\n255\n";
    file.write(reinterpret_cast<const char*>(image.pixels.data()),
               static_cast<std::streamsize>(image.pixels.size()));
    return file.flush().good();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "Usage: make_papers FOLDER\n";
        return 2;
    }
    const std::string folder = argv[1];
    const bool isWritten =
        write(folder + "/blank.pnm", {1, 1, 3, {255, 255, 255}}) &&
        write(folder + "/photo.pnm", samples::page(samples::Pattern::photo, 5104, 2000, 3));
    return isWritten ? 0 : 1;
}
