// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Backend.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <dlfcn.h>

namespace {

constexpr int kOptionResolution = 2;
constexpr int kOptionSource = 4;
constexpr int kOptionTlX = 7;
constexpr int kOptionTlY = 8;
constexpr int kOptionBrX = 9;
constexpr int kOptionBrY = 10;

template <typename Function>
void resolve(void* module, const std::string& name, Function** function)
{
    *function = reinterpret_cast<Function*>(dlsym(module, name.c_str()));
    require(*function != nullptr, "no " + name);
}

}  // namespace

Backend::Backend(const std::string& name)
{
    void* module = dlopen(("libsane-" + name + ".so.1").c_str(), RTLD_NOW);
    require(module != nullptr, module == nullptr ? dlerror() : "");
    const std::string prefix = "sane_" + name + "_";
    resolve(module, prefix + "init", &init);
    resolve(module, prefix + "exit", &exit);
    resolve(module, prefix + "get_devices", &getDevices);
    resolve(module, prefix + "open", &open);
    resolve(module, prefix + "close", &close);
    resolve(module, prefix + "get_option_descriptor", &getDescriptor);
    resolve(module, prefix + "control_option", &control);
    resolve(module, prefix + "get_parameters", &getParameters);
    resolve(module, prefix + "start", &start);
    resolve(module, prefix + "read", &read);
    resolve(module, prefix + "cancel", &cancel);
}

Frame Page::scan(const Backend& backend, SANE_Handle handle, int readSize)
{
    size_ = 0;
    const SANE_Status status = backend.start(handle);
    return status == SANE_STATUS_GOOD ? readOn(backend, handle, readSize) : Frame{status};
}

Frame Page::readOn(const Backend& backend, SANE_Handle handle, int readSize)
{
    size_ = 0;
    SANE_Status status = SANE_STATUS_GOOD;
    while (status == SANE_STATUS_GOOD &&
           size_ + static_cast<std::size_t>(readSize) <= bytes_.size()) {
        SANE_Int length = -1;
        status = backend.read(handle, bytes_.data() + size_, readSize, &length);
        size_ += static_cast<std::size_t>(length);
    }
    return {status, true, size_};
}

bool Page::isLike(const Page& other) const
{
    return size_ == other.size_ && isStartOf(other);
}

bool Page::isStartOf(const Page& other) const
{
    return size_ <= other.size_ && memcmp(bytes_.data(), other.bytes_.data(), size_) == 0;
}

SANE_Status setUp(const Backend& backend, SANE_Handle handle, double millimetres, bool fromFeeder)
{
    SANE_Word resolution = 75;
    SANE_Word near = SANE_FIX(0);
    SANE_Word far = SANE_FIX(millimetres);
    const auto set = [&](int option, void* value) {
        return backend.control(handle, option, SANE_ACTION_SET_VALUE, value, nullptr);
    };
    SANE_Status status = set(kOptionResolution, &resolution);
    for (const int option : {kOptionTlX, kOptionTlY, kOptionBrX, kOptionBrY}) {
        SANE_Word* corner = option < kOptionBrX ? &near : &far;
        status = status == SANE_STATUS_GOOD ? set(option, corner) : status;
    }
    char source[4096] = "Automatic Document Feeder";
    return status == SANE_STATUS_GOOD && fromFeeder ? set(kOptionSource, source) : status;
}

int openDescriptors()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        count += std::filesystem::read_symlink(entry.path(), error) != "/tmp/scan.dump" ? 1 : 0;
    }
    return count;
}
