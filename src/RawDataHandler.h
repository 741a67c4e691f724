// SPDX-License-Identifier: LGPL-2.1-or-later
// The chain of image manipulations.
#pragma once

#include "CLogger.h"
#include "ConfigReader.h"
#include "IManipulation.h"
#include "ImageData.h"

#include <memory>
#include <vector>

class RawDataHandler : public CLogger {
public:
    virtual ~RawDataHandler();

    // Builds the chain that the option store asks for.
    void SetUp(ConfigReader* cfg);

    // Puts the number of the scan bar into the names of the look-up table files: it is
    // the digit before the ".bin" at their end. Returns 0.
    int CheckForMultipleScanbars(ConfigReader* cfg);

    bool isEmpty() const { return IM.empty(); }

    // Runs the chain over the whole lines on the raw side of img and marks them
    // processed. Without a chain every byte is marked. 1: done, 0: less than a line.
    int Perform(ImageData* img);
    // The same for a caller that has asked debugEnabled() itself.
    int Perform(ImageData* img, bool isTracing);

    // At the end of the data: what is left of a last line passes through as well.
    void Finish(ImageData* img);

private:
    void run(ImageData* img, int len);

    std::vector<std::unique_ptr<IManipulation>> IM;
};
