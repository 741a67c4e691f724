// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbMonitor.h"

#include <pcap/pcap.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace scansim {

namespace {

constexpr int kSnapshot = 1 << 21;
constexpr std::uint8_t kControl = 2;
constexpr std::uint8_t kBulk = 3;
constexpr std::uint8_t kIn = 0x80;
constexpr std::int32_t kInProgress = -EINPROGRESS;

bool isIn(std::uint8_t endpoint)
{
    return (endpoint & kIn) != 0;
}

}  // namespace

// The header of each packet, in the byte order of this machine.
struct UsbMonitor::Event {
    std::uint64_t id = 0;
    char type = 'S';
    std::uint8_t transferType = kBulk;
    std::uint8_t endpoint = 0;
    std::uint8_t device = 0;
    std::uint16_t bus = 1;
    char setupFlag = '-';  // 0: there is a setup packet
    char dataFlag = 0;     // 0: there is data
    std::int64_t seconds = 0;
    std::int32_t microseconds = 0;
    std::int32_t status = kInProgress;
    std::uint32_t length = 0;
    std::uint32_t captured = 0;
    std::uint8_t setup[8] = {};
    std::uint32_t interval = 0;
    std::uint32_t startFrame = 0;
    std::uint32_t flags = 0;
    std::uint32_t descriptors = 0;
};

UsbMonitor::UsbMonitor(std::FILE* file)
    : pcap_(pcap_open_dead(DLT_USB_LINUX_MMAPPED, kSnapshot)),
      dumper_(pcap_dump_fopen(static_cast<pcap_t*>(pcap_), file))
{
    static_assert(sizeof(Event) == 64);
    if (dumper_ == nullptr) {
        throw std::runtime_error(pcap_geterr(static_cast<pcap_t*>(pcap_)));
    }
}

UsbMonitor::~UsbMonitor()
{
    pcap_dump_close(static_cast<pcap_dumper_t*>(dumper_));
    pcap_close(static_cast<pcap_t*>(pcap_));
}

void UsbMonitor::write(const Event& what, const Bytes* data)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    Event event = what;
    event.seconds = now.tv_sec;
    event.microseconds = static_cast<std::int32_t>(now.tv_usec);
    event.captured = data != nullptr ? static_cast<std::uint32_t>(data->size()) : 0;
    Bytes packet(sizeof event);
    std::memcpy(packet.data(), &event, sizeof event);
    if (data != nullptr) {
        packet.insert(packet.end(), data->begin(), data->end());
    }
    pcap_pkthdr header{};
    header.ts = now;
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    pcap_dump(static_cast<u_char*>(dumper_), &header, packet.data());
}

void UsbMonitor::submitted(unsigned device, Urb& urb)
{
    urb.number = ++lastNumber_;
    Event event;
    event.id = urb.number;
    event.endpoint = urb.endpoint;
    event.device = static_cast<std::uint8_t>(device);
    event.dataFlag = isIn(urb.endpoint) ? '<' : '\0';
    event.length = static_cast<std::uint32_t>(urb.length);
    write(event, isIn(urb.endpoint) ? nullptr : &urb.data);
}

void UsbMonitor::completed(unsigned device, const Urb& urb)
{
    const bool hasData = isIn(urb.endpoint) && !urb.data.empty();
    Event event;
    event.id = urb.number;
    event.type = 'C';
    event.endpoint = urb.endpoint;
    event.device = static_cast<std::uint8_t>(device);
    event.dataFlag = isIn(urb.endpoint) ? (hasData ? '\0' : '<') : '>';
    event.status = urb.status;
    event.length = static_cast<std::uint32_t>(urb.actual);
    write(event, hasData ? &urb.data : nullptr);
}

void UsbMonitor::control(unsigned device, const ControlRequest& request, const Bytes& answer,
                         int error)
{
    Event event;
    event.id = ++lastNumber_;
    event.transferType = kControl;
    event.endpoint = request.requestType & kIn;
    event.device = static_cast<std::uint8_t>(device);
    event.setupFlag = 0;
    event.dataFlag = '<';
    event.length = request.length;
    event.setup[0] = request.requestType;
    event.setup[1] = request.request;
    putLe16(event.setup + 2, request.value);
    putLe16(event.setup + 4, request.index);
    putLe16(event.setup + 6, request.length);
    write(event, nullptr);

    Bytes data = answer;
    data.resize(std::min<std::size_t>(data.size(), request.length));
    event.type = 'C';
    event.setupFlag = '-';
    event.dataFlag = error == 0 ? '\0' : '<';
    event.status = -error;
    event.length = static_cast<std::uint32_t>(data.size());
    std::fill(std::begin(event.setup), std::end(event.setup), std::uint8_t{0});
    write(event, error == 0 ? &data : nullptr);
}

}  // namespace scansim
