// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NoisePaper.h"

namespace scansim {

namespace {

std::uint64_t mixed(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

class NoiseReader : public PaperReader {
public:
    NoiseReader(std::uint32_t seed, const Window& window) : seed_(seed), window_(window) {}

    void readLine(std::uint32_t line, std::uint8_t* out) override
    {
        const std::uint64_t row =
            mixed((static_cast<std::uint64_t>(seed_) << 32) + window_.top + line);
        for (std::uint32_t i = 0; i < window_.pixels; ++i) {
            const std::uint64_t value = mixed(row + window_.left + i);
            for (std::uint32_t channel = 0; channel < window_.channels; ++channel) {
                *out++ = static_cast<std::uint8_t>(value >> (8 * channel));
            }
        }
    }

private:
    std::uint32_t seed_;
    Window window_;
};

}  // namespace

std::unique_ptr<PaperReader> NoisePaper::open(const Window& window) const
{
    return std::make_unique<NoiseReader>(seed_, window);
}

}  // namespace scansim
