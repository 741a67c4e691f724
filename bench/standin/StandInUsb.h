// SPDX-License-Identifier: LGPL-2.1-or-later
// A stand-in for libusb 0.1 that hands a scanner's transfers out of memory: what a scan costs is
// then the backend's own work. Programs that define its usb_ functions, or preload them, go before
// the genuine library.
#pragma once

#include "Recording.h"

namespace standin {

// The scanner behind the usb_ functions.
class UsbScanner {
public:
    virtual ~UsbScanner() = default;
    virtual int vendorId() const = 0;
    virtual int productId() const = 0;
    virtual void write(const unsigned char* bytes, int size) = 0;
    // How many bytes came; none is a time-out.
    virtual int read(unsigned char* bytes, int capacity) = 0;
};

// The program's own; null: none is attached.
UsbScanner* attachedScanner();

// Answers every command as the recording has it, the n-th of a kind like the n-th there, and from
// the front again behind the last.
class Player : public UsbScanner {
public:
    // The recording is not owned.
    explicit Player(const Recording& recording) : recording_(recording) {}

    int vendorId() const override { return recording_.vendorId; }
    int productId() const override { return recording_.productId; }
    void write(const unsigned char* bytes, int size) override;
    int read(unsigned char* bytes, int capacity) override;

private:
    const Recording& recording_;
    std::size_t next_ = 0;  // exchange, where the search for a command begins
    const Recording::Exchange* current_ = nullptr;
    std::size_t answered_ = 0;
};

}  // namespace standin
