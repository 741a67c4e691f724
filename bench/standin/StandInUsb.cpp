// SPDX-License-Identifier: LGPL-2.1-or-later
// The part of libusb 0.1 that the backend calls, with one scanner at bus 001, device 002.
#include "StandInUsb.h"

#include <cerrno>
#include <cstdio>

#include <usb.h>

#define STANDIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

struct Bus {
    usb_bus bus = {};
    struct usb_device device = {};
    usb_config_descriptor configuration = {};
    usb_interface interface = {};
    usb_interface_descriptor setting = {};
    usb_endpoint_descriptor endpoints[2] = {};
};

Bus& theBus()
{
    static Bus bus;
    return bus;
}

void attach(const standin::UsbScanner& scanner)
{
    constexpr unsigned char kVendorClass = 255;
    Bus& b = theBus();
    b.endpoints[0].bEndpointAddress = 0x02;
    b.endpoints[1].bEndpointAddress = 0x81;
    b.setting.bInterfaceClass = kVendorClass;
    b.setting.bNumEndpoints = 2;
    b.setting.endpoint = b.endpoints;
    b.interface.altsetting = &b.setting;
    b.interface.num_altsetting = 1;
    b.configuration.bNumInterfaces = 1;
    b.configuration.bConfigurationValue = 1;
    b.configuration.interface = &b.interface;
    b.device.descriptor.bDeviceClass = kVendorClass;
    b.device.descriptor.idVendor = static_cast<unsigned short>(scanner.vendorId());
    b.device.descriptor.idProduct = static_cast<unsigned short>(scanner.productId());
    b.device.config = &b.configuration;
    std::snprintf(b.device.filename, sizeof b.device.filename, "002");
    std::snprintf(b.bus.dirname, sizeof b.bus.dirname, "001");
    b.device.bus = &b.bus;
    b.bus.devices = &b.device;
}

}  // namespace

STANDIN_EXPORT void usb_init() {}

STANDIN_EXPORT int usb_find_busses()
{
    return 0;
}

STANDIN_EXPORT int usb_find_devices()
{
    return 0;
}

STANDIN_EXPORT struct usb_bus* usb_get_busses()
{
    const standin::UsbScanner* scanner = standin::attachedScanner();
    if (scanner == nullptr) {
        return nullptr;
    }
    attach(*scanner);
    return &theBus().bus;
}

STANDIN_EXPORT usb_dev_handle* usb_open(struct usb_device* device)
{
    return reinterpret_cast<usb_dev_handle*>(device);
}

STANDIN_EXPORT int usb_close(usb_dev_handle*)
{
    return 0;
}

STANDIN_EXPORT int usb_set_configuration(usb_dev_handle*, int)
{
    return 0;
}

STANDIN_EXPORT int usb_claim_interface(usb_dev_handle*, int)
{
    return 0;
}

STANDIN_EXPORT int usb_release_interface(usb_dev_handle*, int)
{
    return 0;
}

STANDIN_EXPORT int usb_detach_kernel_driver_np(usb_dev_handle*, int)
{
    return -ENODATA;
}

STANDIN_EXPORT int usb_get_string_simple(usb_dev_handle*, int, char* text, size_t size)
{
    return std::snprintf(text, size, "Stand-in");
}

STANDIN_EXPORT char* usb_strerror()
{
    static char none[] = "no error";
    return none;
}

STANDIN_EXPORT int usb_bulk_write(usb_dev_handle*, int, const char* bytes, int size, int)
{
    standin::attachedScanner()->write(reinterpret_cast<const unsigned char*>(bytes), size);
    return size;
}

STANDIN_EXPORT int usb_bulk_read(usb_dev_handle*, int, char* bytes, int size, int)
{
    return standin::attachedScanner()->read(reinterpret_cast<unsigned char*>(bytes), size);
}
