// SPDX-License-Identifier: LGPL-2.1-or-later
// The image store of one scan: finished bytes with the page's geometry.
#pragma once

#include "CLogger.h"
#include "ConfigReader.h"
#include "DataBuffer.h"

enum TripletTypeEnum { BGR = 0, RGB = 1, GRAY = 2, UNKNOWN = 3 };
enum CompressionModeEnum {
    COMPRESSION_OFF_RAW = 0,
    COMPRESSION_ON = 1,
    COMPRESSION_OFF_JPEG = 2,
};
enum FlipEnum { FLIP_OFF = 0, FLIP_ON = 1 };

// Widths and offsets are in pixels, heights in lines, the stride in bytes.
class ImageData : public DataBuffer {
public:
    // Takes the attributes of the coming scan, empties the store (its block is kept)
    // and forgets the interleave geometry. Returns 1.
    int SetAttributes(int width, int height, int stride, TripletTypeEnum tripletType,
                      FlipEnum sideFlip, CompressionModeEnum mode, int level);
    // The same with the attributes of the option store. isAdf: the scan is from the
    // document feeder.
    int SetAttributes(ConfigReader* cfg, int isAdf);
    // Replaces the geometry only.
    void UpdateAttributes(int width, int height, int stride);

    // What the device reports that it really scanned.
    void RecordAttributes(int actualWidth, int actualHeight);
    // Announces interleaved lines and their geometry.
    void SetInterleaveInfo(int width, int height, int offsetX, int offsetY, int trim);

    // Appends at most what the page still expects; what exceeds it is dropped.
    // Returns 1.
    int SetRawData(const unsigned char* data, int len);
    // Appends room for len bytes, cut in the same way; *len is the room given. Null
    // when that is none, or without memory.
    unsigned char* ExtendRawData(int* len);

    // Cuts the lines in buf to the width really scanned and packs them; returns the
    // new length. The third argument is ignored.
    int ApplyAdjustments(unsigned char* buf, int len, int lines);

    long GetWholeImageSize() const { return iWholeImageSize; }
    int GetScanWidth() const { return iScanWidth; }
    int GetScanHeight() const { return iScanHeight; }
    int GetActualScanWidth() const { return iActualScanWidth; }
    int GetActualScanHeight() const { return iActualScanHeight; }
    int GetNumOfChannels() const { return iNumOfChannels; }
    int GetStride() const { return iStride; }
    TripletTypeEnum GetTripletType() const { return iTripletType; }
    FlipEnum GetSideFlip() const { return iSideFlip; }
    CompressionModeEnum GetCompressionMode() const { return iCompressionMode; }
    // 0 unless the mode is COMPRESSION_ON.
    int GetCompressionLevel() const;
    int GetInterleave() const { return iInterleave; }
    int GetInterleaveWidth() const { return iInterleaveWidth; }
    int GetInterleaveHeight() const { return iInterleaveHeight; }
    int GetInterleaveOffsetX() const { return iInterleaveOffsetX; }
    int GetInterleaveOffsetY() const { return iInterleaveOffsetY; }
    int GetInterleaveTrim() const { return iInterleaveTrim; }

private:
    void restart();

    long iWholeImageSize = 2147483647;
    int iScanWidth = 0;
    int iScanHeight = 0;
    int iActualScanWidth = 0;
    int iActualScanHeight = 0;
    int iNumOfChannels = 0;
    int iStride = 0;
    TripletTypeEnum iTripletType = UNKNOWN;
    FlipEnum iSideFlip = FLIP_OFF;
    CompressionModeEnum iCompressionMode = COMPRESSION_OFF_RAW;
    int iCompressionLevel = 0;
    int iInterleave = 0;
    int iInterleaveWidth = 0;
    int iInterleaveHeight = 0;
    int iInterleaveOffsetX = 0;
    int iInterleaveOffsetY = 0;
    int iInterleaveTrim = 0;
};
