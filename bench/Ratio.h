// SPDX-License-Identifier: LGPL-2.1-or-later
// What one thing costs beside another. Times of a shared machine drift, so both are measured in
// turn and the median of the ratios counts.
#pragma once

#include <functional>
#include <vector>

namespace bench {

using Work = std::function<void()>;

// Seconds of this thread's CPU time that work takes.
double cpuSeconds(const Work& work);

double median(std::vector<double> values);

// The median of cost(a) / cost(b), after a round that does not count.
double ratioOf(const Work& a, const Work& b, int rounds);
// The same where a needs something done before it each time, which does not count.
double ratioOf(const Work& prepare, const Work& a, const Work& b, int rounds);

}  // namespace bench
