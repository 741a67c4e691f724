// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Paper.h"

namespace scansim {

// Every pixel is random but always the same: the worst case for anything that compresses or caches.
class NoisePaper : public Paper {
public:
    explicit NoisePaper(std::uint32_t seed) : seed_(seed) {}
    std::unique_ptr<PaperReader> open(const Window& window) const override;

private:
    std::uint32_t seed_;
};

}  // namespace scansim
