// SPDX-License-Identifier: LGPL-2.1-or-later
#include "TestEngine.h"

#include "Allocations.h"

#include <gtest/gtest.h>

#include <algorithm>

Step FakeTransport::nextStep()
{
    const Allocations::Pause pause;
    calls_->push_back("read");
    if (steps.empty()) {
        return lastStep;
    }
    const Step step = steps.front();
    steps.pop_front();
    return step;
}

int FakeTransport::ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image)
{
    const Step step = nextStep();
    isBroken_ = step.isBroken;
    if (step.during) {
        step.during(image);
    }
    if (!step.bytes.empty()) {
        const int size = static_cast<int>(step.bytes.size());
        if (buffer->SetRawData(step.bytes.data(), size) == 0) {
            return TRANSPORT_NO_MEMORY;
        }
        *bytesRead += size;
    }
    return step.result;
}

int FakeTransport::openDevice()
{
    calls_->push_back("open");
    if (onOpen) {
        onOpen();
    }
    return openResult;
}

int FakeTransport::closeDevice()
{
    const Allocations::Pause pause;
    calls_->push_back("close");
    if (onClose) {
        onClose();
    }
    return 0;
}

int FakeTransport::writeCommand(int id, CResponse* reply)
{
    const Allocations::Pause pause;
    calls_->push_back("command " + std::to_string(id));
    if (onCommand) {
        onCommand(id);
    }
    if (writeResults.count(id) != 0) {
        return writeResults[id];
    }
    const Bytes bytes = replies.count(id) != 0 ? replies[id] : replyTo(id, 0x80, feederStatus);
    if (reply != nullptr && id != 0) {
        reply->setHeader(bytes.data(), static_cast<int>(bytes.size()));
    }
    return id;
}

TestEngine::TestEngine(int version)
{
    pCfgReader = std::make_unique<FlatFileReader>();
    Buffer = std::make_unique<DataBuffer>();
    Image = std::make_unique<ImageData>();
    MyDecompressor = std::make_unique<DeCompHandler>();
    Interleaver = std::make_unique<InterleaveHandler>();
    ImageHandler = std::make_unique<RawDataHandler>();
    SetComm(ICommand::createCmdInstance(version));
    pCmd->setConfigReader(pCfgReader.get());
    transport = new FakeTransport(journal);
    SetIO(transport);
    set("COMMANDVERSION", version);
    set("CURRENTDPI", 10);
    set("COLORDEPTH", 1);
    set("SCAN_SOURCE", 1);
    set("SCANNERTYPE", 1);
    set("CURRENTTLX", 0.0);
    set("CURRENTTLY", 0.0);
    set("CURRENTBRX", 25.4);
    set("CURRENTBRY", 25.4);
    set("TOPLEFTX", 0.0);
    set("TOPLEFTY", 0.0);
    set("BOTTOMRIGHTX", 215.9);
    set("BOTTOMRIGHTY", 297.0);
}

void TestEngine::startFrame()
{
    ASSERT_EQ(Start(), 0);
    calls().clear();
}

void TestEngine::setUpManipulations()
{
    ImageHandler = std::make_unique<RawDataHandler>();
    ImageHandler->SetUp(pCfgReader.get());
}

int TestEngine::count(const std::string& call) const
{
    return static_cast<int>(std::count(journal->begin(), journal->end(), call));
}

Got acquire(TestEngine& engine, int size)
{
    const std::size_t room = static_cast<std::size_t>(std::max(size, 1));
    const auto data = std::make_unique<unsigned char[]>(room);
    int length = 12345;
    const int status = engine.AcquireImage(data.get(), size, &length);
    EXPECT_GE(length, 0);
    EXPECT_LE(length, std::max(size, 0));
    return {status, Bytes(data.get(), data.get() + length)};
}

Got acquireAll(TestEngine& engine, int size)
{
    Got all = {0, {}};
    for (int reads = 0; all.status == 0; reads++) {
        if (reads == 100000) {
            ADD_FAILURE() << "the reads do not come to an end";
            break;
        }
        const Got got = acquire(engine, size);
        all.status = got.status;
        all.bytes.insert(all.bytes.end(), got.bytes.begin(), got.bytes.end());
        EXPECT_TRUE(got.status == 0 || got.bytes.empty());
    }
    return all;
}

std::deque<Step> stepsOf(const Bytes& data, std::size_t blockSize)
{
    std::deque<Step> steps;
    for (std::size_t at = 0; at < data.size(); at += blockSize) {
        const std::size_t end = std::min(at + blockSize, data.size());
        steps.push_back({0, Bytes(data.begin() + static_cast<std::ptrdiff_t>(at),
                                  data.begin() + static_cast<std::ptrdiff_t>(end))});
    }
    return steps;
}
