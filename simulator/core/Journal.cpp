// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Journal.h"

#include <utility>

namespace scansim {

Journal::Journal(std::string device, std::FILE* trace) : device_(std::move(device)), trace_(trace)
{
}

void Journal::complain(const std::string& text)
{
    complaints_.push_back(device_ + ": " + text);
    std::fprintf(stderr, "scanner-sim: COMPLAINT: %s\n", complaints_.back().c_str());
    trace("COMPLAINT: " + text);
}

void Journal::trace(const std::string& text)
{
    if (trace_ != nullptr) {
        std::fprintf(trace_, "%s: %s\n", device_.c_str(), text.c_str());
        std::fflush(trace_);
    }
}

}  // namespace scansim
