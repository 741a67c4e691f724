// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PageRecorder.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace scansim {

PageRecorder::PageRecorder(std::string prefix) : prefix_(std::move(prefix)) {}

PageRecorder::~PageRecorder()
{
    endPage();
}

void PageRecorder::beginPage(std::uint32_t pixels, std::uint32_t channels, bool isCompressed)
{
    endPage();
    if (prefix_.empty()) {
        return;
    }
    pixels_ = pixels;
    channels_ = channels;
    lines_ = 0;
    ++pages_;
    chunks_ = isCompressed ? open(".wck") : nullptr;
    file_ = open(".pnm");
    if (file_ != nullptr) {
        writeHeader();
    }
}

std::FILE* PageRecorder::open(const char* suffix) const
{
    char number[16];
    std::snprintf(number, sizeof number, "%03u", pages_);
    const std::string path = prefix_ + number + suffix;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        std::fprintf(stderr, "scanner-sim: cannot record to %s: %s\n", path.c_str(),
                     std::strerror(errno));
    }
    return file;
}

// The number of lines has a fixed width, so that it can be corrected in place.
void PageRecorder::writeHeader()
{
    std::fprintf(file_, "P%c\n%u %10u\n255\n", channels_ == 3 ? '6' : '5', pixels_, lines_);
}

void PageRecorder::writeLine(const std::uint8_t* line)
{
    if (file_ != nullptr) {
        std::fwrite(line, channels_, pixels_, file_);
        ++lines_;
    }
}

void PageRecorder::writeChunks(const std::uint8_t* bytes, std::size_t size)
{
    if (chunks_ != nullptr) {
        std::fwrite(bytes, 1, size, chunks_);
    }
}

void PageRecorder::endPage()
{
    if (chunks_ != nullptr) {
        std::fclose(chunks_);
        chunks_ = nullptr;
    }
    if (file_ != nullptr) {
        std::rewind(file_);
        writeHeader();
        std::fclose(file_);
        file_ = nullptr;
    }
}

}  // namespace scansim
