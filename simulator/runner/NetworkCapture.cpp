// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetworkCapture.h"

#include <pcap/pcap.h>

#include <stdexcept>

namespace scansim {

namespace {

constexpr int kSnapshot = 1 << 17;
constexpr int kBuffer = 1 << 26;

pcap_t* handle(void* pcap)
{
    return static_cast<pcap_t*>(pcap);
}

}  // namespace

NetworkCapture::NetworkCapture(const std::string& interface, std::FILE* file)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_ = pcap_create(interface.c_str(), error);
    if (pcap_ == nullptr) {
        throw std::runtime_error(error);
    }
    pcap_set_snaplen(handle(pcap_), kSnapshot);
    pcap_set_buffer_size(handle(pcap_), kBuffer);
    pcap_set_immediate_mode(handle(pcap_), 1);
    if (pcap_activate(handle(pcap_)) >= 0 && pcap_setnonblock(handle(pcap_), 1, error) == 0) {
        dumper_ = pcap_dump_fopen(handle(pcap_), file);
    }
    if (dumper_ == nullptr) {
        const std::string what = pcap_geterr(handle(pcap_));
        pcap_close(handle(pcap_));
        throw std::runtime_error("cannot record the network: " + what);
    }
}

NetworkCapture::~NetworkCapture()
{
    write();
    pcap_dump_close(static_cast<pcap_dumper_t*>(dumper_));
    pcap_close(handle(pcap_));
}

int NetworkCapture::fd() const
{
    return pcap_get_selectable_fd(handle(pcap_));
}

void NetworkCapture::write()
{
    pcap_dispatch(handle(pcap_), -1, pcap_dump, static_cast<u_char*>(dumper_));
}

}  // namespace scansim
