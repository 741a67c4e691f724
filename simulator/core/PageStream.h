#pragma once

#include <memory>

#include "LineEncoder.h"
#include "PageRecorder.h"
#include "Paper.h"

namespace scansim {

// The image bytes of one page, made line by line while they are asked for.
class PageStream {
public:
    // `paper` and `recorder` have to outlive the stream; `cutBytes` are left out at the end.
    PageStream(const Paper& paper, const Window& window, std::uint32_t lines,
               const LineLayout& layout, std::uint32_t cutBytes, PageRecorder& recorder);

    std::uint32_t deviceWidth() const { return encoder_.deviceWidth(); }
    std::uint64_t bytesLeft() const { return bytesLeft_; }

    // Appends the next bytes of the page, at most `size`.
    void append(Bytes& out, std::size_t size);

private:
    void makeLine();

    std::unique_ptr<PaperReader> reader_;
    LineEncoder encoder_;
    PageRecorder& recorder_;
    Bytes pageLine_;
    Bytes deviceLine_;
    std::size_t used_;
    std::uint32_t nextLine_ = 0;
    std::uint64_t bytesLeft_;
};

}  // namespace scansim
