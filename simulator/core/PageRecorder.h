// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>
#include <string>

#include "Bytes.h"

namespace scansim {

// Writes the pages that a scanner plays as PNM files, in the way a front end should see them; of
// compressed pages the chunks, too.
class PageRecorder {
public:
    // Files are `prefix` + "NNN.pnm" and "NNN.wck", numbered from 1. An empty prefix records
    // nothing.
    explicit PageRecorder(std::string prefix = {});
    ~PageRecorder();
    PageRecorder(const PageRecorder&) = delete;
    PageRecorder& operator=(const PageRecorder&) = delete;

    void beginPage(std::uint32_t pixels, std::uint32_t channels, bool isCompressed = false);
    void writeLine(const std::uint8_t* line);

    // Bytes of a compressed page as they are sent.
    void writeChunks(const std::uint8_t* bytes, std::size_t size);

    // Notes the number of lines written; a file of fewer lines than asked for is complete, too.
    void endPage();

private:
    std::FILE* open(const char* suffix) const;
    void writeHeader();

    std::string prefix_;
    std::FILE* file_ = nullptr;
    std::FILE* chunks_ = nullptr;
    unsigned pages_ = 0;
    std::uint32_t pixels_ = 0;
    std::uint32_t channels_ = 0;
    std::uint32_t lines_ = 0;
};

}  // namespace scansim
