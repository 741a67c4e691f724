// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sandbox.h"

#include <gmock/gmock.h>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // The list of tests is asked for by the build, maybe where there are no namespaces.
    if (!testing::GTEST_FLAG(list_tests) && !enterSandbox()) {
        return 1;
    }
    return RUN_ALL_TESTS();
}
