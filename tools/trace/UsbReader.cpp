// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbReader.h"

#include "Filling.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>

#include <pcap/dlt.h>

namespace trace {

namespace {

constexpr std::size_t kHeader = 48;
constexpr std::size_t kMappedHeader = 64;
constexpr std::uint8_t kControl = 2;
constexpr std::uint8_t kBulk = 3;
constexpr std::uint8_t kIn = 0x80;

// One line of usbmon. libpcap gives the fields in the byte order of this machine.
struct Event {
    std::uint64_t id = 0;
    char type = 0;  // S: submitted, C: complete, E: could not be submitted
    std::uint8_t transferType = 0;
    std::uint8_t endpoint = 0;
    std::uint8_t device = 0;
    std::uint16_t bus = 0;
    bool hasSetup = false;
    std::int32_t status = 0;
    std::uint32_t length = 0;  // of the transfer
    ByteView setup;
    ByteView data;

    bool isIn() const { return (endpoint & kIn) != 0; }
};

template <class Value>
Value valueAt(ByteView bytes, std::size_t offset)
{
    Value value{};
    std::memcpy(&value, bytes.begin() + offset, sizeof value);
    return value;
}

std::optional<Event> readEvent(int linkType, ByteView bytes)
{
    const std::size_t headerSize = linkType == DLT_USB_LINUX ? kHeader : kMappedHeader;
    if (!bytes.has(0, headerSize)) {
        return std::nullopt;
    }
    Event event;
    event.id = valueAt<std::uint64_t>(bytes, 0);
    event.type = static_cast<char>(bytes[8]);
    event.transferType = bytes[9];
    event.endpoint = bytes[10];
    event.device = bytes[11];
    event.bus = valueAt<std::uint16_t>(bytes, 12);
    event.hasSetup = bytes[14] == 0;
    event.status = valueAt<std::int32_t>(bytes, 28);
    event.length = valueAt<std::uint32_t>(bytes, 32);
    event.setup = bytes.part(40, 8);
    event.data = bytes.from(headerSize).first(valueAt<std::uint32_t>(bytes, 36));
    return event;
}

std::string errorText(std::int64_t status)
{
    switch (-status) {
    case EPIPE:
        return "stalled";
    case ENOENT:
    case ECONNRESET:
        return "given up by the host";
    case ESHUTDOWN:
    case ENODEV:
        return "the device is gone";
    default:
        return "failed with error " + std::to_string(-status);
    }
}

std::string endpointText(std::uint8_t endpoint)
{
    return "endpoint " + std::to_string(endpoint & 0x7F) + ((endpoint & kIn) != 0 ? " in" : " out");
}

// What device has said and heard.
class Device {
public:
    void add(std::uint64_t time, const Event& event, Filling& filling)
    {
        if (event.transferType == kControl) {
            control(time, event);
        } else if (event.transferType == kBulk) {
            bulk(time, event, filling);
        }
    }

    bool hasBulk() const { return hasBulk_; }
    std::vector<Transfer>& transfers() { return transfers_; }

private:
    void control(std::uint64_t time, const Event& event)
    {
        if (event.type == 'S' && event.hasSetup) {
            transfers_.push_back(Transfer::remark(time, "control " + describe(event.setup)));
        } else if (event.type != 'S' && event.status != 0) {
            transfers_.push_back(Transfer::remark(time, "control " + errorText(event.status)));
        }
    }

    static std::string describe(ByteView setup)
    {
        static const std::map<unsigned, const char*> requests = {
            {0x0100, "clear feature"},      {0x0500, "set address"},
            {0x8006, "get descriptor"},     {0x8008, "get configuration"},
            {0x0009, "set configuration"},  {0x010B, "set interface"},
            {0x0201, "clear halt"},         {0x8000, "get status"},
            {0xA100, "get device identity"}};
        const auto found = requests.find(static_cast<unsigned>(setup[0] << 8 | setup[1]));
        return std::string(found != requests.end() ? found->second : "request") + " " +
               hex(setup, 8);
    }

    void bulk(std::uint64_t time, const Event& event, Filling& filling)
    {
        hasBulk_ = true;
        const bool isFailure = event.type == 'E' || (event.type == 'C' && event.status != 0);
        if (isFailure) {
            transfers_.push_back(Transfer::oddity(
                time,
                "transfer on " + endpointText(event.endpoint) + " " + errorText(event.status)));
        }
        // Bytes go out as they are submitted, and have come in when the transfer is complete.
        const char carries = event.isIn() ? 'C' : 'S';
        if (event.type != carries || (isFailure && event.data.empty())) {
            return;
        }
        Transfer transfer =
            Transfer::data(event.isIn() ? Party::Scanner : Party::Host, time, event.data.copy());
        constexpr std::size_t kLongest = 1 << 20;
        const std::size_t size = std::min<std::size_t>(event.length, kLongest);
        filling.fill(transfer.bytes, size);
        transfers_.push_back(std::move(transfer));
    }

    std::vector<Transfer> transfers_;
    bool hasBulk_ = false;
};

}  // namespace

bool isUsbRecording(const PacketFile& file)
{
    return file.linkType() == DLT_USB_LINUX || file.linkType() == DLT_USB_LINUX_MMAPPED;
}

std::vector<Conversation> readUsb(PacketFile& file)
{
    std::map<std::pair<unsigned, unsigned>, Device> devices;
    Filling filling;
    const std::string error = file.forEach([&](const CapturedPacket& packet) {
        if (const auto event = readEvent(file.linkType(), packet.bytes)) {
            devices[{event->bus, event->device}].add(packet.time, *event, filling);
        }
    });
    std::vector<Conversation> result;
    for (auto& [place, device] : devices) {
        if (!device.hasBulk()) {
            continue;
        }
        result.push_back({"USB device " + std::to_string(place.second) + " on bus " +
                              std::to_string(place.first),
                          Transport::Usb, true, std::move(device.transfers())});
        if (!error.empty()) {
            result.back().addOddity("the recording breaks off: " + error);
        }
    }
    return result;
}

}  // namespace trace
