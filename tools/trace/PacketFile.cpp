// SPDX-License-Identifier: LGPL-2.1-or-later
#include "PacketFile.h"

#include <stdexcept>

#include <pcap/pcap.h>

namespace trace {

namespace {

pcap_t* handle(void* pcap)
{
    return static_cast<pcap_t*>(pcap);
}

}  // namespace

PacketFile::PacketFile(const std::string& path)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_ = pcap_open_offline(path.c_str(), error);
    if (pcap_ == nullptr) {
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
