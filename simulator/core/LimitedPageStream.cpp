// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LimitedPageStream.h"

#include <algorithm>
#include <utility>

namespace scansim {

LimitedPageStream::LimitedPageStream(std::unique_ptr<PageStream> page, std::uint64_t size)
    : page_(std::move(page)), bytesLeft_(size)
{
}

void LimitedPageStream::append(Bytes& out, std::size_t size)
{
    const std::size_t before = out.size();
    page_->append(out, static_cast<std::size_t>(std::min<std::uint64_t>(size, bytesLeft_)));
    bytesLeft_ -= out.size() - before;
}

}  // namespace scansim
