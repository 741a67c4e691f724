// SPDX-License-Identifier: LGPL-2.1-or-later
// Network scanners in the list and in the choice of the transport.
#include "Allocations.h"
#include "Device.h"
#include "DeviceList.h"
#include "DiscoveryReply.h"
#include "Dns.h"
#include "FakeScanner.h"
#include "FakeUsb.h"
#include "LogCapture.h"
#include "Loopback.h"
#include "NetComm.h"
#include "Responder.h"
#include "SaneConfReader.h"

#include <gmock/gmock.h>

#include <memory>
#include <new>

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;

namespace {

using Lines = std::vector<std::string>;

class Comm : public NetComm {
public:
    using NetComm::standardTimes;
    // Of any object.
    static std::string nameOf(const NetComm& comm) { return comm.*(&Comm::pDeviceName); }
};

std::string fullName(int n)
{
    NValueObjects scanner;
    const Bytes answer = answerWith(scannerStrings(n));
    DiscoveryReply::parsePacket(answer.data(), static_cast<int>(answer.size()), &scanner);
    return scanner.deviceName();
}

std::string shortName(int n)
{
    const std::string full = fullName(n);
    return full.substr(0, full.find(':', full.find(':') + 1));
}

std::vector<Bytes> answers(int first, int last)
{
    std::vector<Bytes> all;
    for (int n = first; n <= last; n++) {
        all.push_back(answerWith(scannerStrings(n)));
    }
    return all;
}

class DeviceNetTest : public testing::Test {
protected:
    DeviceNetTest()
    {
        conf.Add(0x1234, 0x3260, "/model.ini", "Model");
        Comm::standardTimes.discovery = milliseconds(150);
        Comm::standardTimes.tickle = milliseconds(60);
    }
    ~DeviceNetTest() override { Comm::standardTimes = NetTimes(); }

    std::vector<std::string> list(int which = 3, int expected = 0)
    {
        return deviceList(&conf, which, expected);
    }
    // The name that the transport for a selected name was given.
    std::string selected(const std::string& name)
    {
        const std::unique_ptr<ICommunication> comm(Device::CreateInstance(name.c_str(), &conf));
        const auto* net = dynamic_cast<NetComm*>(comm.get());
        EXPECT_NE(net, nullptr);
        return net != nullptr ? Comm::nameOf(*net) : "?";
    }

    FakeUsb usb;
    SaneConfReader conf;
    LogCapture log;
};

TEST_F(DeviceNetTest, UsbNamesComeFirst)
{
    FakeDevice second;
    second.file = "003";
    usb.add(second);
    const Responder responder(answers(0, 0));
    EXPECT_THAT(list(), ElementsAre("Quillon/Flatbed/libusb:001:002",
                                    "Quillon/Flatbed/libusb:001:003", shortName(0)));
    EXPECT_EQ(shortName(0), "Quillon/Model 0/libnet:000800000000");
    EXPECT_THAT(log.plainMessages(), IsSupersetOf(Lines{"total scanners is 3 , net is 1 , usb is 2",
                                                        "copying data to buffer " + fullName(0),
                                                        "Quillon/Model 0/libnet token is ",
                                                        "entry #2: " + shortName(0)}));
}

TEST_F(DeviceNetTest, NetworkOnly)
{
    const Responder responder(answers(0, 2));
    EXPECT_THAT(list(1), ElementsAre(shortName(0), shortName(1), shortName(2)));
    EXPECT_THAT(list(2), ElementsAre("Quillon/Flatbed/libusb:001:002"));
}

TEST_F(DeviceNetTest, UsbListComesWithoutANetwork)
{
    {
        const Responder holder({}, false);
        EXPECT_THAT(list(), ElementsAre("Quillon/Flatbed/libusb:001:002"));
        EXPECT_TRUE(log.contains("[ERROR] broadcast errorr"));
    }
    const NoRoute noRoute;
    EXPECT_THAT(list(), ElementsAre("Quillon/Flatbed/libusb:001:002"));
    EXPECT_TRUE(log.contains("[ERROR] sendto return an error"));
}

TEST_F(DeviceNetTest, ShortNameFindsTheFullOne)
{
    {
        const Responder responder(answers(0, 2));
        list();
    }
    for (int n = 0; n < 3; n++) {
        EXPECT_EQ(selected(shortName(n)), fullName(n));
        EXPECT_EQ(selected(fullName(n)), fullName(n));
    }
    EXPECT_THAT(log.plainMessages(),
                IsSupersetOf(Lines{"total net count is 3", shortName(1) + " " + fullName(0),
                                   shortName(1) + " " + fullName(1), "created netcomm instance"}));
    EXPECT_FALSE(log.contains("network scanners empty retrieving info again"));
}

TEST_F(DeviceNetTest, SearchesAgainWhereNothingIsKnown)
{
    list(2);  // as after the start: no network scanner
    log.clear();
    const Responder responder(answers(0, 0));
    EXPECT_EQ(selected(shortName(0)), fullName(0));
    EXPECT_TRUE(log.contains("network scanners empty retrieving info again"));
    EXPECT_TRUE(log.contains("total scanners is 1 , net is 1 , usb is 0"));
}

TEST_F(DeviceNetTest, UnknownNamesHaveNoAddress)
{
    {
        const Responder responder(answers(0, 2));
        list();
    }
    EXPECT_EQ(selected("Quillon/Other/libnet:1"), "");
    {
        const Responder responder(answers(0, 0));
        list();
    }
    EXPECT_EQ(selected(shortName(1)), "") << "rows of an earlier search are gone";
    EXPECT_EQ(selected(shortName(0)), fullName(0));
}

TEST_F(DeviceNetTest, SearchWithoutSuccessChangesNothing)
{
    {
        const Responder responder(answers(0, 1));
        list();
    }
    usb.unplugAll();
    EXPECT_THAT(list(3, 1), IsEmpty());
    EXPECT_EQ(selected(shortName(1)), fullName(1));
}

TEST_F(DeviceNetTest, LowestRowWins)
{
    std::vector<std::string> longer = scannerStrings(1);
    std::vector<std::string> shorter = scannerStrings(2);
    longer[1] = shorter[1] = "MACUAA \"080000000000\"";
    longer[2] = "ADAPTERNAME \"Model\"";
    shorter[2] = "ADAPTERNAME \"Model\"";
    longer[0] = "IPADDRESS \"10.0.0.1\"";
    const Responder responder({answerWith(longer), answerWith(shorter)});
    list();
    EXPECT_EQ(selected("Model/libnet:100000000000"),
              "Quillon/Model/libnet:100000000000:10.0.0.1:1234:3260");
}

TEST_F(DeviceNetTest, TableHolds24Scanners)
{
    const Responder responder(answers(0, 23));
    EXPECT_THAT(list(1), SizeIs(24));
    EXPECT_EQ(selected(shortName(23)), fullName(23));
}

TEST_F(DeviceNetTest, From25ScannersOnTheTableStays)
{
    for (const int count : {25, 40}) {
        {
            const Responder responder(answers(0, 1));
            list(1);
        }
        log.clear();
        const Responder responder(answers(1, count));
        std::vector<std::string> expected;
        for (int n = 1; n <= count; n++) {
            expected.push_back(shortName(n));
        }
        EXPECT_EQ(list(1), expected);
        EXPECT_FALSE(log.contains("copying data to buffer"));
        EXPECT_EQ(selected(shortName(0)), fullName(0)) << "an older row";
        EXPECT_EQ(selected(shortName(1)), fullName(1));
        EXPECT_EQ(selected(shortName(2)), "");
        EXPECT_EQ(selected(shortName(count)), "");
    }
}

TEST_F(DeviceNetTest, RowsOfFewerScannersStayEmpty)
{
    for (const int last : {2, 0}) {
        const Responder responder(answers(0, last));
        list(1);
    }
    const Responder responder(answers(3, 27));
    EXPECT_THAT(list(1), SizeIs(25));
    EXPECT_EQ(selected(shortName(0)), fullName(0)) << "the table stays";
    EXPECT_EQ(selected(shortName(1)), "") << "as the second search left it";
    EXPECT_EQ(selected(shortName(2)), "");
}

TEST_F(DeviceNetTest, OddModelNamesKeepTheSyntax)
{
    std::vector<std::string> strings = scannerStrings();
    strings[2] = "1284STRID \"MFG:Quillon;MDL:A/B;\"";
    const Responder responder({answerWith(strings)});
    EXPECT_THAT(list(1), ElementsAre("Quillon/MFG-Quillon;MDL-A-B;/libnet:000800000000"));
    const std::unique_ptr<ICommunication> comm(
        Device::CreateInstance("Quillon/MFG-Quillon;MDL-A-B;/libnet:000800000000", &conf));
    EXPECT_EQ(comm->getVid(), 0x1234);
    EXPECT_EQ(comm->getPid(), 0x3260);
}

TEST_F(DeviceNetTest, ModelNamedLikeUsbIsTakenForUsb)
{
    std::vector<std::string> strings = scannerStrings();
    strings[2] = "ADAPTERNAME \"libusb\"";
    const Responder responder({answerWith(strings)});
    EXPECT_THAT(list(1), ElementsAre("Quillon/libusb/libnet:000800000000"));
    const std::unique_ptr<ICommunication> comm(
        Device::CreateInstance("Quillon/libusb/libnet:000800000000", &conf));
    EXPECT_EQ(dynamic_cast<NetComm*>(comm.get()), nullptr);
}

TEST_F(DeviceNetTest, OpensTheListedScanner)
{
    {
        const Responder responder(answers(0, 0));
        list();
    }
    FakeScanner scanner;
    const std::unique_ptr<ICommunication> comm(Device::CreateInstance(shortName(0).c_str(), &conf));
    scanner.greet();
    EXPECT_EQ(comm->openDevice(), 0);
    scanner.greeting();
    EXPECT_EQ(comm->getVid(), 0x1234);
    EXPECT_EQ(comm->closeDevice(), 0);
}

TEST_F(DeviceNetTest, NoNameFindsTheFirst)
{
    const Responder responder(answers(0, 1));
    list();
    const std::unique_ptr<ICommunication> comm(Device::CreateInstance(nullptr, &conf));
    ASSERT_NE(comm, nullptr);
    EXPECT_EQ(selected(""), fullName(0));
}

// ---- without memory ------------------------------------------------------------------

TEST_F(DeviceNetTest, ListingWithoutMemory)
{
    Comm::standardTimes.discovery = milliseconds(20);
    const Responder responder(answers(0, 1));
    int result = -1;
    withEveryShortage([&](int granted) {
        NameList found;
        try {
            result = Device::getScanners(&found.names, &found.count, &conf);
        } catch (const std::bad_alloc&) {
            result = 1;
        }
        const Allocations::Pause pause;
        EXPECT_EQ(found.names != nullptr, result == 0) << granted;
        for (int i = 0; result == 0 && i < found.count; i++) {
            EXPECT_NE(found.names[i], nullptr) << granted;
        }
        EXPECT_EQ(usb.openHandles, 0) << granted;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DeviceNetTest, ChoosingWithoutMemory)
{
    const Responder responder(answers(0, 1));
    list();
    bool isCreated = false;
    withEveryShortage([&](int) {
        try {
            const std::unique_ptr<ICommunication> comm(
                Device::CreateInstance("Quillon/Model 1/libnet", &conf));
            isCreated = comm != nullptr;
        } catch (const std::bad_alloc&) {
            isCreated = false;
        }
    });
    EXPECT_TRUE(isCreated);
    EXPECT_TRUE(log.contains("set device failed"));
}

}  // namespace
