// SPDX-License-Identifier: LGPL-2.1-or-later
#include "TextReport.h"

#include "Text.h"
#include "UsbCheck.h"

#include <algorithm>

namespace check {

namespace {

constexpr const char* kPlain = "\033[0m";
constexpr const char* kBold = "\033[1m";
constexpr std::size_t kMostAdvice = 5;

const char* colourOf(Severity severity)
{
    switch (severity) {
    case Severity::Error:
        return "\033[1;31m";
    case Severity::Warning:
        return "\033[1;35m";
    default:
        return "\033[1;36m";
    }
}

std::string painted(const std::string& text, const char* colour, bool hasColours)
{
    return hasColours ? colour + text + kPlain : text;
}

std::string lineOf(const Finding& finding, bool hasColours)
{
    std::string place = printable(finding.place) + ":";
    if (finding.line > 0) {
        place += std::to_string(finding.line) + ":";
    }
    return painted(place, kBold, hasColours) + " " +
           painted(std::string(nameOf(finding.severity)) + ":", colourOf(finding.severity),
                   hasColours) +
           " " + finding.message + " [" + finding.code + "]\n";
}

std::string scannersOf(const Session& session)
{
    std::string text;
    if (session.devices) {
        for (const UsbDevice& device : *session.devices) {
            if (isReady(device, session.configurations)) {
                text += "Ready on USB: " + printable(nameOf(device, session.configurations)) +
                        " (" + device.ids() + ", " + device.place() + ").\n";
            }
        }
    }
    if (session.search) {
        for (const Answer& answer : session.search->answers) {
            if (findModel(session.configurations, answer.vendor, answer.product) != nullptr) {
                text += "Found on the network: " + printable(answer.name) + " (" +
                        hexId(answer.vendor) + ":" + hexId(answer.product) + ", " +
                        printable(answer.ip) + ").\n";
            }
        }
    }
    return text;
}

std::string scopeOf(const Session& session)
{
    std::size_t configurations = 0;
    std::size_t models = 0;
    for (const ConfFile& file : session.configurations) {
        configurations += file.isRead ? 1 : 0;
        models += file.models.size();
    }
    const auto features = std::count_if(session.features.begin(), session.features.end(),
                                        [](const FeatureFile& file) { return file.isRead(); });
    return "Looked at " + plural(configurations, "configuration file") + " with " +
           plural(models, "scanner model") + ", " +
           plural(static_cast<std::size_t>(features), "feature file") +
           (session.devices ? ", " + plural(session.devices->size(), "USB device") : "") +
           (session.port ? ", the network" : "") + ".\n";
}

std::string logOf(const Environment& environment)
{
    std::string on;
    for (const char* name : {"ENABLE_SL_LOG", "ENABLE_SL_DUMP", "ENABLE_INFO_LOG"}) {
        const auto found = environment.find(name);
        if (found != environment.end() && found->second == "1") {
            on += (on.empty() ? "" : ", ") + std::string(name);
        }
    }
    return on.empty() ? "The log is off (ENABLE_SL_LOG=1 scanimage -L would write it).\n"
                      : "The log is on: " + on + ".\n";
}

// What to do next, the worst first, nothing twice.
std::vector<std::string> adviceOf(const Findings& findings)
{
    std::vector<std::string> advice;
    for (const Severity severity : {Severity::Error, Severity::Warning}) {
        for (const Finding& finding : findings) {
            const bool isNew =
                std::find(advice.begin(), advice.end(), finding.advice) == advice.end();
            if (finding.severity == severity && !finding.advice.empty() && isNew) {
                advice.push_back(finding.advice);
            }
        }
    }
    return advice;
}

std::string resultOf(const Session& session)
{
    const int errors = countOf(session.findings, Severity::Error);
    const int warnings = countOf(session.findings, Severity::Warning);
    if (errors + warnings == 0) {
        return "Nothing is wrong. To list the scanners: scanimage -L\n";
    }
    std::string text = plural(static_cast<std::size_t>(errors), "error") + ", " +
                       plural(static_cast<std::size_t>(warnings), "warning") +
                       ". What to do next:\n";
    const std::vector<std::string> advice = adviceOf(session.findings);
    for (std::size_t i = 0; i < std::min(advice.size(), kMostAdvice); ++i) {
        text += "  " + std::to_string(i + 1) + ". " + advice[i] + "\n";
    }
    return text + "Then run scanlib-check again.\n";
}

}  // namespace

std::string textReport(const Session& session, bool isQuiet, bool hasColours)
{
    std::string text;
    for (const Finding& finding : session.findings) {
        if (!isQuiet || finding.severity != Severity::Note) {
            text += lineOf(finding, hasColours);
        }
    }
    if (isQuiet) {
        return text;
    }
    return text + (text.empty() ? "" : "\n") + scopeOf(session) + logOf(session.environment) +
           scannersOf(session) + resultOf(session);
}

}  // namespace check
