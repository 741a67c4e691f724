// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NValueObjects.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::size_t kLongestName = 254;
// What setDevice takes of an address.
constexpr std::size_t kLongestField = 31;

// The text as a field of a device name.
std::string field(std::string text)
{
    const auto isUnfit = [](char c) {
        const unsigned char byte = static_cast<unsigned char>(c);
        return c == '/' || c == ':' || byte < 0x20 || byte == 0x7F;
    };
    std::replace_if(text.begin(), text.end(), isUnfit, '-');
    return text;
}

}  // namespace

bool NValueObjects::isComplete() const
{
    return !sIp.empty() && !sMac.empty() && !sModel.empty() && !sManufacturer.empty();
}

std::string NValueObjects::deviceName() const
{
    char ids[32];
    snprintf(ids, sizeof ids, ":%X:%X", iVid, iPid);
    const std::string front = field(sManufacturer) + "/";
    const std::string back = "/libnet:" + field(sMac).substr(0, kLongestField) + ":" +
                             field(sIp).substr(0, kLongestField) + ids;
    const std::size_t taken = std::min(kLongestName, front.size() + back.size());
    return (front + field(sModel).substr(0, kLongestName - taken) + back).substr(0, kLongestName);
}
