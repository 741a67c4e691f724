// SPDX-License-Identifier: LGPL-2.1-or-later
// Finds the headers of the image blocks in what the scanner sends, as the host does.
#pragma once

#include "CommandKinds.h"

#include <vector>

namespace trace {

class BlockReader {
public:
    explicit BlockReader(const Version& version) : version_(&version) {}

    // A piece of a transfer that is image, as offsets in it.
    struct Range {
        std::size_t from;
        std::size_t to;
    };
    // Takes the next transfer. What stands behind the first `known` bytes is image, wherever
    // headers may have been.
    std::vector<Range> add(ByteView bytes, std::size_t known);

    // Image bytes still to come in the block.
    std::size_t pending() const { return pending_; }

    std::size_t blocks() const { return blocks_; }
    std::size_t imageBytes() const { return imageBytes_; }
    // Image bytes where a block should have begun.
    std::size_t strayBytes() const { return strayBytes_; }

private:
    std::size_t takeHeader(ByteView bytes);
    void takeImage(std::size_t from, std::size_t to, std::vector<Range>& ranges);
    bool mayBeHeader(std::uint8_t next) const;

    const Version* version_;
    Bytes header_;  // one that has begun
    std::size_t pending_ = 0;
    std::size_t blocks_ = 0;
    std::size_t imageBytes_ = 0;
    std::size_t strayBytes_ = 0;
};

}  // namespace trace
