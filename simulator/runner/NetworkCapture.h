// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>
#include <string>

namespace scansim {

// Records what passes a network interface, as any program for that does, to a pcap file.
class NetworkCapture {
public:
    // In the network that this process is in. The file is closed with the capture. Throws
    // std::runtime_error.
    NetworkCapture(const std::string& interface, std::FILE* file);
    NetworkCapture(const NetworkCapture&) = delete;
    NetworkCapture& operator=(const NetworkCapture&) = delete;
    ~NetworkCapture();

    // Something is to be written when it can be read.
    int fd() const;
    void write();

private:
    void* pcap_ = nullptr;
    void* dumper_ = nullptr;
};

}  // namespace scansim
