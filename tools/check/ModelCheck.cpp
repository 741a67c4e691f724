// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ModelCheck.h"

namespace check {

namespace {

constexpr int kFeeder = 2;
constexpr int kKnownTechnique = 2;

void judgeMissing(const FeatureFile& file, Voice& voice)
{
    for (const Key& key : knownKeys()) {
        if (key.missing == Missing::Fine || file.find(key.section, key.name) != nullptr) {
            continue;
        }
        const Severity severity =
            key.missing == Missing::Warned ? Severity::Warning : Severity::Note;
        voice.say(severity, 0, "missing-key",
                  key.name + " (" + key.meaning + ") is missing: " + key.whenMissing + ".",
                  severity == Severity::Note
                      ? ""
                      : "Add " + key.name + " below the header " + headerOf(key.section) + ".");
    }
}

void judgeFeeder(const FeatureFile& file, Voice& voice)
{
    const bool isOffered = file.integer("SCAN_SOURCE_ADF") == kFeeder;
    if (isOffered && file.integer("ADFDPILIMIT") <= 0) {
        voice.warning(file.lineOf("ADFDPILIMIT"), "no-feeder-limit",
                      "the feeder is offered, but ADFDPILIMIT is missing or 0: unless the scanner "
                      "reports its own limit, every scan from the feeder is refused.",
                      "Add ADFDPILIMIT, the highest resolution of the feeder, below [INTEGERS].");
    }
    if (!isOffered && file.integer("SCAN_SOURCE") == kFeeder) {
        voice.warning(file.lineOf("SCAN_SOURCE"), "feeder-not-offered",
                      "the feeder is selected at first (SCAN_SOURCE=2), but it is not offered "
                      "unless the scanner reports one.",
                      "Add SCAN_SOURCE_ADF=2 below [INTEGERS], or select the flatbed with "
                      "SCAN_SOURCE=1.");
    }
}

void judgeCompression(const FeatureFile& file, Voice& voice)
{
    if (file.integer("COMPRESSION") == 1 && file.integer("COMPRESSIONTECH") != kKnownTechnique) {
        voice.warning(file.lineOf("COMPRESSION"), "no-technique",
                      "images come compressed (COMPRESSION=1), but COMPRESSIONTECH is not 2: they "
                      "are not decompressed unless the scanner reports that technique.",
                      "Add COMPRESSIONTECH=2 below [INTEGERS].");
    }
}

}  // namespace

void judgeModel(const FeatureFile& file, bool isInUse, Findings& findings)
{
    if (!file.isRead()) {
        return;
    }
    Voice voice(findings, file.path());
    judgeMissing(file, voice);
    judgeResolutions(file, voice);
    judgeAreas(file, voice);
    judgeFeeder(file, voice);
    judgeCompression(file, voice);
    judgeCorrection(file, isInUse, voice);
}

}  // namespace check
