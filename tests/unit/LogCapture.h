// SPDX-License-Identifier: LGPL-2.1-or-later
// What the library writes to the system log, caught inside the test program.
#pragma once

#include <optional>
#include <string>
#include <vector>

// While one is alive, ENABLE_SL_LOG is 1 and every record is kept; the destructor puts
// the variable back. Records written while none is alive are dropped. Linking this file
// replaces syslog in the whole program.
class LogCapture {
public:
    LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    // The records in order, as they stand, and their priorities.
    std::vector<std::string> lines() const;
    std::vector<int> priorities() const;
    // The records without the prefix of trace lines.
    std::vector<std::string> messages() const;
    // The same without the start and end lines of functions.
    std::vector<std::string> plainMessages() const;

    bool contains(const std::string& text) const { return count(text) > 0; }
    // The number of records that contain text.
    int count(const std::string& text) const;
    void clear();

    // While one is alive, the library does not log.
    class Pause {
    public:
        Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        ~Pause();
    };

    // line without the prefix of a trace line.
    static std::string withoutPrefix(const std::string& line);

private:
    std::optional<std::string> before;
};
