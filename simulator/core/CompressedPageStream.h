// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "ChunkEncoder.h"
#include "FaultScript.h"
#include "LineEncoder.h"
#include "PageRecorder.h"
#include "PageStream.h"
#include "Paper.h"

namespace scansim {

// How a device compresses the lines that it sends.
struct CompressedLayout {
    std::uint32_t bandLines = 32;
    std::vector<int> qualities;  // of the chunks in turn
};

// A page that is sent as a row of chunks, one for each band of lines.
class CompressedPageStream : public PageStream {
public:
    // Asked once for every chunk.
    using NextFault = std::function<std::optional<Fault>()>;

    // `paper` and `recorder` have to outlive the stream; `cutBytes` are left out at the end.
    CompressedPageStream(const Paper& paper, const Window& window, std::uint32_t lines,
                         const LineLayout& lineLayout, CompressedLayout layout,
                         std::uint32_t cutBytes, NextFault nextFault, PageRecorder& recorder);

    std::uint32_t deviceWidth() const override { return lineEncoder_.deviceWidth(); }
    bool isOver() override;
    void append(Bytes& out, std::size_t size) override;

private:
    struct Band {
        Bytes pageLines;
        Bytes chunk;
    };

    std::uint64_t lookAhead(std::uint64_t size);
    void makeBand();
    void recordFinishedBands();

    std::unique_ptr<PaperReader> reader_;
    LineEncoder lineEncoder_;
    ChunkEncoder chunkEncoder_;
    CompressedLayout layout_;
    NextFault nextFault_;
    PageRecorder& recorder_;
    std::uint32_t lines_;
    std::uint32_t nextLine_ = 0;
    std::size_t nextChunk_ = 0;
    std::uint64_t cutBytes_;
    std::deque<Band> bands_;
    std::uint64_t bytesAhead_ = 0;  // in the bands, but for those used of the first
    std::size_t used_ = 0;
};

}  // namespace scansim
