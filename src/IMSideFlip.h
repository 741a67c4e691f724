// SPDX-License-Identifier: LGPL-2.1-or-later
// Mirrors each line left to right.
#pragma once

#include "IManipulation.h"

class IMSideFlip : public IManipulation {
public:
    ~IMSideFlip() override;
    int Perform(ImageData* img, int len) override;
};
