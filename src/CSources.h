// SPDX-License-Identifier: LGPL-2.1-or-later
// One source record of the device properties: a flatbed or a document feeder.
#pragma once

#include "CLogger.h"
#include "CScanRes.h"

#include <memory>
#include <vector>

// Source types.
enum SourceType { SOURCE_FLATBED = 1, SOURCE_FEEDER = 2 };

class CSources : public CLogger {
public:
    static constexpr int kHeaderSize = 15;
    static constexpr int kResolutionCountOffset = 14;

    // Copies the record and its resolutions; bytes missing at the end of the record
    // count as zero. 0, or 2 for no memory (the resolutions read so far stay).
    int setData(const unsigned char* data, int size);

    // The byte, or -1 without data.
    int getType() const;
    int getBarId() const;
    int getNumOfRes() const;
    // Device dots; 0, or -1 without data (nothing is written then).
    int getOrgOffset(int* value) const;
    int getWidth(int* value) const;
    int getHeight(int* value) const;
    // The i-th resolution from 0, or null. It belongs to this object.
    CScanRes* getScanRes(int i) const;

private:
    std::vector<std::unique_ptr<CScanRes>> ScanRes;
    std::unique_ptr<unsigned char[]> pdata;
    int iSize = 0;
};
