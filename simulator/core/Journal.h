// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace scansim {

// What one simulated device has to say: complaints about the host, and a trace of the protocol.
class Journal {
public:
    // `trace` may be null; the caller closes it.
    explicit Journal(std::string device, std::FILE* trace = nullptr);

    // Said on stderr at once and kept.
    void complain(const std::string& text);
    void trace(const std::string& text);
    bool isTracing() const { return trace_ != nullptr; }

    const std::vector<std::string>& complaints() const { return complaints_; }
    void forgetComplaints() { complaints_.clear(); }

private:
    std::string device_;
    std::FILE* trace_;
    std::vector<std::string> complaints_;
};

}  // namespace scansim
