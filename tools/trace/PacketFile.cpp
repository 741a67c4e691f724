// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PacketFile.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <pcap/pcap.h>

namespace trace {

namespace {

pcap_t* handle(void* pcap)
{
    return static_cast<pcap_t*>(pcap);
}

std::FILE* opened(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        throw std::runtime_error(std::strerror(errno));
    }
    return file;
}

}  // namespace

PacketFile::PacketFile(const std::string& path) : PacketFile(opened(path)) {}

PacketFile::PacketFile(std::FILE* file)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_ = pcap_fopen_offline(file, error);
    if (pcap_ == nullptr) {
        std::fclose(file);
        throw std::runtime_error(error);
    }
}

PacketFile::~PacketFile()
{
    pcap_close(handle(pcap_));
}

int PacketFile::linkType() const
{
    return pcap_datalink(handle(pcap_));
}

std::string PacketFile::forEach(const std::function<void(const CapturedPacket&)>& visit)
{
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    CapturedPacket packet;
    int result = 0;
    while ((result = pcap_next_ex(handle(pcap_), &header, &data)) == 1) {
        ++packet.number;
        packet.time = static_cast<std::uint64_t>(header->ts.tv_sec) * 1000000 +
                      static_cast<std::uint64_t>(header->ts.tv_usec);
        packet.bytes = ByteView(data, header->caplen);
        packet.size = header->len;
        visit(packet);
    }
    return result == PCAP_ERROR ? printable(pcap_geterr(handle(pcap_))) : "";
}

}  // namespace trace
