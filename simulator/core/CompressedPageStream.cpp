// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CompressedPageStream.h"

#include <algorithm>
#include <utility>

#include "ChunkDamage.h"

namespace scansim {

CompressedPageStream::CompressedPageStream(const Paper& paper, const Window& window,
                                           std::uint32_t lines, const LineLayout& lineLayout,
                                           CompressedLayout layout, std::uint32_t cutBytes,
                                           NextFault nextFault, PageRecorder& recorder)
    : reader_(paper.open(window)),
      lineEncoder_(lineLayout, window.pixels, window.channels),
      chunkEncoder_(window.pixels, window.channels),
      layout_(std::move(layout)),
      nextFault_(std::move(nextFault)),
      recorder_(recorder),
      lines_(lines),
      cutBytes_(cutBytes)
{
    recorder_.beginPage(window.pixels, window.channels, true);
}

bool CompressedPageStream::isOver()
{
    return lookAhead(1) == 0;
}

// Makes sure of the next `size` bytes of the page; gives how many there are, which may be less.
std::uint64_t CompressedPageStream::lookAhead(std::uint64_t size)
{
    while (bytesAhead_ < size + cutBytes_ && nextLine_ < lines_) {
        makeBand();
    }
    recordFinishedBands();
    return std::min(size, bytesAhead_ - std::min(bytesAhead_, cutBytes_));
}

void CompressedPageStream::append(Bytes& out, std::size_t size)
{
    std::uint64_t wanted = lookAhead(size);
    while (wanted > 0) {
        const Bytes& chunk = bands_.front().chunk;
        const auto take =
            static_cast<std::size_t>(std::min<std::uint64_t>(wanted, chunk.size() - used_));
        const auto first = chunk.begin() + static_cast<long>(used_);
        out.insert(out.end(), first, first + static_cast<long>(take));
        recorder_.writeChunks(chunk.data() + used_, take);
        used_ += take;
        wanted -= take;
        bytesAhead_ -= take;
        recordFinishedBands();
    }
}

void CompressedPageStream::makeBand()
{
    const std::uint32_t count = std::min(layout_.bandLines, lines_ - nextLine_);
    Band band;
    band.pageLines.resize(count * lineEncoder_.pageLineSize());
    Bytes deviceLines(count * lineEncoder_.deviceLineSize());
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint8_t* line = band.pageLines.data() + i * lineEncoder_.pageLineSize();
        reader_->readLine(nextLine_++, line);
        lineEncoder_.encode(line, deviceLines.data() + i * lineEncoder_.deviceLineSize());
    }
    const int quality = layout_.qualities[nextChunk_++ % layout_.qualities.size()];
    band.chunk = chunkEncoder_.encode(deviceLines, quality);
    if (const std::optional<Fault> fault = nextFault_()) {
        damageChunk(band.chunk, *fault);
    }
    bytesAhead_ += band.chunk.size();
    bands_.push_back(std::move(band));
}

// A fault may leave nothing of a chunk, so a band can be finished before any of it is sent.
void CompressedPageStream::recordFinishedBands()
{
    while (!bands_.empty() && used_ == bands_.front().chunk.size()) {
        const Bytes& lines = bands_.front().pageLines;
        for (std::size_t at = 0; at < lines.size(); at += lineEncoder_.pageLineSize()) {
            recorder_.writeLine(lines.data() + at);
        }
        bands_.pop_front();
        used_ = 0;
    }
}

}  // namespace scansim
