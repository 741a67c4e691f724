// SPDX-License-Identifier: LGPL-2.1-or-later
// The interleave stage: half-lines side by side become lines.
#pragma once

#include "CLogger.h"
#include "DataBuffer.h"
#include "ImageData.h"

// An interleaved line holds two half-lines; pixels come from them in turn.
class InterleaveHandler : public CLogger {
public:
    virtual ~InterleaveHandler();

    // Moves processed bytes of in to the raw side of img. 1: whole interleaved lines were
    // merged, 0: no interleaving, moved as they are, -1: less than a line is ready, or there is
    // no memory; what is not moved stays.
    int DoInterleave(DataBuffer* in, ImageData* img);
    // The same for a caller that has asked debugEnabled() itself, once for many blocks.
    int DoInterleave(DataBuffer* in, ImageData* img, bool isTracing);

    // Merges the next line, of which bytes that in does not hold count as zero. Without memory
    // it stays.
    void InterleaveLine(DataBuffer* in, ImageData* img);

    // At the end of the data: merges what is left of a last line. False if bytes stay, for want
    // of memory, or because the device announced lines without pixels.
    bool Finish(DataBuffer* in, ImageData* img);
};
