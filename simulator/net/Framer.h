// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <random>
#include <vector>

#include "Bytes.h"
#include "Model.h"

namespace scansim {

constexpr std::size_t kFrameHeaderSize = 9;

// "HBN3", a byte, the size of the payload as a big-endian word, the payload.
Bytes makeFrame(const Bytes& payload);

// Wraps what a scanner says in frames. A reply or record has a frame of its own; image data
// is cut without regard to what it means.
class Framer {
public:
    explicit Framer(const NetworkTraits& traits);

    // The frames that are complete with these image bytes; the rest waits for more.
    std::vector<Bytes> addImage(const Bytes& bytes);

    // What is left of the image bytes. No frame has a single byte unless there is only one.
    std::vector<Bytes> flush();

private:
    std::uint32_t chooseSize();
    void cut(std::size_t& from, std::size_t size, std::vector<Bytes>& frames);

    const NetworkTraits& traits_;
    std::minstd_rand random_;
    std::size_t chosen_ = 0;
    std::size_t nextSize_;
    Bytes pending_;
};

}  // namespace scansim
