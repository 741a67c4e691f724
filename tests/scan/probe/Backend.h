// SPDX-License-Identifier: LGPL-2.1-or-later
// One loaded backend, and a scanner that it has opened.
#pragma once

#include "Require.h"

#include <cstddef>
#include <string>
#include <vector>

#include <sane/sane.h>

using scantest::Failed;
using scantest::require;

// The entry points of the module of a backend's name, which LD_LIBRARY_PATH leads to.
struct Backend {
    explicit Backend(const std::string& name);

    SANE_Status (*init)(SANE_Int*, SANE_Auth_Callback);
    void (*exit)();
    SANE_Status (*getDevices)(const SANE_Device***, SANE_Bool);
    SANE_Status (*open)(SANE_String_Const, SANE_Handle*);
    void (*close)(SANE_Handle);
    const SANE_Option_Descriptor* (*getDescriptor)(SANE_Handle, SANE_Int);
    SANE_Status (*control)(SANE_Handle, SANE_Int, SANE_Action, void*, SANE_Int*);
    SANE_Status (*getParameters)(SANE_Handle, SANE_Parameters*);
    SANE_Status (*start)(SANE_Handle);
    SANE_Status (*read)(SANE_Handle, SANE_Byte*, SANE_Int, SANE_Int*);
    void (*cancel)(SANE_Handle);
};

// What became of a frame: the status of the call that ended it, and whether that was the start.
struct Frame {
    SANE_Status status = SANE_STATUS_GOOD;
    bool isStarted = false;
    std::size_t size = 0;
};

// Reads into memory of its own that it has from the beginning.
class Page {
public:
    explicit Page(std::size_t room = 4 << 20) : bytes_(room) {}
    Frame scan(const Backend& backend, SANE_Handle handle, int readSize = 4096);
    // Without starting it.
    Frame readOn(const Backend& backend, SANE_Handle handle, int readSize = 4096);
    // Of the last frame.
    bool isLike(const Page& other) const;
    bool isStartOf(const Page& other) const;
    const unsigned char* bytes() const { return bytes_.data(); }
    std::size_t size() const { return size_; }

private:
    std::vector<unsigned char> bytes_;
    std::size_t size_ = 0;
};

// Sets a small area at 75 dpi, and the source if there is a choice. The status of the last setting.
SANE_Status setUp(const Backend& backend, SANE_Handle handle, double millimetres, bool fromFeeder);

// Descriptors of this process, without that of the dump file, which stays open until the exit.
int openDescriptors();
