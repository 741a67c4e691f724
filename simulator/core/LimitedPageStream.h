// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>

#include "PageStream.h"

namespace scansim {

// The beginning of a page, wherever that ends.
class LimitedPageStream : public PageStream {
public:
    LimitedPageStream(std::unique_ptr<PageStream> page, std::uint64_t size);

    std::uint32_t deviceWidth() const override { return page_->deviceWidth(); }
    bool isOver() override { return bytesLeft_ == 0 || page_->isOver(); }
    void append(Bytes& out, std::size_t size) override;

private:
    std::unique_ptr<PageStream> page_;
    std::uint64_t bytesLeft_;
};

}  // namespace scansim
