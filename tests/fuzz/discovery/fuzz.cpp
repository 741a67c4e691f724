// SPDX-License-Identifier: LGPL-2.1-or-later
// Answers to the search for scanners on the network, and the names that come out of them.
#include "Check.h"
#include "FakeUsb.h"
#include "Input.h"
#include "ScriptedNet.h"
#include "Surroundings.h"

#include "Device.h"
#include "DiscoveryReply.h"
#include "NameList.h"
#include "NetComm.h"
#include "SaneConfReader.h"

#include <cstring>
#include <memory>
#include <string>

namespace {

using fuzz::Bytes;
using fuzz::Input;

constexpr std::size_t kLongestName = 254;
constexpr unsigned kSizeMask = 0x7FF;
constexpr int kNetwork = 1;

void checkRecord(const Bytes& packet)
{
    NValueObjects record;
    if (DiscoveryReply::parsePacket(packet.data(), static_cast<int>(packet.size()), &record) == 0) {
        return;
    }
    const std::string name = record.deviceName();
    FUZZ_CHECK(name.size() <= kLongestName);
    fuzz::touch(name.c_str());
    if (!record.isComplete() || std::strlen(name.c_str()) != name.size()) {
        return;
    }
    NetComm transport;
    FUZZ_CHECK(transport.setDevice(name.c_str()) == 0);
    FUZZ_CHECK(static_cast<unsigned>(transport.getVid()) == record.getVid());
    FUZZ_CHECK(static_cast<unsigned>(transport.getPid()) == record.getPid());
}

void useName(const char* name, SaneConfReader* conf)
{
    FUZZ_CHECK(std::strlen(name) <= kLongestName);
    const std::unique_ptr<ICommunication> transport(Device::CreateInstance(name, conf));
    if (!transport) {
        return;
    }
    char text[64];
    transport->getVendorName(text, sizeof text);
    fuzz::touch(text);
    transport->getProductName(text, sizeof text);
    fuzz::touch(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    fuzz::setLogging(input.byte() % 8 == 1);
    const FakeUsb noUsb{{}};
    fuzz::ScriptedNet network(fuzz::Script(Input(nullptr, 0), 326), true, 0);
    while (!input.isEmpty()) {
        network.datagrams.push_back(input.take(input.word() & kSizeMask));
        checkRecord(network.datagrams.back());
    }

    SaneConfReader conf;
    conf.Add(0x1234, 0x3260, "model.ini", "Model");
    conf.Add(0x4321, 0x4022, "model.ini", "Model");
    NameList found;
    if (Device::getScanners(&found.names, &found.count, &conf, kNetwork) == 0) {
        for (int i = 0; i < found.count; ++i) {
            useName(found.names[i], &conf);
        }
    }
    return 0;
}
