// SPDX-License-Identifier: LGPL-2.1-or-later
// One run of all the checks.
#pragma once

#include "ConfFile.h"
#include "Discoverer.h"
#include "EnvironmentCheck.h"
#include "FeatureFile.h"
#include "Finding.h"
#include "Options.h"
#include "PortCheck.h"
#include "UsbList.h"

#include <optional>
#include <vector>

namespace check {

struct Session {
    Findings findings;
    Environment environment;
    std::vector<ConfFile> configurations;  // that decide which scanners are known
    std::vector<FeatureFile> features;
    std::optional<std::vector<UsbDevice>> devices;
    std::optional<PortState> port;
    std::optional<Search> search;

    static Session run(const Options& options);

    // What it means for scripts: 0, 1 with warnings, 2 with errors.
    int status() const;

private:
    void judgeConfigurations(const Options& options);
    void judgeFeatures(const Options& options);
    bool isInUse(const std::string& featureFile) const;
};

}  // namespace check
