// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScanRecord.h"

#include "Allocations.h"
#include "DataBuffer.h"
#include "ICommand.h"
#include "ImageData.h"
#include "LogCapture.h"
#include "Samples.h"

#include <gmock/gmock.h>

#include <memory>

namespace {

bool isRecord(const Bytes& block, int pending)
{
    return ScanRecord::isRecord(block.data(), static_cast<int>(block.size()), pending);
}

TEST(ScanRecordTest, BetweenImageBlocks)
{
    EXPECT_TRUE(isRecord(record(1), 0));
    EXPECT_TRUE(isRecord(record(255), 0));
    EXPECT_TRUE(isRecord(record(1) + ramp(50), 0));
    EXPECT_FALSE(isRecord(record(0), 0));
    EXPECT_FALSE(isRecord(imageBlock(ramp(50)), 0));
    EXPECT_FALSE(isRecord({}, 0));
    const Bytes whole = record(1);
    for (std::size_t size = 1; size < 9; size++) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(isRecord(cut, 0)) << "the response is missing";
    }
    for (std::size_t i = 0; i < 3; i++) {
        Bytes other = whole;
        other[i]++;
        EXPECT_FALSE(isRecord(other, 0)) << i;
    }
}

TEST(ScanRecordTest, InsideAnImageBlock)
{
    EXPECT_TRUE(isRecord(record(1), 100));
    EXPECT_TRUE(isRecord(pageMarker(1, 2, 3, 4, 5, 0), 100));
    EXPECT_FALSE(isRecord(record(1) + ramp(100), 500)) << "shorter than the block";
    Bytes longer = record(1);
    putLittle(longer, 4, 400, 2);
    EXPECT_FALSE(isRecord(longer, 500)) << "longer than the block";
}

TEST(ScanRecordTest, Response)
{
    ImageData image;
    const ScanRecord scanRecord;
    const Bytes jam = record(5);
    EXPECT_EQ(scanRecord.process(jam.data(), static_cast<int>(jam.size()), &image), 5);
    const Bytes marker = pageMarker(100, 200, 1, 2, 3, 1);
    EXPECT_EQ(scanRecord.process(marker.data(), static_cast<int>(marker.size()), &image), 9);
    EXPECT_EQ(image.GetActualScanWidth(), 100);
    EXPECT_EQ(image.GetInterleaveTrim(), 3);
}

// Otherwise a page whose end comes in a shortage would go on.
TEST(ScanRecordTest, ResponseNeedsNoMemory)
{
    ImageData image;
    const ScanRecord scanRecord;
    const Bytes end = record(1);
    const Bytes marker = pageMarker(100, 200, 1, 2, 3, 1);
    const Allocations none(0);
    const int response = scanRecord.process(end.data(), static_cast<int>(end.size()), &image);
    scanRecord.process(marker.data(), static_cast<int>(marker.size()), &image);
    const Allocations::Pause pause;
    EXPECT_EQ(response, 1);
    EXPECT_EQ(image.GetActualScanHeight(), 200);
    EXPECT_FALSE(none.refused());
}

TEST(ScanRecordTest, MovesImageBytes)
{
    const std::unique_ptr<ICommand> command(ICommand::createCmdInstance(401));
    DataBuffer scanData;
    DataBuffer buffer;
    const Bytes stream = imageBlock(ramp(30), 401) + imageBlock(ramp(20, 99), 401);
    scanData.SetRawData(stream.data(), static_cast<int>(stream.size()));
    EXPECT_EQ(ScanRecord::moveImageBytes(command.get(), &scanData, &buffer, false), 50);
    EXPECT_EQ(scanData.GetAllDataSize(), 0);
    EXPECT_EQ(buffer.GetProcessedDataSize(), 0);
    Bytes got(50);
    EXPECT_EQ(buffer.GetAllData(got.data(), 50), 50);
    EXPECT_EQ(got, ramp(30) + ramp(20, 99));
    EXPECT_EQ(ScanRecord::moveImageBytes(command.get(), &scanData, &buffer, false), 0);
}

}  // namespace
