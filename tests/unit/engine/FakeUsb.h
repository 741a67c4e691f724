// SPDX-License-Identifier: LGPL-2.1-or-later
// A stand-in for the part of libusb 0.1 that the USB transport calls.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <usb.h>

using Bytes = std::vector<unsigned char>;

struct FakeInterface {
    int interfaceClass = 255;
    std::vector<int> endpoints = {0x02, 0x81};
    bool hasAlternate = true;
};

struct FakeDevice {
    std::string bus = "001";
    std::string file = "002";
    int vid = 0x1234;
    int pid = 0x3260;
    int deviceClass = 255;
    std::vector<FakeInterface> interfaces = {{}};
    int manufacturerIndex = 1;
    int productIndex = 2;
    // By descriptor index; reading one that is not here fails.
    std::map<int, std::string> strings = {{1, "Quillon"}, {2, "Flatbed"}};
    bool hasConfiguration = true;
    int configurationValue = 1;
};

// One lives at a time; while it lives, the usb_ functions act on it. Every call but those
// that only look something up is recorded as "<name without usb_> <arguments>".
class FakeUsb {
public:
    explicit FakeUsb(const std::vector<FakeDevice>& devices = {FakeDevice()});
    FakeUsb(const FakeUsb&) = delete;
    FakeUsb& operator=(const FakeUsb&) = delete;
    ~FakeUsb();

    void add(const FakeDevice& device);
    // Takes every device away; their records go with the next search.
    void unplugAll();

    // The next call of that name gives this result and sets errno, unless error is 0.
    void fail(const std::string& call, int result, int error = 0);
    // What the next bulk reads deliver. Without any, a read gives 0 bytes.
    void deliver(const Bytes& block) { reads_.push_back({static_cast<int>(block.size()), block}); }
    void forgetReads() { reads_.clear(); }
    void deliverResult(int result) { reads_.push_back({result, {}}); }
    // Runs inside of every bulk read, before it delivers.
    std::function<void()> onBulkRead;

    std::vector<std::string> calls;
    // The calls of that name.
    std::vector<std::string> callsOf(const std::string& name) const;
    Bytes lastWritten;
    int openHandles = 0;
    int timeout = 0;  // of the last bulk transfer

    // ---- for the usb_ functions ----
    static FakeUsb* current;
    void search();
    int result(const std::string& call);
    int read(char* bytes, int size);
    const FakeDevice& specOf(const struct usb_device* device) const;

private:
    struct Record;
    struct Read {
        int result;
        Bytes block;
    };

    std::vector<std::unique_ptr<Record>> records_;
    std::vector<FakeDevice> attached_;
    std::vector<std::unique_ptr<usb_bus>> busses_;
    std::map<std::string, std::deque<std::pair<int, int>>> failures_;
    std::deque<Read> reads_;
    bool isChanged_ = false;
};
