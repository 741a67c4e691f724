// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>

#include "UsbTransfers.h"

namespace scansim {

// Writes the transfers of the simulated bus as the kernel's usbmon does, to a pcap file.
class UsbMonitor {
public:
    // The file is closed with the monitor. Throws std::runtime_error.
    explicit UsbMonitor(std::FILE* file);
    UsbMonitor(const UsbMonitor&) = delete;
    UsbMonitor& operator=(const UsbMonitor&) = delete;
    ~UsbMonitor();

    void submitted(unsigned device, Urb& urb);
    void completed(unsigned device, const Urb& urb);
    void control(unsigned device, const ControlRequest& request, const Bytes& answer, int error);

private:
    struct Event;
    void write(const Event& what, const Bytes* data);

    void* pcap_;
    void* dumper_;
    std::uint64_t lastNumber_ = 0;
};

}  // namespace scansim
