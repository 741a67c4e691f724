// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sane.h"

#include <algorithm>
#include <cstring>

namespace frontend {

namespace {

constexpr std::size_t kMostText = 65536;

void requireGood(SANE_Status status, const std::string& what)
{
    require(status == SANE_STATUS_GOOD, what + ": status " + std::to_string(status));
}

}  // namespace

Session::Session()
{
    SANE_Int version = 0;
    requireGood(sane_init(&version, nullptr), "sane_init");
    require(SANE_VERSION_MAJOR(version) == 1, "version");
}

Session::~Session()
{
    sane_exit();
}

std::vector<std::string> Session::list()
{
    const SANE_Device** devices = nullptr;
    requireGood(sane_get_devices(&devices, SANE_FALSE), "sane_get_devices");
    std::vector<std::string> names;
    for (; *devices != nullptr; ++devices) {
        names.emplace_back((*devices)->name);
    }
    return names;
}

int numberOf(const std::string& deviceName)
{
    const std::string last = deviceName.substr(deviceName.rfind('/') + 1);
    const bool isUsb = deviceName.find("libusb") != std::string::npos;
    return isUsb ? std::stoi(last) - 1 : std::stoi(last.substr(last.size() - 4), nullptr, 16);
}

Scanner::Scanner(const std::string& name)
{
    requireGood(sane_open(name.c_str(), &handle_), "sane_open of " + name);
    for (int i = 0; i < kOptions; ++i) {
        const SANE_Option_Descriptor* option = descriptor(i);
        if (option != nullptr && option->name != nullptr && *option->name != '\0') {
            numbers_[option->name] = i;
        }
    }
}

Scanner::~Scanner()
{
    sane_close(handle_);
}

const SANE_Option_Descriptor* Scanner::descriptor(int number) const
{
    return sane_get_option_descriptor(handle_, number);
}

SANE_Status Scanner::control(int number, SANE_Action action, void* value, SANE_Int* info) const
{
    return sane_control_option(handle_, number, action, value, info);
}

void Scanner::set(const std::string& name, SANE_Word value) const
{
    requireGood(control(option(name), SANE_ACTION_SET_VALUE, &value, nullptr), "set " + name);
}

void Scanner::set(const std::string& name, const std::string& value) const
{
    std::string copy = value;
    requireGood(control(option(name), SANE_ACTION_SET_VALUE, copy.data(), nullptr), "set " + name);
}

void Scanner::setArea(double left, double top, double right, double bottom) const
{
    set("tl-x", SANE_FIX(left));
    set("tl-y", SANE_FIX(top));
    set("br-x", SANE_FIX(right));
    set("br-y", SANE_FIX(bottom));
}

SANE_Word Scanner::word(int number) const
{
    SANE_Word value = 0;
    requireGood(control(number, SANE_ACTION_GET_VALUE, &value, nullptr), "get");
    return value;
}

std::string Scanner::text(int number) const
{
    std::string value(kMostText, '\0');
    requireGood(control(number, SANE_ACTION_GET_VALUE, value.data(), nullptr), "get");
    const auto size = static_cast<std::size_t>(descriptor(number)->size);
    require(strnlen(value.data(), kMostText) < size, "a text longer than its size");
    return value.c_str();
}

SANE_Parameters Scanner::parameters() const
{
    SANE_Parameters parameters = {};
    requireGood(sane_get_parameters(handle_, &parameters), "sane_get_parameters");
    return parameters;
}

}  // namespace frontend
