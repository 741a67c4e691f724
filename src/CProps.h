// SPDX-License-Identifier: LGPL-2.1-or-later
// The device properties: what the scanner says it can do.
#pragma once

#include "CLogger.h"
#include "CSources.h"

#include <memory>
#include <vector>

class CProps : public CLogger {
public:
    // Copies the properties and walks their source records. Counts in the data decide
    // how far the walk reads; bytes past the end count as zero. 0, or 2 for no memory
    // (the records read so far stay).
    int setData(const unsigned char* data, int size);

    // The byte, or -1 without data.
    int getMajor() const;
    int getMinor() const;
    int getCodeset() const;
    int getCompression() const;
    int getAlignmentClr() const;
    int getAlignmentGry() const;
    int getNumOfSources() const;
    // The i-th source from 0, or null. It belongs to this object.
    CSources* getSource(int i) const;

private:
    std::vector<std::unique_ptr<CSources>> Sources;
    std::unique_ptr<unsigned char[]> pdata;
    int iSize = 0;
};
