// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>

#include "LineEncoder.h"
#include "PageRecorder.h"
#include "PageStream.h"
#include "Paper.h"

namespace scansim {

// A page that is sent as it is, line by line.
class RawPageStream : public PageStream {
public:
    // `paper` and `recorder` have to outlive the stream; `cutBytes` are left out at the end.
    RawPageStream(const Paper& paper, const Window& window, std::uint32_t lines,
                  const LineLayout& layout, std::uint32_t cutBytes, PageRecorder& recorder);

    std::uint32_t deviceWidth() const override { return encoder_.deviceWidth(); }
    bool isOver() override { return bytesLeft_ == 0; }
    void append(Bytes& out, std::size_t size) override;

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
