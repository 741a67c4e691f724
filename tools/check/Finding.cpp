// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Finding.h"

#include <algorithm>

namespace check {

const char* nameOf(Severity severity)
{
    switch (severity) {
    case Severity::Error:
        return "error";
    case Severity::Warning:
        return "warning";
    default:
        return "note";
    }
}

int countOf(const Findings& findings, Severity severity)
{
    return static_cast<int>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

void Voice::say(Severity severity, int line, const char* code, const std::string& message,
                const std::string& advice)
{
    findings_.push_back({place_, line, severity, code, message, advice});
}

}  // namespace check
