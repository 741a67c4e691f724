// SPDX-License-Identifier: LGPL-2.1-or-later
// Swaps the colour order of BGR scans.
#pragma once

#include "IManipulation.h"

class IMBGRtoRGB : public IManipulation {
public:
    ~IMBGRtoRGB() override;
    int Perform(ImageData* img, int len) override;
};
