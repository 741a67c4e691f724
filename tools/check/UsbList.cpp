// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbList.h"

#include "IOComm.h"
#include "NameList.h"
#include "SaneConfReader.h"
#include "Text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <usb.h>

namespace check {

namespace {

namespace fs = std::filesystem;

constexpr int kHubClass = 9;
constexpr const char* kSystemFolder = "/dev/bus/usb";
constexpr const char* kUnnamed = "Unknown Scanner";  // of the backend
constexpr const char* kSysFolder = "/sys/bus/usb/devices";

bool isNumber(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<std::string> numberedIn(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename();
        if (isNumber(name)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Where libusb finds the device files: the first folder with something in it.
std::string usbFolder()
{
    const char* given = getenv("USB_DEVFS_PATH");
    const std::array<std::string, 3> folders = {given != nullptr ? given : "", kSystemFolder,
                                                "/proc/bus/usb"};
    for (const std::string& folder : folders) {
        if (!folder.empty() && !numberedIn(folder).empty()) {
            return folder;
        }
    }
    return "";
}

bool isMember(gid_t group)
{
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    getgroups(static_cast<int>(groups.size()), groups.data());
    return getegid() == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::string groupName(gid_t id)
{
    const group* entry = getgrgid(id);
    return entry != nullptr ? entry->gr_name : std::to_string(id);
}

void lookAtFile(UsbDevice& device)
{
    struct stat info {};
    if (stat(device.path.c_str(), &info) == 0) {
        device.owner = userName(info.st_uid);
        device.group = groupName(info.st_gid);
        device.mode = info.st_mode & 07777;
        device.isInGroup = isMember(info.st_gid);
    }
    const int fd = open(device.path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    device.isWritable = fd >= 0;
    if (fd >= 0) {
        close(fd);
    }
    device.holders = fileHolders(device.path);
}

std::string driverOf(struct usb_device* device)
{
    usb_dev_handle* handle = usb_open(device);
    if (handle == nullptr) {
        return "";
    }
    std::string driver;
    const int interfaces = device->config != nullptr ? device->config[0].bNumInterfaces : 0;
    for (int i = 0; i < interfaces && driver.empty(); ++i) {
        char name[256] = "";
        if (usb_get_driver_np(handle, i, name, sizeof name - 1) == 0) {
            driver = name;
        }
    }
    usb_close(handle);
    return driver;
}

UsbDevice describe(const usb_bus& bus, struct usb_device& found, const std::string& folder)
{
    UsbDevice device;
    device.bus = bus.dirname;
    device.file = found.filename;
    device.path = folder + "/" + device.bus + "/" + device.file;
    device.vendor = found.descriptor.idVendor;
    device.product = found.descriptor.idProduct;
    device.isHub = found.descriptor.bDeviceClass == kHubClass;
    if (!device.isHub) {
        lookAtFile(device);
        device.driver = driverOf(&found);
    }
    return device;
}

// The names that the backend gives to these devices, were all of them in its configuration.
void askBackend(IOComm& transport, std::vector<UsbDevice>& devices)
{
    SaneConfReader everything;
    for (const UsbDevice& device : devices) {
        if (!device.isHub) {
            everything.Add(static_cast<int>(device.vendor), static_cast<int>(device.product), "/",
                           "");
        }
    }
    NameList names;
    transport.getScanners(&names.names, &names.count, &everything);
    for (int i = 0; i < names.count; ++i) {
        const std::string name = names.names[i];
        const std::size_t product = name.find('/');
        const std::size_t address = name.rfind("/libusb:");
        for (UsbDevice& device : devices) {
            if (name.substr(address) == "/libusb:" + device.bus + ":" + device.file) {
                device.isUsable = true;
                device.vendorName = name.substr(0, product);
                device.productName = name.substr(product + 1, address - product - 1);
            }
        }
    }
}

unsigned sysNumber(const fs::path& file, int base)
{
    std::ifstream in(file);
    std::string text;
    std::getline(in, text);
    return static_cast<unsigned>(strtoul(text.c_str(), nullptr, base));
}

// The IDs from the kernel, where the device file cannot be read at all.
void askKernel(UsbDevice& device)
{
    std::error_code error;
    for (fs::directory_iterator it(kSysFolder, error), end; !error && it != end;
         it.increment(error)) {
        const fs::path folder = it->path();
        if (sysNumber(folder / "busnum", 10) == strtoul(device.bus.c_str(), nullptr, 10) &&
            sysNumber(folder / "devnum", 10) == strtoul(device.file.c_str(), nullptr, 10)) {
            device.vendor = sysNumber(folder / "idVendor", 16);
            device.product = sysNumber(folder / "idProduct", 16);
            device.isHub = sysNumber(folder / "bDeviceClass", 16) == kHubClass;
            device.hasIds = true;
        }
    }
}

// Device files that libusb passes over, since it may not even read them.
void addUnreadable(const std::string& folder, std::vector<UsbDevice>& devices)
{
    for (const std::string& bus : numberedIn(folder)) {
        for (const std::string& file : numberedIn(folder + "/" + bus)) {
            const bool isKnown = std::any_of(
                devices.begin(), devices.end(),
                [&](const UsbDevice& device) { return device.bus == bus && device.file == file; });
            UsbDevice device;
            device.bus = bus;
            device.file = file;
            device.path = folder + "/" + bus + "/" + file;
            device.hasIds = false;
            if (isKnown || access(device.path.c_str(), R_OK) == 0) {
                continue;
            }
            if (folder == kSystemFolder) {
                askKernel(device);
            }
            lookAtFile(device);
            devices.push_back(device);
        }
    }
}

}  // namespace

std::string UsbDevice::place() const
{
    return "usb " + bus + ":" + file;
}

std::string UsbDevice::ids() const
{
    return hasIds ? hexId(vendor) + ":" + hexId(product) : "unknown IDs";
}

std::string UsbDevice::name() const
{
    return productName.empty() || productName == kUnnamed ? "" : vendorName + " " + productName;
}

std::vector<UsbDevice> listUsbDevices()
{
    std::vector<UsbDevice> devices;
    const std::string folder = usbFolder();
    IOComm transport;
    for (usb_bus* bus = usb_get_busses(); bus != nullptr; bus = bus->next) {
        for (struct usb_device* device = bus->devices; device != nullptr; device = device->next) {
            devices.push_back(describe(*bus, *device, folder));
        }
    }
    askBackend(transport, devices);
    addUnreadable(folder, devices);
    return devices;
}

}  // namespace check
