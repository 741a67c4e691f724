// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Device.h"

#include "CLogger.h"
#include "IOComm.h"
#include "NameList.h"
#include "NetComm.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace {

constexpr int kNameSize = 255;
constexpr int kTableRows = 25;
constexpr int kShortNameFields = 3;

// Full names of the network scanners found by the last enumeration, and their number.
// The number may exceed the rows: then the rows are those of an earlier enumeration.
char pBuffer[kTableRows][kNameSize];
int iNetCount = 0;

template <typename Transport>
bool enumerate(NameList* found, void* conf)
{
    const std::unique_ptr<ICommunication> transport(new (std::nothrow) Transport);
    if (!transport) {
        return false;
    }
    transport->getScanners(&found->names, &found->count, conf);
    return true;
}

// The name up to its third ":"-separated field; a shorter name stays as it is.
std::string shortName(const char* fullName, const CLogger& log)
{
    std::string fields = fullName;
    char* rest = nullptr;
    const char* token = strtok_r(fields.data(), ":", &rest);
    SL_TRACE_TO(log, "%s token is ", token != nullptr ? token : "");

    std::string name = token != nullptr ? token : "";
    for (int field = 1; field < kShortNameFields - 1 && token != nullptr; ++field) {
        token = strtok_r(nullptr, ":", &rest);
        if (token != nullptr) {
            name += ":";
            name += token;
        }
    }
    return name;
}

char* newEntry(const char* name)
{
    char* entry = static_cast<char*>(malloc(kNameSize));
    if (entry != nullptr) {
        snprintf(entry, kNameSize, "%s", name);
    }
    return entry;
}

void rememberFullNames(const NameList& net, const CLogger& log)
{
    iNetCount = net.count;
    if (net.count >= kTableRows) {
        return;
    }
    memset(pBuffer, 0, sizeof pBuffer);
    for (int k = 0; k < net.count; ++k) {
        snprintf(pBuffer[k], kNameSize, "%s", net.names[k]);
        SL_TRACE_TO(log, "copying data to buffer %s", pBuffer[k]);
    }
}

// The row of the table for a selected name, empty where there is none.
const char* fullNameFor(const char* name, const CLogger& log)
{
    for (int k = 0; k < iNetCount && k < kTableRows; ++k) {
        SL_TRACE_TO(log, "%s %s", name, pBuffer[k]);
        if (strstr(pBuffer[k], name) != nullptr) {
            return pBuffer[k];
        }
    }
    return "";
}

}  // namespace

Device::~Device() = default;

int Device::getScanners(char*** list, int* count, void* conf)
{
    return getScanners(list, count, conf, kBoth);
}

int Device::getScanners(char*** list, int* count, void* conf, int which)
{
    const CLogger log;
    SL_START_TO(log);
    SL_TRACE_TO(log, "getScanners form device");
    NameList usb;
    NameList net;
    if ((which & kUsb) != 0 && !enumerate<IOComm>(&usb, conf)) {
        SL_RETURN_TO(log, 1);
    }
    if ((which & kNetwork) != 0) {
        SL_TRACE_TO(log, "creating network comm to find scanners");
        if (!enumerate<NetComm>(&net, conf)) {
            SL_RETURN_TO(log, 1);
        }
    }
    const int total = net.count + usb.count;
    *count = total;
    SL_TRACE_TO(log, "total scanners is %d , net is %d , usb is %d", total, net.count, usb.count);
    if (total <= 0) {
        SL_RETURN_TO(log, 1);
    }

    NameList entries;
    if (!entries.allocate(total)) {
        SL_RETURN_TO(log, 1);
    }
    rememberFullNames(net, log);
    for (int i = 0; i < total; ++i) {
        entries.names[i] = i < usb.count
                               ? newEntry(usb.names[i])
                               : newEntry(shortName(net.names[i - usb.count], log).c_str());
        if (entries.names[i] == nullptr) {
            SL_RETURN_TO(log, 1);
        }
        SL_TRACE_TO(log, "entry #%d: %s", i, entries.names[i]);
    }
    *list = entries.release();
    SL_RETURN_TO(log, 0);
}

int Device::isUSB(const char* name)
{
    const CLogger log;
    SL_TRACE_TO(log, "%s -> is this a usb device ?", __func__);
    return name != nullptr && strstr(name, "libusb") != nullptr ? 1 : 0;
}

ICommunication* Device::CreateInstance(const char* name, void* conf)
{
    const CLogger log;
    const char* selected = name != nullptr ? name : "";
    SL_TRACE_TO(log, "selected device is %s", selected);
    if (isUSB(name) == 1) {
        IOComm* usb = new (std::nothrow) IOComm;
        if (usb != nullptr) {
            usb->setDevice(name);
            SL_TRACE_TO(log, "created iocomm instance");
        }
        return usb;
    }

    if (iNetCount < 1) {
        SL_TRACE_TO(log, "network scanners empty retrieving info again");
        NameList unused;
        getScanners(&unused.names, &unused.count, conf, kNetwork);
    }
    std::unique_ptr<NetComm> net(new (std::nothrow) NetComm);
    SL_TRACE_TO(log, "total net count is %d", iNetCount);
    if (!net || net->setDevice(fullNameFor(selected, log)) != 0) {
        SL_TRACE_TO(log, "set device failed");
        return nullptr;
    }
    SL_TRACE_TO(log, "created netcomm instance");
    return net.release();
}
