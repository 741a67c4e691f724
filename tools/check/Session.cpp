// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Session.h"

#include "FeatureCheck.h"
#include "InstallCheck.h"
#include "ModelCheck.h"
#include "UsbCheck.h"

#include <algorithm>

namespace check {

namespace {

std::vector<std::string> installedConfigurations()
{
    std::vector<std::string> paths;
    for (const std::string& backend : backendNames()) {
        paths.push_back(configurationOf(backend));
    }
    return paths;
}

// Those of the lines that count, each once; missing ones have been complained about already.
std::vector<std::string> featureFilesOf(const std::vector<ConfFile>& files)
{
    std::vector<std::string> paths;
    for (const ConfFile& file : files) {
        for (const ConfModel& model : file.models) {
            const bool isNew =
                std::find(paths.begin(), paths.end(), model.featureFile) == paths.end();
            if (model.counts && isNew) {
                paths.push_back(model.featureFile);
            }
        }
    }
    return paths;
}

}  // namespace

void Session::judgeConfigurations(const Options& options)
{
    const bool isJudged = !options.configs.empty() || options.features.empty();
    Findings unused;
    Findings& target = isJudged ? findings : unused;
    for (const std::string& path :
         options.configs.empty() ? installedConfigurations() : options.configs) {
        configurations.push_back(ConfFile::read(path, target));
    }
    judgeTogether(configurations, target);
    if (options.configs.empty() && options.features.empty()) {
        judgeInstallation(SaneFolders::ofThisComputer(), findings);
    }
}

bool Session::isInUse(const std::string& featureFile) const
{
    if (!devices) {
        return false;
    }
    return std::any_of(devices->begin(), devices->end(), [&](const UsbDevice& device) {
        const ConfModel* model = findModel(configurations, device.vendor, device.product);
        return model != nullptr && model->featureFile == featureFile;
    });
}

void Session::judgeFeatures(const Options& options)
{
    const bool areGiven = !options.features.empty();
    for (const std::string& path : areGiven ? options.features : featureFilesOf(configurations)) {
        Findings ofFile;
        const FeatureFile file = FeatureFile::read(path, ofFile);
        if (!file.isRead() && !areGiven) {
            continue;  // said at the line that names it
        }
        judgeLines(file, ofFile);
        judgeModel(file, areGiven || isInUse(path), ofFile);
        std::stable_sort(ofFile.begin(), ofFile.end(),
                         [](const Finding& a, const Finding& b) { return a.line < b.line; });
        findings.insert(findings.end(), ofFile.begin(), ofFile.end());
        features.push_back(file);
    }
}

Session Session::run(const Options& options)
{
    Session session;
    session.environment = readEnvironment();
    silenceOwnLog();
    session.judgeConfigurations(options);
    if (options.looksAtUsb) {
        session.devices = listUsbDevices();
    }
    session.judgeFeatures(options);
    judgeEnvironment(session.environment, session.findings);
    if (session.devices) {
        judgeUsb(*session.devices, session.configurations, session.findings);
    }
    if (options.looksAtNetwork) {
        session.port = PortState::ofThisComputer();
        judgePort(*session.port, options.wantsSearch, session.findings);
    }
    if (options.wantsSearch) {
        session.search = Search::run();
        judgeSearch(*session.search, session.configurations, session.findings);
    }
    return session;
}

int Session::status() const
{
    if (countOf(findings, Severity::Error) > 0) {
        return 2;
    }
    return countOf(findings, Severity::Warning) > 0 ? 1 : 0;
}

}  // namespace check
