// SPDX-License-Identifier: LGPL-2.1-or-later
// Talks to a simulated scanner as the backend does, through the genuine libusb 0.1, and prints
// what every call gives. Run as "usb_probe STEP..."; the steps are below.

#include "ProbeSteps.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <usb.h>

namespace {

constexpr int kIn = 0x81;
constexpr int kOut = 0x02;

usb_dev_handle* handle = nullptr;
usb_dev_handle* earlierHandle = nullptr;  // one that a second open leaves open
struct usb_device* device = nullptr;
int timeoutMs = 2000;

void print(const char* what, int result)
{
    std::printf("%s %d\n", what, result);
}

void find()
{
    usb_init();
    usb_find_busses();
    usb_find_devices();
    int count = 0;
    device = nullptr;
    for (struct usb_bus* bus = usb_get_busses(); bus != nullptr; bus = bus->next) {
        for (struct usb_device* each = bus->devices; each != nullptr; each = each->next) {
            std::printf("device %s/%s %04x:%04x class %d configurations %d interfaces %d\n",
                        bus->dirname, each->filename, each->descriptor.idVendor,
                        each->descriptor.idProduct, each->descriptor.bDeviceClass,
                        each->descriptor.bNumConfigurations,
                        each->config != nullptr ? each->config->bNumInterfaces : -1);
            device = device == nullptr ? each : device;
            ++count;
        }
    }
    print("found", count);
}

void printString(int index)
{
    char text[100] = "";
    const int size = usb_get_string_simple(handle, index, text, sizeof text);
    std::printf("string %d %s\n", size, size > 0 ? text : "-");
}

void strings()
{
    std::printf("indices %d %d\n", device->descriptor.iManufacturer, device->descriptor.iProduct);
    printString(1);
    printString(2);
}

// The plain eight-byte commands, and those of a 300 dpi colour scan of 600 x 20 pixels.
void writeCommand(const std::string& name)
{
    const std::map<std::string, std::vector<std::uint8_t>> commands = {
        {"cancel", {0x1B, 0x53, 0x0F, 0, 0, 0, 0, 0}},
        {"properties", {0x1B, 0x53, 0x03, 0, 0, 0, 0x80, 0}},
        {"lock", {0x1B, 0x53, 0x05, 0, 0x18, 0, 0x80, 0, 3, 0, 0, 3, 0x58, 2, 0,    0,
                  20,   0,    0,    0, 0,    0, 0,    0, 0, 0, 0, 0, 0x2C, 1, 0x2C, 1}},
        {"start", {0x1B, 0x53, 0x01, 0, 0x18, 0, 0x80, 0, 3, 0, 0, 3, 0x58, 2, 0,    0,
                   20,   0,    0,    0, 0,    0, 0,    0, 0, 0, 0, 0, 0x2C, 1, 0x2C, 1}},
        {"big", {0x1B, 0x53, 0x01, 0, 0x18, 0, 0x80, 0, 3, 0, 0, 3, 0xEC, 0x13, 0,    0,
                 0x60, 0x1B, 0,    0, 0,    0, 0,    0, 0, 0, 0, 0, 0x58, 2,    0x58, 2}},
        {"unlock", {0x1B, 0x53, 0x06, 0, 0, 0, 0x80, 0}},
    };
    std::vector<std::uint8_t> bytes = commands.at(name == "biglock" ? "big" : name);
    if (name == "biglock") {
        bytes[2] = 0x05;
    }
    print("write", usb_bulk_write(handle, kOut, reinterpret_cast<char*>(bytes.data()),
                                  static_cast<int>(bytes.size()), timeoutMs));
}

void readOnce(int size)
{
    std::vector<char> buffer(static_cast<std::size_t>(size));
    const int count = usb_bulk_read(handle, kIn, buffer.data(), size, timeoutMs);
    std::printf("read %d", count);
    for (int i = 0; i < count && i < 12; ++i) {
        std::printf(" %02X", static_cast<unsigned char>(buffer[static_cast<std::size_t>(i)]));
    }
    std::printf("\n");
}

bool isScanRecord(const std::vector<char>& data, int count)
{
    return count >= 9 && data[0] == 0x1B && data[1] == 0x53 && data[2] == 0x02 && data[8] != 0;
}

bool isPageMarker(const std::vector<char>& data)
{
    return data[8] == 9;
}

// Reads until a scan record other than the page marker; prints the total and the speed.
void readPage(int size)
{
    std::vector<char> buffer(static_cast<std::size_t>(size));
    timeval begin;
    timeval end;
    gettimeofday(&begin, nullptr);
    long total = 0;
    long reads = 0;
    for (;;) {
        const int count = usb_bulk_read(handle, kIn, buffer.data(), size, timeoutMs);
        if (count <= 0 || (isScanRecord(buffer, count) && !isPageMarker(buffer))) {
            std::printf("page %ld last %d record %d\n", total, count, count > 8 ? buffer[8] : -1);
            break;
        }
        total += count;
        ++reads;
    }
    gettimeofday(&end, nullptr);
    const double seconds = static_cast<double>(end.tv_sec - begin.tv_sec) +
                           static_cast<double>(end.tv_usec - begin.tv_usec) / 1e6;
    std::fprintf(stderr, "%ld reads, %.3f s, %.1f MB/s\n", reads, seconds,
                 static_cast<double>(total) / 1e6 / seconds);
}

void step(const std::string& name, const std::string& argument)
{
    if (name == "find") {
        find();
    } else if (name == "open") {
        earlierHandle = handle;
        handle = usb_open(device);
        print("open", handle != nullptr ? 1 : 0);
    } else if (name == "strings") {
        strings();
    } else if (name == "configure") {
        print("configure", usb_set_configuration(handle, 1));
    } else if (name == "claim") {
        print("claim", usb_claim_interface(handle, 0));
    } else if (name == "detach") {
        print("detach", usb_detach_kernel_driver_np(handle, 0));
    } else if (name == "release") {
        print("release", usb_release_interface(handle, 0));
    } else if (name == "close") {
        print("close", usb_close(handle));
        handle = nullptr;
    } else if (name == "write") {
        writeCommand(argument);
    } else if (name == "read") {
        readOnce(std::atoi(argument.c_str()));
    } else if (name == "page") {
        readPage(std::atoi(argument.c_str()));
    } else if (name == "timeout") {
        timeoutMs = std::atoi(argument.c_str());
    } else if (name == "control") {
        print("control", probe::control(argument));
    } else {
        probe::unknown(name);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    return probe::run(argc, argv, step);
}
