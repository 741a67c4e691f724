// SPDX-License-Identifier: LGPL-2.1-or-later
// The engine with a transport of its own, its parts open to tests.
#pragma once

#include "CResponse.h"
#include "ConfigReader.h"
#include "DataBuffer.h"
#include "DeCompHandler.h"
#include "FlatFileReader.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "ImageData.h"
#include "InterleaveHandler.h"
#include "RawDataHandler.h"
#include "Samples.h"
#include "SaneConfReader.h"
#include "ScanLib.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using Journal = std::vector<std::string>;

// What one ReadImage does: run during, hand over bytes, give result.
struct Step {
    int result = 0;
    Bytes bytes = {};
    std::function<void(ImageData*)> during = nullptr;
    bool isBroken = false;  // reading failed
};

// Does as its script says and writes every call down: "open", "close", "command <n>",
// "read", and "destroyed" at its end. Only the bytes that it hands over take memory that
// Allocations may refuse.
class FakeTransport : public ICommunication {
public:
    explicit FakeTransport(std::shared_ptr<Journal> calls) : calls_(std::move(calls)) {}
    ~FakeTransport() override { calls_->push_back("destroyed"); }

    int openResult = 0;
    std::map<int, int> writeResults;     // by command; else the command itself
    std::map<int, Bytes> replies;        // by command; else a good reply
    std::function<void(int)> onCommand;  // runs inside of writeCommand
    std::function<void()> onOpen;        // runs inside of openDevice
    std::function<void()> onClose;       // runs inside of closeDevice
    std::deque<Step> steps;
    Step lastStep = {1};  // when there are no more steps
    int feederStatus = 0;

    int Write(unsigned char*, int) override { return 0; }
    int Read(unsigned char*, int*) override { return 15; }
    int ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image) override;
    bool isReadBroken() const override { return isBroken_; }
    int setDevice(const char*) override { return 0; }
    int getVid() override { return 0x1234; }
    int getPid() override { return 0x3260; }
    int getScanners(char***, int*, void*) override { return 0; }
    int openDevice() override;
    int closeDevice() override;
    int getProductName(char*, int) override { return 97; }
    int getVendorName(char*, int) override { return 96; }
    int writeCommand(int id, CResponse* reply) override;
    int setCommand(ICommand*) override { return 0; }

private:
    Step nextStep();

    std::shared_ptr<Journal> calls_;
    bool isBroken_ = false;
};

// Opened for a grey page of 10 x 10 dots (10 dpi, one inch square) unless a test changes
// the store.
class TestEngine : public ScanLib {
public:
    explicit TestEngine(int version = 326);

    using ScanLib::AcquireImageStatus;
    using ScanLib::Buffer;
    using ScanLib::Image;
    using ScanLib::ImageHandler;
    using ScanLib::Interleaver;
    using ScanLib::linesRead;
    using ScanLib::MyDecompressor;
    using ScanLib::pCfgReader;
    using ScanLib::pCmd;
    using ScanLib::pComm;
    using ScanLib::pSaneConfReader;
    using ScanLib::ScanInProgress;

    void set(const char* key, int value) { pCfgReader->SetIntOption(key, value); }
    void set(const char* key, double value) { pCfgReader->SetDoubleOption(key, value); }
    // Starts a frame, then forgets the calls that this took.
    void startFrame();
    // Builds the manipulations that the store asks for.
    void setUpManipulations();

    int count(const std::string& call) const;
    Journal& calls() { return *journal; }

    std::shared_ptr<Journal> journal = std::make_shared<Journal>();
    FakeTransport* transport;
};

// One read of at most size bytes.
struct Got {
    int status;
    Bytes bytes;
};

Got acquire(TestEngine& engine, int size);
// Reads until the status is not good; every read must be within bounds.
Got acquireAll(TestEngine& engine, int size);
// Blocks of that size that hold data.
std::deque<Step> stepsOf(const Bytes& data, std::size_t blockSize);
