// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Module.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <dlfcn.h>

namespace bench {

namespace {

enum Option { kResolution = 2, kMode = 3, kLeft = 7, kTop = 8, kRight = 9, kBottom = 10 };

void require(SANE_Status status, const char* what)
{
    if (status != SANE_STATUS_GOOD) {
        throw std::runtime_error(std::string(what) + ": status " + std::to_string(status));
    }
}

// "QuillonLegacy_1_0_0" of ".../libsane-QuillonLegacy_1_0_0.so.1".
std::string backendName(const std::string& path)
{
    const std::size_t begin = path.rfind("libsane-") + strlen("libsane-");
    return path.substr(begin, path.find(".so", begin) - begin);
}

}  // namespace

Module::Module(const std::string& path)
    : library_(dlopen(path.c_str(), RTLD_LAZY)), prefix_("sane_" + backendName(path) + "_")
{
    if (library_ == nullptr) {
        throw std::runtime_error(dlerror());
    }
    require(entry<decltype(sane_init)>("init")(nullptr, nullptr), "sane_init");
}

Module::~Module()
{
    entry<decltype(sane_exit)>("exit")();
    dlclose(library_);
}

void* Module::find(const std::string& name) const
{
    void* symbol = dlsym(library_, (prefix_ + name).c_str());
    if (symbol == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return symbol;
}

Device::Device(const Module& module, const std::string& name)
    : close_(module.entry<decltype(sane_close)>("close")),
      control_(module.entry<decltype(sane_control_option)>("control_option")),
      describe_(module.entry<decltype(sane_get_option_descriptor)>("get_option_descriptor")),
      parameters_(module.entry<decltype(sane_get_parameters)>("get_parameters")),
      start_(module.entry<decltype(sane_start)>("start")),
      read_(module.entry<decltype(sane_read)>("read")),
      cancel_(module.entry<decltype(sane_cancel)>("cancel"))
{
    require(module.entry<decltype(sane_open)>("open")(name.c_str(), &handle_), "sane_open");
}

Device::~Device()
{
    close_(handle_);
}

void Device::setOption(int number, void* value) const
{
    require(control_(handle_, number, SANE_ACTION_SET_VALUE, value, nullptr), "an option");
}

void Device::set(const Job& job)
{
    SANE_Word dpi = job.dpi;
    setOption(kResolution, &dpi);
    std::string mode = job.mode;
    setOption(kMode, mode.data());
    SANE_Word zero = 0;
    setOption(kLeft, &zero);
    setOption(kTop, &zero);
    const auto setEnd = [this](int option, double millimetres) {
        const SANE_Range& range = *describe_(handle_, option)->constraint.range;
        SANE_Word value = std::min(SANE_FIX(millimetres), range.max);
        setOption(option, &value);
    };
    setEnd(kRight, job.width);
    setEnd(kBottom, job.height);
}

SANE_Parameters Device::parameters() const
{
    SANE_Parameters parameters = {};
    require(parameters_(handle_, &parameters), "sane_get_parameters");
    return parameters;
}

long Device::scan(unsigned char* data, int blockSize, const Taker& take) const
{
    require(start_(handle_), "sane_start");
    long bytes = 0;
    SANE_Int length = 0;
    SANE_Status status = SANE_STATUS_GOOD;
    while ((status = read_(handle_, data, blockSize, &length)) == SANE_STATUS_GOOD) {
        bytes += length;
        if (take) {
            take(data, length);
        }
    }
    cancel_(handle_);
    require(status == SANE_STATUS_EOF ? SANE_STATUS_GOOD : status, "sane_read");
    return bytes;
}

}  // namespace bench
