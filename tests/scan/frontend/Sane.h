// SPDX-License-Identifier: LGPL-2.1-or-later
// The SANE interface as a front end in C++ sees it, behind the dll loader.
#pragma once

#include "Require.h"

#include <sane/sane.h>

#include <map>
#include <string>
#include <vector>

namespace frontend {

using scantest::Failed;
using scantest::require;

// From sane_init to sane_exit.
class Session {
public:
    Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // The names of the devices.
    std::vector<std::string> list();
};

// Which device of the simulation has that name, as long as it has not been plugged in anew.
int numberOf(const std::string& deviceName);

// An open device.
class Scanner {
public:
    explicit Scanner(const std::string& name);
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;
    ~Scanner();

    static constexpr int kOptions = 12;

    SANE_Handle handle() const { return handle_; }
    int option(const std::string& name) const { return numbers_.at(name); }
    const SANE_Option_Descriptor* descriptor(int number) const;

    SANE_Status control(int number, SANE_Action action, void* value, SANE_Int* info) const;
    // These have to succeed.
    void set(const std::string& name, SANE_Word value) const;
    void set(const std::string& name, const std::string& value) const;
    void setArea(double left, double top, double right, double bottom) const;
    SANE_Word word(int number) const;
    std::string text(int number) const;
    SANE_Parameters parameters() const;

    SANE_Status start() const { return sane_start(handle_); }
    void cancel() const { sane_cancel(handle_); }

private:
    SANE_Handle handle_ = nullptr;
    std::map<std::string, int> numbers_;
};

}  // namespace frontend
