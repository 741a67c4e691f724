// SPDX-License-Identifier: LGPL-2.1-or-later
// What the checks have to say.
#pragma once

#include <string>
#include <vector>

namespace check {

enum class Severity { Note, Warning, Error };

const char* nameOf(Severity severity);

struct Finding {
    std::string place;  // a file, or what else it is about: "usb 001:002", "network"
    int line = 0;       // 0: the place as a whole
    Severity severity = Severity::Note;
    std::string code;  // never changes once it is published
    std::string message;
    std::string advice;  // what to do next; may be empty
};

using Findings = std::vector<Finding>;

int countOf(const Findings& findings, Severity severity);

// Adds findings about one place.
class Voice {
public:
    Voice(Findings& findings, std::string place) : findings_(findings), place_(std::move(place)) {}

    void error(int line, const char* code, const std::string& message,
               const std::string& advice = "")
    {
        say(Severity::Error, line, code, message, advice);
    }
    void warning(int line, const char* code, const std::string& message,
                 const std::string& advice = "")
    {
        say(Severity::Warning, line, code, message, advice);
    }
    void note(int line, const char* code, const std::string& message,
              const std::string& advice = "")
    {
        say(Severity::Note, line, code, message, advice);
    }
    void say(Severity severity, int line, const char* code, const std::string& message,
             const std::string& advice = "");

private:
    Findings& findings_;
    std::string place_;
};

}  // namespace check
