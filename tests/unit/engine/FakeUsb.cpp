// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FakeUsb.h"

#include "Allocations.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

struct usb_dev_handle {
    struct usb_device* device;
    FakeDevice spec;
};

struct usb_bus* usb_busses = nullptr;

FakeUsb* FakeUsb::current = nullptr;

// A device as libusb describes it, with everything that the description points at.
struct FakeUsb::Record {
    explicit Record(const FakeDevice& given) : spec(given)
    {
        std::snprintf(device.filename, sizeof device.filename, "%s", spec.file.c_str());
        device.descriptor.bDeviceClass = static_cast<uint8_t>(spec.deviceClass);
        device.descriptor.idVendor = static_cast<uint16_t>(spec.vid);
        device.descriptor.idProduct = static_cast<uint16_t>(spec.pid);
        device.descriptor.iManufacturer = static_cast<uint8_t>(spec.manufacturerIndex);
        device.descriptor.iProduct = static_cast<uint8_t>(spec.productIndex);
        if (!spec.hasConfiguration) {
            return;
        }
        endpoints.resize(spec.interfaces.size());
        alternates.resize(spec.interfaces.size());
        interfaces.resize(spec.interfaces.size());
        for (std::size_t i = 0; i < spec.interfaces.size(); i++) {
            describe(i);
        }
        config.bNumInterfaces = static_cast<uint8_t>(interfaces.size());
        config.bConfigurationValue = static_cast<uint8_t>(spec.configurationValue);
        config.interface = interfaces.data();
        device.descriptor.bNumConfigurations = 1;
        device.config = &config;
    }

    void describe(std::size_t i)
    {
        const FakeInterface& given = spec.interfaces[i];
        for (const int address : given.endpoints) {
            usb_endpoint_descriptor endpoint = {};
            endpoint.bEndpointAddress = static_cast<uint8_t>(address);
            endpoint.bmAttributes = USB_ENDPOINT_TYPE_BULK;
            endpoints[i].push_back(endpoint);
        }
        alternates[i].bInterfaceNumber = static_cast<uint8_t>(i);
        alternates[i].bInterfaceClass = static_cast<uint8_t>(given.interfaceClass);
        alternates[i].bNumEndpoints = static_cast<uint8_t>(endpoints[i].size());
        alternates[i].endpoint = endpoints[i].data();
        if (given.hasAlternate) {
            interfaces[i].altsetting = &alternates[i];
            interfaces[i].num_altsetting = 1;
        }
    }

    FakeDevice spec;
    struct usb_device device = {};
    usb_config_descriptor config = {};
    std::vector<std::vector<usb_endpoint_descriptor>> endpoints;
    std::vector<usb_interface_descriptor> alternates;
    std::vector<usb_interface> interfaces;
};

FakeUsb::FakeUsb(const std::vector<FakeDevice>& devices)
{
    current = this;
    for (const FakeDevice& device : devices) {
        add(device);
    }
}

FakeUsb::~FakeUsb()
{
    current = nullptr;
    usb_busses = nullptr;
}

void FakeUsb::add(const FakeDevice& device)
{
    attached_.push_back(device);
    isChanged_ = true;
}

void FakeUsb::unplugAll()
{
    attached_.clear();
    isChanged_ = true;
}

void FakeUsb::search()
{
    const Allocations::Pause pause;
    if (!isChanged_) {
        return;
    }
    isChanged_ = false;
    records_.clear();
    busses_.clear();
    for (const FakeDevice& spec : attached_) {
        records_.push_back(std::make_unique<Record>(spec));
        struct usb_device& device = records_.back()->device;
        usb_bus* bus = nullptr;
        for (const auto& known : busses_) {
            if (known->dirname == spec.bus) {
                bus = known.get();
            }
        }
        if (bus == nullptr) {
            busses_.push_back(std::make_unique<usb_bus>());
            bus = busses_.back().get();
            std::snprintf(bus->dirname, sizeof bus->dirname, "%s", spec.bus.c_str());
            if (busses_.size() > 1) {
                (*(busses_.end() - 2))->next = bus;
            }
        }
        struct usb_device** slot = &bus->devices;
        while (*slot != nullptr) {
            slot = &(*slot)->next;
        }
        *slot = &device;
        device.bus = bus;
    }
    usb_busses = busses_.empty() ? nullptr : busses_.front().get();
}

void FakeUsb::fail(const std::string& call, int result, int error)
{
    failures_[call].push_back({result, error});
}

int FakeUsb::result(const std::string& call)
{
    const Allocations::Pause pause;
    auto& queue = failures_[call];
    if (queue.empty()) {
        return 0;
    }
    const auto [value, error] = queue.front();
    queue.pop_front();
    if (error != 0) {
        errno = error;
    }
    return value;
}

int FakeUsb::read(char* bytes, int size)
{
    const Allocations::Pause pause;
    if (onBulkRead) {
        onBulkRead();
    }
    if (reads_.empty()) {
        return 0;
    }
    Read next = reads_.front();
    reads_.pop_front();
    if (next.result <= 0) {
        return next.result;
    }
    const int given = next.result < size ? next.result : size;
    std::memcpy(bytes, next.block.data(), static_cast<std::size_t>(given));
    return given;
}

const FakeDevice& FakeUsb::specOf(const struct usb_device* device) const
{
    static const FakeDevice none;
    for (const auto& record : records_) {
        if (&record->device == device) {
            return record->spec;
        }
    }
    return none;
}

std::vector<std::string> FakeUsb::callsOf(const std::string& name) const
{
    std::vector<std::string> found;
    for (const std::string& call : calls) {
        if (call.substr(0, call.find(' ')) == name) {
            found.push_back(call);
        }
    }
    return found;
}

namespace {

// Records a call; the arguments are written in hexadecimal where they are addresses.
template <typename... Arguments>
FakeUsb& record(const char* format, Arguments... arguments)
{
    const Allocations::Pause pause;
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    FakeUsb::current->calls.emplace_back(text);
    return *FakeUsb::current;
}

}  // namespace

extern "C" {

void usb_init(void)
{
    record("%s", "init");
}

int usb_find_busses(void)
{
    record("%s", "find_busses");
    return 0;
}

int usb_find_devices(void)
{
    record("%s", "find_devices").search();
    return 0;
}

struct usb_bus* usb_get_busses(void)
{
    return usb_busses;
}

usb_dev_handle* usb_open(struct usb_device* device)
{
    const Allocations::Pause pause;
    FakeUsb& usb = record("open %.100s", device->filename);
    if (usb.result("open") != 0) {
        return nullptr;
    }
    usb.openHandles++;
    return new usb_dev_handle{device, usb.specOf(device)};
}

// As in the real one, the handle is gone even if closing fails.
int usb_close(usb_dev_handle* handle)
{
    FakeUsb& usb = record("%s", "close");
    delete handle;
    usb.openHandles--;
    return usb.result("close");
}

int usb_set_configuration(usb_dev_handle*, int configuration)
{
    return record("set_configuration %d", configuration).result("set_configuration");
}

int usb_claim_interface(usb_dev_handle*, int interface)
{
    return record("claim %d", interface).result("claim");
}

int usb_release_interface(usb_dev_handle*, int interface)
{
    return record("release %d", interface).result("release");
}

int usb_detach_kernel_driver_np(usb_dev_handle*, int interface)
{
    return record("detach %d", interface).result("detach");
}

int usb_bulk_write(usb_dev_handle*, int endpoint, const char* bytes, int size, int timeout)
{
    const Allocations::Pause pause;
    FakeUsb& usb = record("write %02X %d", static_cast<unsigned>(endpoint), size);
    usb.timeout = timeout;
    usb.lastWritten.assign(bytes, bytes + size);
    const int failure = usb.result("write");
    return failure != 0 ? failure : size;
}

int usb_bulk_read(usb_dev_handle*, int endpoint, char* bytes, int size, int timeout)
{
    FakeUsb& usb = record("read %02X %d", static_cast<unsigned>(endpoint), size);
    usb.timeout = timeout;
    return usb.read(bytes, size);
}

int usb_get_string_simple(usb_dev_handle* handle, int index, char* buffer, size_t size)
{
    FakeUsb& usb = record("string %d %zu", index, size);
    const int failure = usb.result("string");
    const auto text = handle->spec.strings.find(index);
    if (failure != 0 || text == handle->spec.strings.end() || size == 0) {
        return -1;
    }
    std::snprintf(buffer, size, "%s", text->second.c_str());
    return static_cast<int>(std::strlen(buffer));
}

char* usb_strerror(void)
{
    static char text[] = "fake error";
    return text;
}

}  // extern "C"
