// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Ratio.h"

#include <algorithm>
#include <ctime>

namespace bench {

namespace {

double threadSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

double cpuSeconds(const Work& work)
{
    const double begun = threadSeconds();
    work();
    return threadSeconds() - begun;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double ratioOf(const Work& a, const Work& b, int rounds)
{
    return ratioOf([] {}, a, b, rounds);
}

double ratioOf(const Work& prepare, const Work& a, const Work& b, int rounds)
{
    std::vector<double> ratios;
    for (int i = 0; i <= rounds; ++i) {
        prepare();
        const double first = cpuSeconds(a);
        const double second = cpuSeconds(b);
        if (i > 0) {
            ratios.push_back(first / second);
        }
    }
    return median(ratios);
}

}  // namespace bench
