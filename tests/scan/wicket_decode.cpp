// SPDX-License-Identifier: LGPL-2.1-or-later
// Decodes recorded chunks of a compressed page with the scalar decoder, apart from the stages and
// the fast path that a scan runs through:
//   wicket_decode INPUT.wck WIDTH CHANNELS OUTPUT.raw
// The output is the lines without gaps. A chunk that is not whole ends the page.
#include "wicket/ScalarPage.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

int main(int argc, char** argv)
{
    const int width = argc == 5 ? std::atoi(argv[2]) : 0;
    const int channels = argc == 5 ? std::atoi(argv[3]) : 0;
    if (width < 1 || width > 0xFFFF || (channels != 1 && channels != 3)) {
        std::fprintf(stderr, "usage: wicket_decode INPUT.wck WIDTH CHANNELS OUTPUT.raw\n");
        return 2;
    }
    std::ifstream input(argv[1], std::ios::binary);
    if (!input) {
        std::perror(argv[1]);
        return 1;
    }
    const std::vector<unsigned char> stream(std::istreambuf_iterator<char>(input), {});
    const std::vector<unsigned char> page = samples::scalarPage(stream, width, channels);
    std::ofstream output(argv[4], std::ios::binary);
    output.write(reinterpret_cast<const char*>(page.data()), static_cast<long>(page.size()));
    output.close();
    if (!output) {
        std::perror(argv[4]);
        return 1;
    }
    return 0;
}
