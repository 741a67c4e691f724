// SPDX-License-Identifier: LGPL-2.1-or-later
// The packets of a pcap or pcapng file.
#pragma once

#include "ByteView.h"

#include <cstdio>
#include <functional>
#include <string>

namespace trace {

struct CapturedPacket {
    std::uint64_t number = 0;  // from 1, as other programs count
    std::uint64_t time = 0;    // microseconds
    ByteView bytes;            // what was recorded
    std::size_t size = 0;      // what there was
};

class PacketFile {
public:
    // Throws std::runtime_error.
    explicit PacketFile(const std::string& path);
    // Closes the file, whatever happens.
    explicit PacketFile(std::FILE* file);
    PacketFile(const PacketFile&) = delete;
    PacketFile& operator=(const PacketFile&) = delete;
    ~PacketFile();

    // A DLT_ number.
    int linkType() const;
    // Calls visit for each packet; returns what is wrong with the file's end, or nothing.
    std::string forEach(const std::function<void(const CapturedPacket&)>& visit);

private:
    void* pcap_;
};

}  // namespace trace
