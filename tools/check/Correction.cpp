// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ModelCheck.h"
#include "Text.h"

#include <unistd.h>

namespace check {

namespace {

constexpr std::size_t kDigitFromEnd = 5;  // where the number of a scan bar is put

// Only then do pages come out in other colours than they should.
Severity severityOf(bool isInUse)
{
    return isInUse ? Severity::Warning : Severity::Note;
}

void judgePath(const FeatureFile& file, const char* key, Voice& voice)
{
    const std::string path = file.text(key);
    if (path[0] != '/') {
        voice.warning(file.lineOf(key), "correction-path-relative",
                      std::string(key) + ": " + quoted(path) +
                          " is not an absolute path: it is looked for in whatever folder the scan "
                          "program was started in.",
                      "Write the whole path, beginning with \"/\".");
    }
}

// The files that are not there, in one finding: one alone is of no use.
void judgeFiles(const FeatureFile& file, Severity severity, Voice& voice)
{
    std::string missing;
    for (const char* key : {"SCLIB", "COLORLUT", "GRAYLUT"}) {
        const std::string path = file.text(key);
        if (path[0] == '/' && access(path.c_str(), R_OK) != 0) {
            missing += (missing.empty() ? "" : ", ") + quoted(path);
        }
    }
    if (!missing.empty()) {
        voice.say(severity, file.lineOf("COLORCORRECT"), "correction-file-missing",
                  "pages of this model come without colour correction, because these files are "
                  "missing or cannot be read: " +
                      missing + ".",
                  severity == Severity::Note
                      ? ""
                      : "Install the colour correction files, or turn it off with COLORCORRECT=0.");
    }
}

void judgeTable(const FeatureFile& file, const char* key, Voice& voice)
{
    judgePath(file, key, voice);
    const std::string path = file.text(key);
    const bool hasDigit = path.size() >= kDigitFromEnd &&
                          path[path.size() - kDigitFromEnd] >= '0' &&
                          path[path.size() - kDigitFromEnd] <= '9';
    if (!hasDigit) {
        voice.warning(file.lineOf(key), "no-bar-digit",
                      std::string(key) + ": the fifth character from the end of " + quoted(path) +
                          " is no digit; for scan bars other than 0 the backend writes their "
                          "number there.",
                      "Give the tables names like table0.bin.");
    }
}

bool isComplete(const FeatureFile& file, Voice& voice)
{
    bool isWhole = true;
    for (const char* key : {"SCLIB", "SCFUNC", "COLORLUT", "GRAYLUT"}) {
        if (file.find(Section::Strings, key) == nullptr) {
            isWhole = false;
            voice.warning(
                file.lineOf("COLORCORRECT"), "correction-key-missing",
                "colours are to be corrected (COLORCORRECT=1), but " + std::string(key) +
                    " is missing: pages come without colour correction.",
                "Add the four keys SCLIB, SCFUNC, COLORLUT and GRAYLUT below [STRINGS], or "
                "turn it off with COLORCORRECT=0.");
        }
    }
    return isWhole;
}

}  // namespace

void judgeCorrection(const FeatureFile& file, bool isInUse, Voice& voice)
{
    if (file.integer("COLORCORRECT") == 0 || !isComplete(file, voice)) {
        return;
    }
    judgeFiles(file, severityOf(isInUse), voice);
    judgeTable(file, "COLORLUT", voice);
    judgeTable(file, "GRAYLUT", voice);
}

}  // namespace check
