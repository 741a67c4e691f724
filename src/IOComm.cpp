// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IOComm.h"

#include "CResponse.h"
#include "CancelToken.h"
#include "ICommand.h"
#include "ImageData.h"
#include "NameList.h"
#include "SaneConfReader.h"
#include "ScanRecord.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <dlfcn.h>
#include <usb.h>

namespace {

constexpr int kTimeoutMs = 30000;
constexpr int kReplySize = 512;
constexpr int kImageBlockSize = 4096;
constexpr int kHeaderDumpSize = 20;
constexpr int kReplyAttempts = 30000;
// A device that has not sent a byte for this long does not answer any more.
constexpr std::chrono::seconds kReplySilence{120};

constexpr int kNameSize = 255;
constexpr int kStringSize = 100;
constexpr int kNoVendorString = 96;
constexpr int kNoProductString = 97;
constexpr const char* kUnknownVendor = "Unknown Vendor";
constexpr const char* kUnknownProduct = "Unknown Scanner";

constexpr int kClassPerInterface = 0;
constexpr int kClassScanner = 0x10;
constexpr int kClassVendor = 255;
constexpr int kDirectionIn = 0x80;

bool isScannerInterface(const struct usb_device& device, const usb_interface& interface)
{
    if (device.descriptor.bDeviceClass == kClassVendor) {
        return true;
    }
    if (device.descriptor.bDeviceClass != kClassPerInterface || interface.num_altsetting < 1 ||
        interface.altsetting == nullptr) {
        return false;
    }
    const int interfaceClass = interface.altsetting[0].bInterfaceClass;
    return interfaceClass == kClassScanner || interfaceClass == kClassVendor || interfaceClass == 0;
}

int interfaceCount(const usb_config_descriptor& config)
{
    return config.interface != nullptr ? config.bNumInterfaces : 0;
}

// Calls visit(bus, device) for every interface of a configured scanner.
template <typename Visitor>
void forEachScanner(usb_bus* first, SaneConfReader* conf, Visitor visit)
{
    for (usb_bus* bus = first; bus != nullptr; bus = bus->next) {
        for (struct usb_device* device = bus->devices; device != nullptr; device = device->next) {
            const usb_device_descriptor& ids = device->descriptor;
            if (device->config == nullptr || conf == nullptr ||
                !conf->isFound(ids.idVendor, ids.idProduct)) {
                continue;
            }
            for (int i = 0; i < interfaceCount(device->config[0]); ++i) {
                if (isScannerInterface(*device, device->config[0].interface[i])) {
                    visit(*bus, *device);
                }
            }
        }
    }
}

// A string descriptor, or the given text where there is none. Front ends split device
// names at "/" and take an empty field for none, so neither may come from the device.
void readString(usb_dev_handle* handle, int index, char (&text)[kStringSize], const char* unknown)
{
    snprintf(text, sizeof text, "%s", unknown);
    if (handle == nullptr || index == 0) {
        return;
    }
    char received[kStringSize] = "";
    if (usb_get_string_simple(handle, index, received, sizeof received) < 0 ||
        received[0] == '\0') {
        return;
    }
    received[sizeof received - 1] = '\0';
    std::replace(received, received + strlen(received), '/', '-');
    memcpy(text, received, sizeof text);
}

char* newDeviceName(usb_bus& bus, struct usb_device& device)
{
    char vendor[kStringSize];
    char product[kStringSize];
    usb_dev_handle* handle = usb_open(&device);
    readString(handle, device.descriptor.iManufacturer, vendor, kUnknownVendor);
    readString(handle, device.descriptor.iProduct, product, kUnknownProduct);
    if (handle != nullptr) {
        usb_close(handle);
    }
    const std::string full =
        std::string(vendor) + "/" + product + "/libusb:" + bus.dirname + ":" + device.filename;
    char* name = static_cast<char*>(malloc(kNameSize));
    if (name != nullptr) {
        snprintf(name, kNameSize, "%s", full.c_str());
    }
    return name;
}

// libusb frees none of its lists when it is unloaded, so that every round of sane_init and
// sane_exit would lose them. Loaded once, it stays.
void keepLibusbLoaded()
{
    Dl_info libusb;
    void* handle = dladdr(reinterpret_cast<void*>(&usb_init), &libusb) != 0
                       ? dlopen(libusb.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE)
                       : nullptr;
    if (handle != nullptr) {
        dlclose(handle);
    }
}

}  // namespace

IOComm::IOComm()
{
    SL_START();
    keepLibusbLoaded();
    usb_init();
    usb_find_busses();
    usb_find_devices();
    busses = usb_get_busses();
    SL_END();
}

IOComm::~IOComm()
{
    if (iOpen == 1) {
        usb_release_interface(usbHandle, iIfaceNum);
        usb_close(usbHandle);
    }
}

int IOComm::getScanners(char*** list, int* count, void* conf)
{
    SL_START();
    SL_TRACE("%s -> retrieve attached scanners", __func__);
    SaneConfReader* models = static_cast<SaneConfReader*>(conf);
    int found = 0;
    forEachScanner(busses, models, [&found](usb_bus&, struct usb_device&) { ++found; });

    NameList names;
    if (!names.allocate(found)) {
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    int listed = 0;
    forEachScanner(busses, models, [&](usb_bus& bus, struct usb_device& device) {
        char* name = listed < found ? newDeviceName(bus, device) : nullptr;
        if (name != nullptr) {
            names.names[listed++] = name;
        }
    });
    if (listed < found) {
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    *count = listed;
    *list = names.release();
    SL_RETURN(TRANSPORT_OK);
}

int IOComm::setDevice(const char* name)
{
    SL_START();
    SL_TRACE("IO -> set device name = %s", name != nullptr ? name : "(null)");
    if (name == nullptr) {
        SL_RETURN(2);
    }
    pDeviceName = name;
    if (strstr(name, "libusb") != nullptr) {
        std::string fields = pDeviceName.substr(0, 256);
        char* rest = nullptr;
        strtok_r(fields.data(), ":", &rest);
        const char* bus = strtok_r(nullptr, ":", &rest);
        const char* device = bus != nullptr ? strtok_r(nullptr, ":", &rest) : nullptr;
        snprintf(cBus, sizeof cBus, "%s", bus != nullptr ? bus : "");
        snprintf(cDev, sizeof cDev, "%s", device != nullptr ? device : "");
    }
    SL_RETURN(0);
}

struct usb_device* IOComm::findDevice()
{
    // The head of libusb's list, not the one from construction: a search by another
    // object may have freed that one.
    busses = usb_get_busses();
    for (usb_bus* bus = busses; bus != nullptr; bus = bus->next) {
        if (strcmp(bus->dirname, cBus) != 0) {
            continue;
        }
        for (struct usb_device* device = bus->devices; device != nullptr; device = device->next) {
            if (strcmp(device->filename, cDev) == 0) {
                return device;
            }
        }
    }
    return nullptr;
}

void IOComm::chooseInterface(const usb_config_descriptor& config)
{
    const int count = interfaceCount(config);
    iIfaceNum = 0;
    while (iIfaceNum < count - 1 && !isScannerInterface(*usbDev, config.interface[iIfaceNum])) {
        ++iIfaceNum;
    }

    iEndPointIn = -1;
    iEndPointOut = -1;
    const usb_interface& chosen = config.interface[iIfaceNum];
    if (chosen.num_altsetting < 1 || chosen.altsetting == nullptr) {
        return;
    }
    const usb_interface_descriptor& setting = chosen.altsetting[0];
    const int endpoints = setting.endpoint != nullptr ? setting.bNumEndpoints : 0;
    for (int i = 0; i < endpoints; ++i) {
        const int address = setting.endpoint[i].bEndpointAddress;
        ((address & kDirectionIn) != 0 ? iEndPointIn : iEndPointOut) = address;
    }
}

// After a failed claim the kernel driver is detached once and the claim repeated.
int IOComm::claimInterface()
{
    int result = usb_claim_interface(usbHandle, iIfaceNum);
    if (result != -EBUSY) {
        return result;
    }
    result = usb_detach_kernel_driver_np(usbHandle, iIfaceNum);
    if (result != 0) {
        SL_TRACE(
            " -> unable to release kernel lock"
            "                                     on usb %s",
            usb_strerror());
        SL_TRACE("[ERROR] usb device %s:%s is in use", cBus, cDev);
        return result;
    }
    result = usb_claim_interface(usbHandle, iIfaceNum);
    if (result >= 0) {
        SL_TRACE(" -> usb interface claimed");
        return result;
    }
    SL_TRACE("[ERROR] usb device %s:%s is in use", cBus, cDev);
    usb_close(usbHandle);
    forgetHandle();
    return TRANSPORT_CLAIM_FAILED;
}

void IOComm::forgetHandle()
{
    usbDev = nullptr;
    usbHandle = nullptr;
    iOpen = 0;
}

int IOComm::openDevice()
{
    SL_START();
    SL_TRACE("%s -> open device", __func__);
    if (iOpen == 1) {
        SL_TRACE(" -> usb device opened");
        SL_RETURN(TRANSPORT_OK);
    }
    usbDev = findDevice();
    if (usbDev == nullptr) {
        SL_TRACE(
            " -> unable to open selected device, device maybe"
            "                     detached");
        SL_TRACE("[ERROR] no usb device %s:%s", cBus, cDev);
        SL_RETURN(TRANSPORT_NOT_FOUND);
    }
    iVid = usbDev->descriptor.idVendor;
    iPid = usbDev->descriptor.idProduct;
    iManufacturerIndex = usbDev->descriptor.iManufacturer;
    iProductIndex = usbDev->descriptor.iProduct;

    usbHandle = usb_open(usbDev);
    if (usbHandle == nullptr) {
        SL_TRACE(" -> device open failed");
        SL_TRACE("[ERROR] usb device %s:%s: %s", cBus, cDev, usb_strerror());
        SL_RETURN(TRANSPORT_OPEN_FAILED);
    }
    iOpen = 1;
    if (usbDev->config == nullptr || interfaceCount(usbDev->config[0]) < 1) {
        SL_RETURN(TRANSPORT_OK);
    }
    const usb_config_descriptor& config = usbDev->config[0];
    chooseInterface(config);

    errno = 0;
    if (usb_set_configuration(usbHandle, config.bConfigurationValue) < 0 && errno == EPERM) {
        SL_TRACE("[ERROR] no permission for usb device %s:%s", cBus, cDev);
        usb_close(usbHandle);
        forgetHandle();
        SL_RETURN(TRANSPORT_NO_PERMISSION);
    }
    SL_RETURN(claimInterface());
}

int IOComm::closeDevice()
{
    SL_START();
    SL_TRACE("%s -> closing device", __func__);
    if (iOpen != 1) {
        SL_RETURN(TRANSPORT_OK);
    }
    if (usb_release_interface(usbHandle, iIfaceNum) < 0) {
        SL_TRACE(" -> Unable to release interface %s interface num %d", usb_strerror(), iIfaceNum);
        SL_RETURN(TRANSPORT_RELEASE_FAILED);
    }
    const int result = usb_close(usbHandle);
    forgetHandle();  // libusb has freed it, whatever the result
    if (result < 0) {
        SL_TRACE(" -> unable to close device");
        SL_RETURN(TRANSPORT_CLOSE_FAILED);
    }
    SL_RETURN(TRANSPORT_OK);
}

int IOComm::Write(unsigned char* buf, int len)
{
    SL_START();
    if (iOpen != 1) {
        SL_TRACE(" -> device is closed, open first");
        SL_RETURN(TRANSPORT_CLOSED);
    }
    if (iEndPointOut == -1) {
        SL_TRACE(" -> endpoint invalid\n");
        SL_RETURN(TRANSPORT_NO_ENDPOINT);
    }
    SL_TRACE("writing data on USB");
    hex_dump(buf, len);
    const int written =
        usb_bulk_write(usbHandle, iEndPointOut, reinterpret_cast<char*>(buf), len, kTimeoutMs);
    if (written < 0) {
        SL_TRACE(" -> write error %d = %s\n", written, usb_strerror());
        SL_RETURN(TRANSPORT_WRITE_FAILED);
    }
    SL_RETURN(TRANSPORT_OK);
}

int IOComm::Read(unsigned char* buf, int* len)
{
    return Read(buf, len, debugEnabled());
}

int IOComm::Read(unsigned char* buf, int* len, bool isTracing)
{
    SL_START_IF(isTracing);
    SL_TRACE_IF(isTracing, "%s -> read device of %d bytes of data", __func__, *len);
    if (iOpen != 1) {
        SL_TRACE_IF(isTracing, " -> device is closed, open first");
        SL_RETURN_IF(isTracing, TRANSPORT_CLOSED);
    }
    if (iEndPointIn == -1) {
        SL_TRACE_IF(isTracing, " -> invalid read endpoint");
        SL_RETURN_IF(isTracing, TRANSPORT_NO_ENDPOINT);
    }
    const int received =
        usb_bulk_read(usbHandle, iEndPointIn, reinterpret_cast<char*>(buf), *len, kTimeoutMs);
    if (received > 0) {
        *len = received;
        SL_RETURN_IF(isTracing, TRANSPORT_OK);
    }
    SL_TRACE_IF(isTracing, " -> read error %d = %s\n", received, usb_strerror());
    *len = 0;
    SL_RETURN_IF(isTracing, TRANSPORT_READ_FAILED);
}

int IOComm::sendCommand(int cmdId)
{
    std::unique_ptr<unsigned char[]> bytes;
    int length = 0;
    if (pICmd->encode(cmdId, &bytes, &length) != 0) {
        SL_TRACE(" -> invalid command");
        return TRANSPORT_BAD_COMMAND;
    }
    if (debugEnabled()) {
        for (int i = 0; i < length; ++i) {
            SL_TRACE("%2X %d", static_cast<unsigned>(bytes[static_cast<size_t>(i)]), i);
        }
    }
    if (Write(bytes.get(), length) != TRANSPORT_OK) {
        SL_TRACE(" -> unable to write command");
        return TRANSPORT_WRITE_FAILED;
    }
    return TRANSPORT_OK;
}

// One attempt; returns the number of the command that was answered.
int IOComm::readReply(CResponse* reply)
{
    unsigned char block[kReplySize] = {};
    int size = sizeof block;
    if (Read(block, &size) != TRANSPORT_OK) {
        return TRANSPORT_READ_FAILED;
    }
    if (debugEnabled()) {
        for (int i = 0; i < kReplySize; ++i) {
            SL_TRACE("%2X %d", static_cast<unsigned>(block[i]), i);
        }
    }
    return reply->setHeader(block, size) == CResponse::kLost ? TRANSPORT_NO_MEMORY
                                                             : reply->getReply();
}

bool IOComm::isWaitOver(Clock::time_point lastHeard) const
{
    return (pCancel != nullptr && pCancel->shouldStop()) ||
           Clock::now() - lastHeard >= kReplySilence;
}

int IOComm::awaitReply(CResponse* reply)
{
    CResponse unwanted;
    CResponse* answer = reply != nullptr ? reply : &unwanted;
    const int expected = pICmd->getCommandId();
    SL_TRACE("command id is %d", expected);
    if (!ICommand::isAnswered(expected)) {
        return TRANSPORT_OK;
    }
    SL_TRACE("waiting for response");
    int result = TRANSPORT_OK;
    Clock::time_point lastHeard = Clock::now();
    for (int attempt = 0; attempt < kReplyAttempts; ++attempt) {
        result = readReply(answer);
        if (result == expected || result == TRANSPORT_NO_MEMORY) {
            break;
        }
        if (result != TRANSPORT_READ_FAILED) {
            lastHeard = Clock::now();
        }
        if (isWaitOver(lastHeard)) {
            SL_TRACE("[ERROR] usb device %s:%s does not answer", cBus, cDev);
            break;
        }
    }
    return result;
}

int IOComm::writeCommand(int cmdId, CResponse* reply)
{
    SL_START();
    SL_TRACE("%s -> write command", __func__);
    if (pICmd == nullptr) {
        SL_TRACE(" -> command object NULL");
        SL_RETURN(TRANSPORT_NO_COMMAND);
    }
    if (cmdId == COMMAND_START) {
        ScanData.reset(new (std::nothrow) DataBuffer);
        if (!ScanData) {
            SL_RETURN(TRANSPORT_NO_COMMAND);
        }
    }
    int result = sendCommand(cmdId);
    if (result == TRANSPORT_OK) {
        result = awaitReply(reply);
    }
    SL_RETURN(result);
}

void IOComm::traceHeader(const unsigned char* block, int size) const
{
    unsigned char header[kHeaderDumpSize] = {};
    memcpy(header, block, static_cast<size_t>(std::min(size, kHeaderDumpSize)));
    SL_TRACE(" -> image data acquired");
    SL_TRACE(" -> <<begin of header dump>>");
    for (const unsigned char* b = header; b < header + kHeaderDumpSize; b += 10) {
        SL_TRACE(" %2X %2X %2X %2X %2X %2X %2X %2X %2X %2X", b[0], b[1], b[2], b[3], b[4], b[5],
                 b[6], b[7], b[8], b[9]);
    }
    SL_TRACE(" -> <<end of header dump>>");
}

// Image bytes are read to where they stay; a record is taken out again. Without memory the
// device is still read, into spare, since a record may come.
inline int IOComm::readBlock(unsigned char* spare, Block* block, bool isTracing)
{
    const int pending = pICmd->getPendingBlockSize(ScanData.get());
    unsigned char* room = ScanData->ExtendRawData(kImageBlockSize);
    block->bytes = room != nullptr ? room : spare;
    block->size = kImageBlockSize;
    const int result = Read(block->bytes, &block->size, isTracing);
    block->isImage =
        result == TRANSPORT_OK && !ScanRecord::isRecord(block->bytes, block->size, pending);
    block->isLost = block->isImage && room == nullptr;
    if (room != nullptr) {
        ScanData->ShrinkRawData(block->isImage ? kImageBlockSize - block->size : kImageBlockSize);
    }
    return result;
}

inline int IOComm::takeBlock(const Block& block, int* bytesRead, DataBuffer* buffer,
                             ImageData* image, bool isTracing)
{
    int response = TRANSPORT_OK;
    if (!block.isImage) {
        response = ScanRecord().process(block.bytes, block.size, image);
    } else if (isTracing) {
        traceHeader(block.bytes, block.size);
    }
    // Behind a record: image bytes without a block header may still wait for more that never came.
    const int moved = ScanRecord::moveImageBytes(pICmd, ScanData.get(), buffer, isTracing);
    if (moved < 0 || block.isLost) {
        return TRANSPORT_NO_MEMORY;
    }
    *bytesRead += moved;
    return response;
}

int IOComm::ReadImage(int* bytesRead, DataBuffer* buffer, ImageData* image)
{
    const bool isTracing = debugEnabled();
    SL_START_IF(isTracing);
    SL_TRACE_IF(isTracing, " -> Read Image");
    if (!ScanData || pICmd == nullptr) {
        // No scan was started: the device has nothing to send.
        SL_TRACE_IF(isTracing, " -> unable to read image %d", TRANSPORT_READ_FAILED);
        SL_RETURN_IF(isTracing, iOpen == 1 ? TRANSPORT_READ_FAILED : TRANSPORT_CLOSED);
    }
    unsigned char spare[kImageBlockSize];
    Block block;
    const int result = readBlock(spare, &block, isTracing);
    if (result != TRANSPORT_OK) {
        SL_TRACE_IF(isTracing, " -> unable to read image %d", result);
        SL_RETURN_IF(isTracing, result);
    }
    SL_TRACE_IF(isTracing, " -> size is %d", block.size);
    SL_RETURN_IF(isTracing, takeBlock(block, bytesRead, buffer, image, isTracing));
}

int IOComm::getName(int descriptorIndex, char* buf, int len, const char* unknown) const
{
    if (usbHandle == nullptr ||
        usb_get_string_simple(usbHandle, descriptorIndex, buf, static_cast<size_t>(len)) < 0) {
        snprintf(buf, static_cast<size_t>(len), "%s", unknown);
    }
    return 0;
}

int IOComm::getVendorName(char* buf, int len)
{
    SL_START();
    if (buf == nullptr || len < 1 || (usbHandle != nullptr && iManufacturerIndex == 0)) {
        SL_RETURN(kNoVendorString);
    }
    getName(iManufacturerIndex, buf, len, kUnknownVendor);
    SL_TRACE("%s -> get vendor name = %s", __func__, buf);
    SL_RETURN(0);
}

int IOComm::getProductName(char* buf, int len)
{
    SL_START();
    if (buf == nullptr || len < 1 || (usbHandle != nullptr && iProductIndex == 0)) {
        SL_RETURN(kNoProductString);
    }
    getName(iProductIndex, buf, len, kUnknownProduct);
    SL_TRACE("%s -> get product name = %s", __func__, buf);
    SL_RETURN(0);
}

int IOComm::setCommand(ICommand* cmd)
{
    pICmd = cmd;
    return 0;
}
