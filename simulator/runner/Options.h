// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ModelFile.h"

namespace scansim {

// A key of a feature file with the value it gets instead; an empty value takes the key out.
using FeatureChange = std::pair<std::string, std::string>;

// One --usb or --net with what was said about it.
struct DeviceOptions {
    Transport transport = Transport::Usb;
    std::string model;
    std::vector<ModelSetting> settings;
    std::vector<FeatureChange> features;
};

// The command line.
struct Options {
    std::vector<DeviceOptions> devices;
    std::vector<std::string> backends;
    std::vector<std::string> command;
    std::string modelsFolder;
    std::string modulesFolder;
    std::string configFolder;
    std::string recordFolder;
    std::string logFile;
    std::string captureFile;
    std::string controlLine;
    bool hasLink = false;
    bool hasPrivateTmp = false;
    bool isTolerant = false;
    bool mayUseAllCpus = false;
    bool wantsHelp = false;
    bool wantsModelList = false;

    // Throws InputError.
    static Options parse(const std::vector<std::string>& arguments);
    static std::string help();
};

}  // namespace scansim
