// SPDX-License-Identifier: LGPL-2.1-or-later
// A backend module, loaded as SANE's dll loader does it, and scans with it.
#pragma once

#include <functional>
#include <string>

#include <sane/sane.h>

namespace bench {

// Every failure throws std::runtime_error.
class Module {
public:
    explicit Module(const std::string& path);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module();

    template <typename Function>
    Function* entry(const char* name) const
    {
        return reinterpret_cast<Function*>(find(name));
    }

    void* find(const std::string& name) const;

private:
    void* library_;
    std::string prefix_;
};

// What to scan; the whole bed unless it is smaller.
struct Job {
    int dpi = 600;
    const char* mode = "24-bit Color";
    double width = 1000;  // millimetres
    double height = 1000;
};

class Device {
public:
    Device(const Module& module, const std::string& name);
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device();

    void set(const Job& job);
    SANE_Parameters parameters() const;
    // A whole page, read in blocks of that size into data; each is passed to take, if there is one.
    // Returns its bytes.
    using Taker = std::function<void(const unsigned char* bytes, int size)>;
    long scan(unsigned char* data, int blockSize, const Taker& take = nullptr) const;

private:
    void setOption(int number, void* value) const;

    decltype(sane_close)* close_;
    decltype(sane_control_option)* control_;
    decltype(sane_get_option_descriptor)* describe_;
    decltype(sane_get_parameters)* parameters_;
    decltype(sane_start)* start_;
    decltype(sane_read)* read_;
    decltype(sane_cancel)* cancel_;
    SANE_Handle handle_ = nullptr;
};

}  // namespace bench
