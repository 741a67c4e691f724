// SPDX-License-Identifier: LGPL-2.1-or-later
// Random choices that can be repeated.
#pragma once

#include <random>
#include <vector>

namespace frontend {

class Chance {
public:
    explicit Chance(unsigned seed) : engine_(seed) {}

    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(engine_); }
    bool oneIn(int n) { return upTo(n - 1) == 0; }
    template <typename Value>
    const Value& of(const std::vector<Value>& values)
    {
        return values[static_cast<std::size_t>(upTo(static_cast<int>(values.size()) - 1))];
    }

private:
    std::mt19937 engine_;
};

}  // namespace frontend
