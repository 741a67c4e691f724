// SPDX-License-Identifier: LGPL-2.1-or-later
// One line of the system log, in any of the usual formats.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace trace {

struct LogLine {
    std::optional<std::uint64_t> time;  // microseconds since some beginning
    std::optional<long> process;        // from the mark of the line, or in front of the message
    // Lines of the backend that have its mark; the others have only a message.
    bool hasMark = false;
    std::string thread;
    std::string function;
    std::string message;
};

LogLine readLogLine(const std::string& whole);

// "(size: N)": a dump of N bytes begins; only at the end of a line.
std::optional<std::size_t> dumpSize(const std::string& message);

}  // namespace trace
