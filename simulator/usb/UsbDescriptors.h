// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"
#include "Model.h"

namespace scansim {

constexpr std::uint8_t kConfigurationValue = 1;
constexpr std::uint8_t kVendorStringIndex = 1;
constexpr std::uint8_t kProductStringIndex = 2;

// What reading the device file gives: the device descriptor and the only configuration.
Bytes usbDescriptors(const Model& model);

// A string descriptor: index 0 lists the language.
Bytes languageDescriptor();
Bytes stringDescriptor(const std::string& text);

}  // namespace scansim
