// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Page.h"

#include "wicket/ScalarPage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace frontend {

namespace {

namespace fs = std::filesystem;

constexpr const char* kRecorded = "recorded";

std::vector<fs::path> recordedFiles(int device)
{
    const std::string prefix = "dev" + std::to_string(device) + "-";
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(kRecorded)) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0) {
            files.push_back(entry.path());
        }
    }
    // By number: the shorter one comes first.
    std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) {
        const std::size_t sizes[] = {a.native().size(), b.native().size()};
        return sizes[0] != sizes[1] ? sizes[0] < sizes[1] : a < b;
    });
    return files;
}

struct Head {
    int width = 0;
    int channels = 0;
};

Head readHead(std::ifstream& file)
{
    std::string magic;
    int height = 0;
    int depth = 0;
    Head head;
    file >> magic >> head.width >> height >> depth;
    file.get();
    require(file.good() && (magic == "P5" || magic == "P6"), "a recorded page");
    head.channels = magic == "P6" ? 3 : 1;
    return head;
}

Digest digestOf(std::ifstream& file)
{
    Digest digest;
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())).gcount() > 0) {
        digest.add(reinterpret_cast<const unsigned char*>(block.data()),
                   static_cast<std::size_t>(file.gcount()));
    }
    return digest;
}

Digest digestOfPage(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const Head head = readHead(file);
    const fs::path chunks = fs::path(path).replace_extension(".wck");
    if (!fs::exists(chunks)) {
        return digestOf(file);
    }
    std::ifstream input(chunks, std::ios::binary);
    const std::vector<unsigned char> stream(std::istreambuf_iterator<char>(input), {});
    const auto page = samples::scalarPage(stream, head.width, head.channels);
    Digest digest;
    digest.add(page.data(), page.size());
    return digest;
}

}  // namespace

void Digest::add(const unsigned char* data, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        hash = (hash ^ data[i]) * 0x100000001B3;
    }
    bytes += size;
}

SANE_Status readPage(const Scanner& scanner, Digest* page, std::size_t blockSize)
{
    std::vector<SANE_Byte> block(blockSize);
    while (true) {
        SANE_Int length = -1;
        const SANE_Status status =
            sane_read(scanner.handle(), block.data(), static_cast<SANE_Int>(blockSize), &length);
        require(length >= 0 && length <= static_cast<SANE_Int>(blockSize), "length of a read");
        require(length == 0 || status != SANE_STATUS_EOF, "data behind the end");
        if (status != SANE_STATUS_GOOD) {
            return status;
        }
        page->add(block.data(), static_cast<std::size_t>(length));
    }
}

Digest takeRecorded(int device)
{
    Digest last;
    const std::vector<fs::path> files = recordedFiles(device);
    const auto isPage = [](const fs::path& path) { return path.extension() == ".pnm"; };
    const auto page = std::find_if(files.rbegin(), files.rend(), isPage);
    if (page != files.rend()) {
        last = digestOfPage(*page);
    }
    for (const fs::path& path : files) {
        fs::remove(path);
    }
    return last;
}

Digest readWholePage(const Scanner& scanner, std::size_t blockSize)
{
    const SANE_Parameters before = scanner.parameters();
    const SANE_Status started = scanner.start();
    require(started == SANE_STATUS_GOOD, "sane_start: status " + std::to_string(started));
    const SANE_Parameters after = scanner.parameters();
    require(before.lines == after.lines && before.bytes_per_line == after.bytes_per_line,
            "the parameters change with the start");
    Digest page;
    const SANE_Status ended = readPage(scanner, &page, blockSize);
    require(ended == SANE_STATUS_EOF, "end of the page: status " + std::to_string(ended));
    const auto expected =
        static_cast<std::uint64_t>(after.lines) * static_cast<std::uint64_t>(after.bytes_per_line);
    require(page.bytes == expected,
            std::to_string(page.bytes) + " bytes instead of " + std::to_string(expected));
    return page;
}

Digest scanWholePage(const Scanner& scanner, int device, std::size_t blockSize)
{
    const Digest page = readWholePage(scanner, blockSize);
    require(page == takeRecorded(device), "the page is not the recorded one");
    return page;
}

}  // namespace frontend
