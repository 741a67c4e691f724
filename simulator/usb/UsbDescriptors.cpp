// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbDescriptors.h"

#include <algorithm>

namespace scansim {

namespace {

std::uint8_t low(std::size_t value)
{
    return static_cast<std::uint8_t>(value & 0xFF);
}

std::uint8_t high(std::size_t value)
{
    return static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

std::uint8_t stringIndex(const UsbString& string, std::uint8_t index)
{
    return string.kind == UsbString::Kind::Absent ? std::uint8_t{0} : index;
}

Bytes deviceDescriptor(const Model& model)
{
    return {18,
            1,
            0x00,
            0x02,
            low(model.deviceClass),
            0,
            0,
            64,
            low(model.vendorId),
            high(model.vendorId),
            low(model.productId),
            high(model.productId),
            0x00,
            0x01,
            stringIndex(model.vendor, kVendorStringIndex),
            stringIndex(model.product, kProductStringIndex),
            0,
            1};
}

void appendInterface(Bytes& out, const UsbInterface& interface, std::size_t number,
                     std::size_t packetSize)
{
    const Bytes header = {
        9, 4, low(number), 0, low(interface.endpoints.size()), interface.interfaceClass, 0, 0, 0};
    out.insert(out.end(), header.begin(), header.end());
    for (std::uint8_t endpoint : interface.endpoints) {
        const Bytes descriptor = {7, 5, endpoint, 2, low(packetSize), high(packetSize), 0};
        out.insert(out.end(), descriptor.begin(), descriptor.end());
    }
}

Bytes configurationDescriptor(const Model& model)
{
    Bytes out = {9, 2, 0, 0, low(model.interfaces.size()), kConfigurationValue, 0, 0xC0, 1};
    for (std::size_t i = 0; i < model.interfaces.size(); ++i) {
        appendInterface(out, model.interfaces[i], i, model.packetSize);
    }
    putLe16(&out[2], out.size());
    return out;
}

}  // namespace

Bytes usbDescriptors(const Model& model)
{
    Bytes out = deviceDescriptor(model);
    const Bytes configuration = configurationDescriptor(model);
    out.insert(out.end(), configuration.begin(), configuration.end());
    return out;
}

Bytes languageDescriptor()
{
    return {4, 3, 0x09, 0x04};
}

Bytes stringDescriptor(const std::string& text)
{
    const std::size_t length = std::min<std::size_t>(text.size(), 126);
    Bytes out = {low(2 + 2 * length), 3};
    for (std::size_t i = 0; i < length; ++i) {
        out.push_back(static_cast<std::uint8_t>(text[i]));
        out.push_back(0);
    }
    return out;
}

}  // namespace scansim
