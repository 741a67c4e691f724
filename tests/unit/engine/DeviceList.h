// SPDX-License-Identifier: LGPL-2.1-or-later
// The names of the scanners that the library lists.
#pragma once

#include "Device.h"
#include "NameList.h"
#include "SaneConfReader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

inline std::vector<std::string> deviceList(SaneConfReader* conf, int which, int expected)
{
    NameList found;
    EXPECT_EQ(Device::getScanners(&found.names, &found.count, conf, which), expected);
    if (found.names == nullptr) {
        return {};
    }
    return {found.names, found.names + found.count};
}
