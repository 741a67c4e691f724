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
    // merged, 0: no interleaving, moved as they are (-1 too when there is no memory for
    // them), -1: less than a line is ready; it stays.
    int DoInterleave(DataBuffer* in, ImageData* img);

    // Merges the next line, of which bytes that in does not hold count as zero.
    void InterleaveLine(DataBuffer* in, ImageData* img);

    // At the end of the data: merges what is left of a last line. False if there are bytes
    // that belong to no line, because the device announced lines without pixels.
    bool Finish(DataBuffer* in, ImageData* img);
};
