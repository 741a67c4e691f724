// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RawPageStream.h"

#include <algorithm>

namespace scansim {

RawPageStream::RawPageStream(const Paper& paper, const Window& window, std::uint32_t lines,
                             const LineLayout& layout, std::uint32_t cutBytes,
                             PageRecorder& recorder)
    : reader_(paper.open(window)),
      encoder_(layout, window.pixels, window.channels),
      recorder_(recorder),
      pageLine_(encoder_.pageLineSize()),
      deviceLine_(encoder_.deviceLineSize()),
      used_(deviceLine_.size())
{
    const std::uint64_t all = std::uint64_t{lines} * deviceLine_.size();
    bytesLeft_ = all - std::min<std::uint64_t>(all, cutBytes);
    recorder_.beginPage(window.pixels, window.channels);
}

void RawPageStream::append(Bytes& out, std::size_t size)
{
    std::uint64_t wanted = std::min<std::uint64_t>(size, bytesLeft_);
    bytesLeft_ -= wanted;
    while (wanted > 0) {
        if (used_ == deviceLine_.size()) {
            makeLine();
        }
        const auto take =
            static_cast<std::size_t>(std::min<std::uint64_t>(wanted, deviceLine_.size() - used_));
        const auto first = deviceLine_.begin() + static_cast<long>(used_);
        out.insert(out.end(), first, first + static_cast<long>(take));
        used_ += take;
        wanted -= take;
        if (used_ == deviceLine_.size()) {
            recorder_.writeLine(pageLine_.data());
        }
    }
}

void RawPageStream::makeLine()
{
    reader_->readLine(nextLine_++, pageLine_.data());
    encoder_.encode(pageLine_.data(), deviceLine_.data());
    used_ = 0;
}

}  // namespace scansim
