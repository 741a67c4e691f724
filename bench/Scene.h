// SPDX-License-Identifier: LGPL-2.1-or-later
// Scans that are measured: a model, how it is set, and what is asked of it.
#pragma once

#include "LiveScanner.h"
#include "Module.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

constexpr const char* kModules = BENCH_MODULES_DIR;
constexpr const char* kUsbDevice = "libusb/001/002";
// The first one that the discovery finds.
constexpr const char* kNetDevice = "libnet";

struct Scene {
    const char* backend;
    const char* model;
    std::string settings;  // of the simulated scanner
    Job job;
    const char* device = kUsbDevice;
    std::string modules = kModules;  // their folder
};

// A scene's scanner, recorded while it scans its first page and played from then on. One lives at
// a time, since the stand-in for libusb has one scanner.
class Stage {
public:
    explicit Stage(const Scene& scene);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    int width() const { return page_.pixels_per_line; }
    int lines() const { return page_.lines; }
    long pageBytes() const { return static_cast<long>(page_.bytes_per_line) * page_.lines; }
    const standin::Recording& recording() const { return live_.recording(); }
    const void* memberOfModule() const { return module_->find("init"); }
    // The whole page once more, in reads of 32 KB.
    void scan();
    std::vector<unsigned char> scanWhole();

    static standin::UsbScanner* attached;

private:
    standin::LiveScanner live_;
    std::unique_ptr<standin::Player> player_;
    std::unique_ptr<Module> module_;
    std::unique_ptr<Device> device_;
    std::vector<unsigned char> block_;
    SANE_Parameters page_ = {};
};

}  // namespace bench
