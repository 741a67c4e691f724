// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SaneConfig.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "FeatureFile.h"
#include "Folders.h"
#include "Text.h"

namespace scansim {

namespace {

const char* const kQuillonBackend = "QuillonLegacy_1_0_0";
const char* const kOxleBackend = "Oxle09";

bool readFile(const std::string& path, std::string& text)
{
    std::ifstream file(path, std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return file.is_open();
}

// Whether a configuration has a line for the device, in the words of the backend's own reader.
bool isConfigured(const std::string& configuration, std::uint32_t vendorId, std::uint32_t productId)
{
    std::istringstream in(configuration);
    for (std::string line; std::getline(in, line);) {
        unsigned vendor = 0;
        unsigned product = 0;
        if (std::sscanf(trimmed(line).c_str(), "usb %x %x", &vendor, &product) == 2 &&
            vendor == vendorId && product == productId) {
            return true;
        }
    }
    return false;
}

std::string hexId(std::uint32_t id)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x", id);
    return text;
}

std::string configurationLine(std::uint32_t vendorId, std::uint32_t productId,
                              const std::string& featureFile, const std::string& modelName)
{
    std::string name = modelName;
    std::replace(name.begin(), name.end(), ' ', '_');
    return "usb 0x" + hexId(vendorId) + " 0x" + hexId(productId) + " " + featureFile + " " + name +
           "\n";
}

}  // namespace

SaneConfig::SaneConfig(std::string shippedFolder) : shippedFolder_(std::move(shippedFolder)) {}

void SaneConfig::addDevice(const Model& model, const std::vector<FeatureChange>& features)
{
    for (const Device& device : devices_) {
        if (device.vendorId == model.vendorId && device.productId == model.productId) {
            if (device.features != features || device.featureFile != model.featureFile) {
                throw InputError(
                    model.name +
                    ": two devices with the same product-id cannot have different features");
            }
            return;
        }
    }
    devices_.push_back(
        {model.vendorId, model.productId, model.featureFile, model.modelName, features});
    const std::string backend = backendOf(model.vendorId);
    if (std::find(backends_.begin(), backends_.end(), backend) == backends_.end()) {
        backends_.push_back(backend);
    }
}

std::string SaneConfig::backendOf(std::uint32_t vendorId) const
{
    return vendorId == SCANSIM_OXLE_VID ? kOxleBackend : kQuillonBackend;
}

std::string SaneConfig::configuration(const std::string& backend, const std::string& folder,
                                      std::map<std::string, std::string>& files) const
{
    std::string shipped;
    readFile(shippedFolder_ + "/" + backend + ".conf", shipped);
    std::string lines;
    for (const Device& device : devices_) {
        if (backendOf(device.vendorId) != backend || device.featureFile.empty()) {
            continue;
        }
        std::string original;
        const bool isReadable = readFile(device.featureFile, original);
        const std::string text =
            withCorrectionFrom(changedFeatures(original, device.features),
                               kFolders.correctionLibrary, kFolders.correctionTables);
        if (isReadable && text != original) {
            const std::string name =
                "simulated/" + hexId(device.vendorId) + "-" + hexId(device.productId) + ".ini";
            files[name] = text;
            lines += configurationLine(device.vendorId, device.productId, folder + "/" + name,
                                       device.modelName);
        } else if (!isConfigured(shipped, device.vendorId, device.productId)) {
            lines += configurationLine(device.vendorId, device.productId, device.featureFile,
                                       device.modelName);
        }
    }
    // The first line of a device counts, so those made here come before the shipped ones.
    return lines + shipped;
}

std::map<std::string, std::string> SaneConfig::files(const std::string& folder) const
{
    std::map<std::string, std::string> files;
    for (const char* backend : {kQuillonBackend, kOxleBackend}) {
        const std::string text = configuration(backend, folder, files);
        files[std::string(backend) + ".conf"] = text;
    }
    for (const std::string& backend : backends_) {
        files["dll.conf"] += backend + "\n";
    }
    return files;
}

}  // namespace scansim
