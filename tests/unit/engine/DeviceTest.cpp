// SPDX-License-Identifier: LGPL-2.1-or-later
// The list of scanners over all transports, and the choice of the transport.
#include "Device.h"

#include "DeviceList.h"
#include "FakeUsb.h"
#include "LogCapture.h"
#include "SaneConfReader.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DeviceTest : public testing::Test {
protected:
    DeviceTest() { conf.Add(0x1234, 0x3260, "/model.ini", "Model"); }

    std::vector<std::string> list(int which, int expected)
    {
        return deviceList(&conf, which, expected);
    }

    FakeUsb usb;
    SaneConfReader conf;
};

TEST_F(DeviceTest, Lists)
{
    FakeDevice second;
    second.file = "003";
    usb.add(second);
    LogCapture log;
    EXPECT_THAT(list(3, 0),
                ElementsAre("Quillon/Flatbed/libusb:001:002", "Quillon/Flatbed/libusb:001:003"));
    for (const char* line :
         {"getScanners form device", "creating network comm to find scanners",
          "total scanners is 2 , net is 0 , usb is 2", "entry #0: Quillon/Flatbed/libusb:001:002",
          "entry #1: Quillon/Flatbed/libusb:001:003"}) {
        EXPECT_THAT(log.plainMessages(), Contains(line));
    }
}

TEST_F(DeviceTest, NothingIsConfigured)
{
    EXPECT_THAT(deviceList(nullptr, 2, 1), testing::IsEmpty());
}

TEST_F(DeviceTest, ShortFormListsEverything)
{
    char** names = nullptr;
    int count = 0;
    LogCapture log;
    ASSERT_EQ(Device::getScanners(&names, &count, &conf), 0);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(names[0], "Quillon/Flatbed/libusb:001:002");
    EXPECT_TRUE(log.contains("creating network comm to find scanners"));
    free(names[0]);
    free(names);
}

TEST_F(DeviceTest, ListsOneTransportOnly)
{
    LogCapture log;
    EXPECT_THAT(list(2, 0), ElementsAre("Quillon/Flatbed/libusb:001:002"));
    EXPECT_FALSE(log.contains("creating network comm to find scanners"));
    usb.calls.clear();
    EXPECT_THAT(list(1, 1), IsEmpty());
    EXPECT_THAT(usb.calls, IsEmpty());
    EXPECT_TRUE(log.contains("total scanners is 0 , net is 0 , usb is 0"));
}

TEST_F(DeviceTest, NoScanners)
{
    usb.unplugAll();
    char* untouched = nullptr;
    char** names = &untouched;
    int count = 7;
    EXPECT_EQ(Device::getScanners(&names, &count, &conf), 1);
    EXPECT_EQ(names, &untouched);
    EXPECT_EQ(count, 0);
}

TEST_F(DeviceTest, LeavesNothingOpen)
{
    list(3, 0);
    EXPECT_EQ(usb.openHandles, 0);
}

TEST_F(DeviceTest, UsbNames)
{
    LogCapture log;
    for (const char* name : {"a/b/libusb:001:002", "a/libusb/libnet:00", "libusb"}) {
        EXPECT_EQ(Device::isUSB(name), 1) << name;
    }
    for (const char* name : {"a/b/libnet:00", "a/b/LIBUSB:001:002", "libus", ""}) {
        EXPECT_EQ(Device::isUSB(name), 0) << name;
    }
    EXPECT_EQ(Device::isUSB(nullptr), 0);
    EXPECT_EQ(Device().isUSB("libusb"), 1);
    EXPECT_THAT(log.plainMessages(), Contains("isUSB -> is this a usb device ?"));
}

TEST_F(DeviceTest, CreatesTheUsbTransport)
{
    LogCapture log;
    const std::unique_ptr<ICommunication> comm(
        Device::CreateInstance("Quillon/Flatbed/libusb:001:002", &conf));
    ASSERT_NE(comm, nullptr);
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_EQ(comm->getVid(), 0x1234);
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_THAT(log.plainMessages(), Contains("selected device is Quillon/Flatbed/libusb:001:002"));
    EXPECT_THAT(log.plainMessages(), Contains("created iocomm instance"));
}

TEST_F(DeviceTest, UsbNamesAreNotChecked)
{
    const std::unique_ptr<ICommunication> comm(Device::CreateInstance("libusb", &conf));
    ASSERT_NE(comm, nullptr);
    EXPECT_EQ(comm->openDevice(), 7);
}

TEST_F(DeviceTest, UnknownNetworkNamesFailAtOpen)
{
    for (const char* name : {"Quillon/Net/libnet:001122334455", ""}) {
        LogCapture log;
        const std::unique_ptr<ICommunication> comm(Device::CreateInstance(name, &conf));
        ASSERT_NE(comm, nullptr);
        EXPECT_THAT(log.plainMessages(), Contains("network scanners empty retrieving info again"));
        EXPECT_THAT(log.plainMessages(), Contains("total net count is 0"));
        EXPECT_THAT(log.plainMessages(), Contains("created netcomm instance"));
        EXPECT_EQ(comm->openDevice(), 3);
        EXPECT_THAT(usb.calls, IsEmpty()) << "the search is for network scanners only";
    }
}

TEST_F(DeviceTest, NoName)
{
    const std::unique_ptr<ICommunication> comm(Device::CreateInstance(nullptr, &conf));
    EXPECT_TRUE(comm == nullptr || comm->openDevice() != 0);
}

}  // namespace
