// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Model.h"
#include "Options.h"

namespace scansim {

// The files of a SANE configuration that knows the backends of some simulated devices.
class SaneConfig {
public:
    // `shippedFolder` holds the backends' own configuration files; where one is missing, only the
    // simulated devices are configured.
    explicit SaneConfig(std::string shippedFolder);

    // Throws InputError if the device cannot be told from an earlier one with other features.
    void addDevice(const Model& model, const std::vector<FeatureChange>& features);

    // Names these backends instead of those of the devices' vendors.
    void setBackends(const std::vector<std::string>& backends) { backends_ = backends; }

    // File name -> contents, below the SANE folder `folder`. Throws InputError.
    std::map<std::string, std::string> files(const std::string& folder) const;

private:
    struct Device {
        std::uint32_t vendorId;
        std::uint32_t productId;
        std::string featureFile;
        std::string modelName;
        std::vector<FeatureChange> features;
    };

    std::string backendOf(std::uint32_t vendorId) const;
    std::string configuration(const std::string& backend, const std::string& folder,
                              std::map<std::string, std::string>& files) const;

    std::string shippedFolder_;
    std::vector<Device> devices_;
    std::vector<std::string> backends_;
};

}  // namespace scansim
