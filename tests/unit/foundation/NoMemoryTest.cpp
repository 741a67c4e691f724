// SPDX-License-Identifier: LGPL-2.1-or-later
// What cannot be had again is never lost in silence.
#include "Allocations.h"
#include "CResponse.h"
#include "DataBuffer.h"
#include "DeCompHandler.h"
#include "FlatFileReader.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "ImageData.h"
#include "InterleaveHandler.h"
#include "ScanRecord.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

const unsigned char kReply[8] = {0x1B, 'S', 0x05, 0, 0, 0, 0x80, 0};

// More than this does not go into its first block.
void fill(DataBuffer& buffer)
{
    const unsigned char bytes[4096] = {};
    buffer.SetRawData(bytes, sizeof bytes / 2);
    buffer.SetRawData(bytes, sizeof bytes / 2);
}

TEST(NoMemory, ForAReply)
{
    CResponse response;
    {
        const Allocations allocations(0);
        EXPECT_EQ(response.setHeader(kReply, sizeof kReply), CResponse::kLost);
    }
    EXPECT_EQ(response.getReply(), 0);
    EXPECT_EQ(response.setHeader(kReply, sizeof kReply), 0);
    EXPECT_EQ(response.getReply(), 3);
    const Allocations allocations(0);
    EXPECT_NE(response.setHeader(kReply, 3), CResponse::kLost)
        << "a short one is not a matter of memory";
}

// Neither the end of a page nor its geometry gets lost.
TEST(NoMemory, RecordsNeedNone)
{
    unsigned char block[31] = {0x1B, 'S', 0x02, 0, 0, 0, 0x80, 0, RECORD_END_OF_DATA, 0, 1, 12};
    ImageData image;
    const ScanRecord record;
    const Allocations allocations(0);
    EXPECT_EQ(record.process(block, sizeof block, &image), RECORD_END_OF_DATA);
    block[8] = RECORD_PAGE_MARKER;
    EXPECT_EQ(record.process(block, sizeof block, &image), RECORD_PAGE_MARKER);
    EXPECT_EQ(image.GetInterleaveWidth(), 12);
}

TEST(NoMemory, ForImageBytes)
{
    const std::unique_ptr<ICommand> command(ICommand::createCmdInstance(326));
    const unsigned char block[100] = {1, 2, 3};
    for (int granted = 0; granted < 2; ++granted) {
        DataBuffer scanData;
        DataBuffer buffer;
        fill(buffer);
        const Allocations allocations(granted);
        EXPECT_EQ(ScanRecord::addImageBytes(command.get(), &scanData, block, sizeof block, &buffer,
                                            false),
                  -1)
            << granted;
    }
}

TEST(NoMemory, ForALine)
{
    const unsigned char line[12] = {1, 2, 3};
    for (const bool isInterleaved : {false, true}) {
        ImageData image;
        image.SetAttributes(12, 2, 12, GRAY, FLIP_OFF, COMPRESSION_OFF_RAW, 0);
        if (isInterleaved) {
            image.SetInterleaveInfo(12, 2, 0, 0, 0);
        }
        fill(image);
        DataBuffer in;
        in.SetRawData(line, sizeof line);
        in.SetProcessedDataSize(sizeof line);
        InterleaveHandler handler;
        {
            const Allocations allocations(0);
            EXPECT_EQ(handler.DoInterleave(&in, &image), -1) << isInterleaved;
            EXPECT_FALSE(handler.Finish(&in, &image)) << isInterleaved;
        }
        EXPECT_EQ(in.GetProcessedDataSize(), 12) << "the line waits";
        EXPECT_TRUE(handler.Finish(&in, &image)) << isInterleaved;
        EXPECT_EQ(in.GetProcessedDataSize(), 0);
    }
}

TEST(NoMemory, ForADecompressor)
{
    FlatFileReader settings;
    settings.SetIntOption("COMPRESSION", 1);
    settings.SetIntOption("COMPRESSIONTECH", 2);
    DeCompHandler handler;
    int granted = 0;
    for (bool isRefused = true; isRefused; ++granted) {
        const Allocations allocations(granted);
        const int result = handler.Initialize(&settings);
        isRefused = allocations.refused();
        EXPECT_EQ(result, isRefused ? 0 : 1) << granted;
    }
    EXPECT_GT(granted, 1);
}

}  // namespace
