// SPDX-License-Identifier: LGPL-2.1-or-later
#include "IOComm.h"

#include "Allocations.h"
#include "CResponse.h"
#include "CancelToken.h"
#include "FakeUsb.h"
#include "ICommand.h"
#include "ImageData.h"
#include "LogCapture.h"
#include "Samples.h"
#include "SaneConfReader.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <regex>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::SizeIs;
using testing::TestWithParam;

namespace {

constexpr char kName[] = "Quillon/Flatbed/libusb:001:002";
using Calls = std::vector<std::string>;

std::string blanks(std::size_t count)
{
    return std::string(count, ' ');
}

// ---- listing ----------------------------------------------------------------

std::vector<std::string> listScanners(IOComm& comm, SaneConfReader& conf)
{
    char** list = nullptr;
    int count = -1;
    EXPECT_EQ(comm.getScanners(&list, &count, &conf), 0);
    std::vector<std::string> names;
    for (int i = 0; i < count; i++) {
        names.emplace_back(list[i]);
        free(list[i]);
    }
    free(list);
    return names;
}

std::vector<std::string> listScanners(const std::vector<FakeDevice>& devices)
{
    FakeUsb usb(devices);
    SaneConfReader conf;
    conf.Add(0x1234, 0x3260, "/model.ini", "Model");
    IOComm comm;
    std::vector<std::string> names = listScanners(comm, conf);
    EXPECT_EQ(usb.openHandles, 0);
    return names;
}

struct Selection {
    const char* name;
    int deviceClass;
    std::vector<FakeInterface> interfaces;
    std::size_t listed;
    friend void PrintTo(const Selection& c, std::ostream* out) { *out << c.name; }
};

class IOCommSelectionTest : public TestWithParam<Selection> {};

TEST_P(IOCommSelectionTest, ListsTheDeviceOncePerFittingInterface)
{
    FakeDevice device;
    device.deviceClass = GetParam().deviceClass;
    device.interfaces = GetParam().interfaces;
    EXPECT_EQ(listScanners({device}), Calls(GetParam().listed, kName));
}

const FakeInterface kNoAlternate = {16, {}, false};

INSTANTIATE_TEST_SUITE_P(
    Rules, IOCommSelectionTest,
    testing::Values(Selection{"VendorSpecific", 255, {{3}}, 1},
                    Selection{"VendorSpecificTwoInterfaces", 255, {{3}, {16}}, 2},
                    Selection{"VendorSpecificNoAlternate", 255, {{3}, kNoAlternate}, 2},
                    Selection{"VendorSpecificNoInterface", 255, {}, 0},
                    Selection{"Class16", 0, {{16}}, 1}, Selection{"Class255", 0, {{255}}, 1},
                    Selection{"Class0", 0, {{0}}, 1}, Selection{"Printer", 0, {{7}}, 0},
                    Selection{"Class15", 0, {{15}}, 0}, Selection{"Class254", 0, {{254}}, 0},
                    Selection{"OneOfTwo", 0, {{7}, {255}}, 1},
                    Selection{"TwoOfThree", 0, {{16}, {7}, {0}}, 2},
                    Selection{"NoAlternate", 0, {kNoAlternate}, 0},
                    Selection{"OneWithoutAlternate", 0, {kNoAlternate, {16}}, 1},
                    Selection{"Hub", 9, {{255}}, 0}, Selection{"Class16Device", 16, {{16}}, 0}),
    kByName);

TEST(IOCommListTest, KeepsConfiguredDevicesOnly)
{
    FakeDevice otherProduct;
    otherProduct.pid = 0x3261;
    FakeDevice otherVendor;
    otherVendor.vid = 0x1235;
    EXPECT_THAT(listScanners({otherProduct, otherVendor}), IsEmpty());
    EXPECT_THAT(listScanners({otherProduct, FakeDevice(), otherVendor}), ElementsAre(kName));
}

TEST(IOCommListTest, FollowsTheBusses)
{
    FakeDevice second;
    second.file = "007";
    FakeDevice third;
    third.bus = "002";
    third.file = "001";
    EXPECT_THAT(
        listScanners({FakeDevice(), second, third}),
        ElementsAre(kName, "Quillon/Flatbed/libusb:001:007", "Quillon/Flatbed/libusb:002:001"));
}

TEST(IOCommListTest, NothingAttached)
{
    EXPECT_THAT(listScanners(std::vector<FakeDevice>()), IsEmpty());
    FakeDevice bare;
    bare.hasConfiguration = false;
    EXPECT_THAT(listScanners({bare}), IsEmpty());
}

TEST(IOCommListTest, OpensReadsAndCloses)
{
    FakeUsb usb;
    LogCapture log;
    SaneConfReader conf;
    conf.Add(0x1234, 0x3260, "/model.ini", "Model");
    IOComm comm;
    EXPECT_THAT(usb.calls, ElementsAre("init", "find_busses", "find_devices"));
    usb.calls.clear();
    listScanners(comm, conf);
    EXPECT_THAT(usb.calls, ElementsAre("open 002", "string 1 100", "string 2 100", "close"));
    EXPECT_THAT(log.plainMessages(), Contains("getScanners -> retrieve attached scanners"));
}

struct Name {
    const char* name;
    int manufacturerIndex;
    int productIndex;
    std::map<int, std::string> strings;
    std::string expected;
    friend void PrintTo(const Name& c, std::ostream* out) { *out << c.name; }
};

class IOCommNameTest : public TestWithParam<Name> {};

TEST_P(IOCommNameTest, ListsTheName)
{
    FakeDevice device;
    device.manufacturerIndex = GetParam().manufacturerIndex;
    device.productIndex = GetParam().productIndex;
    device.strings = GetParam().strings;
    EXPECT_THAT(listScanners({device}), ElementsAre(GetParam().expected));
}

const std::string kLongText(99, 'v');

INSTANTIATE_TEST_SUITE_P(
    Strings, IOCommNameTest,
    testing::Values(
        Name{"Both", 3, 4, {{3, "Oxle"}, {4, "Combo 5"}}, "Oxle/Combo 5/libusb:001:002"},
        Name{"NoVendor", 1, 2, {{2, "Flatbed"}}, "Unknown Vendor/Flatbed/libusb:001:002"},
        Name{"NoProduct", 1, 2, {{1, "Quillon"}}, "Quillon/Unknown Scanner/libusb:001:002"},
        Name{"IndexZero", 0, 0, {{0, "x"}}, "Unknown Vendor/Unknown Scanner/libusb:001:002"},
        Name{"Empty", 1, 2, {{1, ""}, {2, ""}}, "Unknown Vendor/Unknown Scanner/libusb:001:002"},
        Name{"Slashes", 1, 2, {{1, "a/b"}, {2, "/c/"}}, "a-b/-c-/libusb:001:002"},
        Name{"Long", 1, 2, {{1, kLongText + "cut"}, {2, "p"}}, kLongText + "/p/libusb:001:002"}),
    kByName);

TEST(IOCommListTest, DeviceThatCannotBeOpenedIsListedAsUnknown)
{
    FakeUsb usb;
    usb.fail("open", -1);
    SaneConfReader conf;
    conf.Add(0x1234, 0x3260, "/model.ini", "Model");
    IOComm comm;
    EXPECT_THAT(listScanners(comm, conf),
                ElementsAre("Unknown Vendor/Unknown Scanner/libusb:001:002"));
    EXPECT_THAT(usb.callsOf("close"), IsEmpty());
}

TEST(IOCommListTest, NameIsCutAt254Characters)
{
    FakeDevice device;
    device.bus = std::string(300, 'b');
    const std::string whole = "Quillon/Flatbed/libusb:" + device.bus + ":002";
    EXPECT_THAT(listScanners({device}), ElementsAre(whole.substr(0, 254)));
}

// ---- opening and closing -----------------------------------------------------

class IOCommTest : public testing::Test {
protected:
    // Attaches this device only and makes a transport that is bound to it.
    void attach(const FakeDevice& device)
    {
        comm.reset();
        usb.unplugAll();
        usb.add(device);
        comm = std::make_unique<IOComm>();
        comm->setDevice(kName);
        usb.calls.clear();
    }

    void open(const FakeDevice& device = FakeDevice())
    {
        attach(device);
        ASSERT_EQ(comm->openDevice(), 0);
        usb.calls.clear();
    }

    void TearDown() override
    {
        comm.reset();
        EXPECT_EQ(usb.openHandles, 0) << "a handle is left open";
    }

    int write(Bytes bytes) { return comm->Write(bytes.data(), static_cast<int>(bytes.size())); }

    FakeUsb usb;
    std::unique_ptr<IOComm> comm;
};

TEST_F(IOCommTest, SetDevice)
{
    attach(FakeDevice());
    LogCapture log;
    EXPECT_EQ(comm->setDevice(nullptr), 2);
    EXPECT_EQ(comm->setDevice("any/thing"), 0);
    EXPECT_THAT(log.plainMessages(), Contains("IO -> set device name = any/thing"));
    EXPECT_THAT(usb.calls, IsEmpty());
}

struct Binding {
    const char* name;
    std::string device;
    int result;
    friend void PrintTo(const Binding& c, std::ostream* out) { *out << c.name; }
};

class IOCommBindingTest : public IOCommTest, public testing::WithParamInterface<Binding> {};

TEST_P(IOCommBindingTest, OpensTheDeviceOfTheName)
{
    FakeDevice device;
    device.bus = "bus-of-15-chars";
    device.file = "dev-of-15-chars";
    attach(device);
    EXPECT_EQ(comm->setDevice(GetParam().device.c_str()), 0);
    EXPECT_EQ(comm->openDevice(), GetParam().result);
}

const std::string kLongBinding = "v/p/libusb:bus-of-15-chars:dev-of-15-chars";

INSTANTIATE_TEST_SUITE_P(
    Names, IOCommBindingTest,
    testing::Values(Binding{"Whole", kLongBinding, 0},
                    Binding{"FurtherFields", kLongBinding + ":more", 0},
                    Binding{"DeviceNameCut", kLongBinding + "XYZ", 0},
                    Binding{"BusNameCut", "v/p/libusb:bus-of-15-charsXYZ:dev-of-15-chars", 0},
                    Binding{"OtherBus", "v/p/libusb:bus:dev-of-15-chars", 7},
                    Binding{"OtherDevice", "v/p/libusb:bus-of-15-chars:dev", 7},
                    Binding{"NoDevice", "v/p/libusb:bus-of-15-chars", 7},
                    Binding{"NotUsb", "v/p/libnet:bus-of-15-chars:dev-of-15-chars", 7},
                    Binding{"Empty", "", 7},
                    Binding{"BeyondTheCut", std::string(256, 'v') + kLongBinding, 7}),
    kByName);

TEST_F(IOCommTest, DeviceNameNeedNotOutliveTheCall)
{
    attach(FakeDevice());
    {
        std::string name = kName;
        comm->setDevice(name.c_str());
        name.assign(name.size(), 'x');
    }
    EXPECT_EQ(comm->openDevice(), 0);
}

TEST_F(IOCommTest, Opens)
{
    attach(FakeDevice());
    EXPECT_EQ(comm->getVid(), -1);
    EXPECT_EQ(comm->getPid(), -1);
    LogCapture log;
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.calls, ElementsAre("open 002", "set_configuration 1", "claim 0"));
    EXPECT_EQ(comm->getVid(), 0x1234);
    EXPECT_EQ(comm->getPid(), 0x3260);
    EXPECT_THAT(log.plainMessages(), Contains("openDevice -> open device"));

    usb.calls.clear();
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.calls, IsEmpty());
    EXPECT_THAT(log.plainMessages(), Contains(" -> usb device opened"));
}

TEST_F(IOCommTest, DeviceDetached)
{
    attach(FakeDevice());
    comm->setDevice("Quillon/Flatbed/libusb:001:003");
    LogCapture log;
    EXPECT_EQ(comm->openDevice(), 7);
    EXPECT_THAT(log.plainMessages(), Contains(" -> unable to open selected device, device maybe" +
                                              blanks(21) + "detached"));
    EXPECT_THAT(usb.calls, IsEmpty());
    EXPECT_EQ(comm->getVid(), -1);
}

// The records of the library go when the busses are searched again.
TEST_F(IOCommTest, DeviceGoneAfterAnotherSearch)
{
    attach(FakeDevice());
    usb.unplugAll();
    IOComm other;
    EXPECT_EQ(comm->openDevice(), 7);
}

TEST_F(IOCommTest, OpenDeviceGoneAfterAnotherSearch)
{
    open();
    usb.unplugAll();
    IOComm other;
    char text[16] = "";
    EXPECT_EQ(comm->getVendorName(text, sizeof text), 0);
    EXPECT_STREQ(text, "Quillon");
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_EQ(comm->openDevice(), 7);
}

TEST_F(IOCommTest, LibraryCannotOpen)
{
    attach(FakeDevice());
    usb.fail("open", -1);
    LogCapture log;
    EXPECT_EQ(comm->openDevice(), 8);
    EXPECT_THAT(log.plainMessages(), Contains(" -> device open failed"));
    EXPECT_THAT(usb.calls, ElementsAre("open 002"));
    EXPECT_EQ(write({1}), 4);
    EXPECT_EQ(comm->openDevice(), 0) << "a later try works";
}

TEST_F(IOCommTest, DeviceWithoutConfiguration)
{
    FakeDevice device;
    device.hasConfiguration = false;
    attach(device);
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.calls, ElementsAre("open 002"));
    EXPECT_EQ(write({1}), 6);
}

struct Choice {
    const char* name;
    int deviceClass;
    std::vector<FakeInterface> interfaces;
    const char* claim;
    friend void PrintTo(const Choice& c, std::ostream* out) { *out << c.name; }
};

class IOCommInterfaceTest : public IOCommTest, public testing::WithParamInterface<Choice> {};

TEST_P(IOCommInterfaceTest, ClaimsTheFirstThatFits)
{
    FakeDevice device;
    device.deviceClass = GetParam().deviceClass;
    device.interfaces = GetParam().interfaces;
    open(device);
    comm->closeDevice();
    usb.calls.clear();
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.callsOf("claim"), ElementsAre(GetParam().claim));
}

INSTANTIATE_TEST_SUITE_P(
    Choices, IOCommInterfaceTest,
    testing::Values(Choice{"VendorSpecificTakesTheFirst", 255, {{7}, {16}}, "claim 0"},
                    Choice{"Second", 0, {{7}, {16}, {255}}, "claim 1"},
                    Choice{"BehindOneWithoutAlternate", 0, {kNoAlternate, {0}}, "claim 1"},
                    Choice{"NoneFits", 0, {{7}, {3}, {8}}, "claim 2"},
                    Choice{"OtherDeviceClass", 9, {{16}, {255}}, "claim 1"}),
    kByName);

TEST_F(IOCommTest, LastEndpointOfEachDirectionWins)
{
    FakeDevice device;
    device.deviceClass = 0;
    device.interfaces = {{7, {0x01, 0x89}}, {255, {0x02, 0x81, 0x84, 0x05}}};
    open(device);
    usb.deliver({7});
    unsigned char byte = 0;
    int len = 1;
    EXPECT_EQ(write({1}), 0);
    EXPECT_EQ(comm->Read(&byte, &len), 0);
    EXPECT_THAT(usb.calls, ElementsAre("write 05 1", "read 84 1"));
}

TEST_F(IOCommTest, ChosenInterfaceWithoutAlternateHasNoEndpoints)
{
    FakeDevice device;
    device.interfaces = {kNoAlternate};
    open(device);
    EXPECT_EQ(write({1}), 6);
}

TEST_F(IOCommTest, ConfigurationValueIsThatOfTheDevice)
{
    FakeDevice device;
    device.configurationValue = 3;
    attach(device);
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.callsOf("set_configuration"), ElementsAre("set_configuration 3"));
}

TEST_F(IOCommTest, ConfigurationRefused)
{
    attach(FakeDevice());
    usb.fail("set_configuration", -1, EPERM);
    EXPECT_EQ(comm->openDevice(), 9);
    EXPECT_THAT(usb.calls, ElementsAre("open 002", "set_configuration 1", "close"));
    EXPECT_EQ(write({1}), 4);
}

TEST_F(IOCommTest, OtherConfigurationFailuresDoNotCount)
{
    attach(FakeDevice());
    usb.fail("set_configuration", -16, EBUSY);
    EXPECT_EQ(comm->openDevice(), 0);

    attach(FakeDevice());
    errno = EPERM;  // stale: the call succeeds
    EXPECT_EQ(comm->openDevice(), 0);

    attach(FakeDevice());
    errno = EPERM;  // stale: the call fails without a reason
    usb.fail("set_configuration", -1);
    EXPECT_EQ(comm->openDevice(), 0);
}

TEST_F(IOCommTest, ClaimResultsPassThrough)
{
    for (const int result : {5, -19, -1, -15}) {
        attach(FakeDevice());
        usb.fail("claim", result);
        EXPECT_EQ(comm->openDevice(), result);
        EXPECT_THAT(usb.callsOf("detach"), IsEmpty());
        EXPECT_THAT(usb.callsOf("claim"), SizeIs(1));
    }
}

TEST_F(IOCommTest, BusyInterfaceIsTakenFromTheKernelDriver)
{
    attach(FakeDevice());
    usb.fail("claim", -16);
    LogCapture log;
    EXPECT_EQ(comm->openDevice(), 0);
    EXPECT_THAT(usb.calls,
                ElementsAre("open 002", "set_configuration 1", "claim 0", "detach 0", "claim 0"));
    EXPECT_THAT(log.plainMessages(), Contains(" -> usb interface claimed"));
    EXPECT_EQ(write({1}), 0);
}

TEST_F(IOCommTest, SecondClaimResultIsReturned)
{
    attach(FakeDevice());
    usb.fail("claim", -16);
    usb.fail("claim", 4);
    EXPECT_EQ(comm->openDevice(), 4);
}

TEST_F(IOCommTest, StillBusyAfterTheDetach)
{
    attach(FakeDevice());
    usb.fail("claim", -16);
    usb.fail("claim", -16);
    EXPECT_EQ(comm->openDevice(), 10);
    EXPECT_THAT(usb.calls, ElementsAre("open 002", "set_configuration 1", "claim 0", "detach 0",
                                       "claim 0", "close"));
    EXPECT_EQ(write({1}), 4);
}

TEST_F(IOCommTest, DetachRefused)
{
    attach(FakeDevice());
    usb.fail("claim", -16);
    usb.fail("detach", -61);
    LogCapture log;
    EXPECT_EQ(comm->openDevice(), -61);
    EXPECT_THAT(log.plainMessages(),
                Contains(" -> unable to release kernel lock" + blanks(37) + "on usb fake error"));
    EXPECT_THAT(usb.callsOf("claim"), SizeIs(1));
    EXPECT_THAT(usb.callsOf("close"), IsEmpty());
    EXPECT_EQ(write({1}), 0) << "the device stays open";
}

TEST_F(IOCommTest, CloseWhenNotOpen)
{
    attach(FakeDevice());
    LogCapture log;
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_THAT(usb.calls, IsEmpty());
    EXPECT_THAT(log.plainMessages(), Contains("closeDevice -> closing device"));
}

TEST_F(IOCommTest, Closes)
{
    FakeDevice device;
    device.deviceClass = 0;
    device.interfaces = {{7}, {16}};
    open(device);
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_THAT(usb.calls, ElementsAre("release 1", "close"));
    EXPECT_EQ(write({1}), 4);
    EXPECT_EQ(comm->closeDevice(), 0);
    EXPECT_THAT(usb.calls, SizeIs(2));
}

TEST_F(IOCommTest, ReleaseFails)
{
    open();
    usb.fail("release", -19);
    LogCapture log;
    EXPECT_EQ(comm->closeDevice(), 13);
    EXPECT_THAT(usb.calls, ElementsAre("release 0"));
    EXPECT_THAT(log.plainMessages(), Contains(HasSubstr(" -> Unable to release interface ")));
    EXPECT_THAT(log.plainMessages(), Contains(HasSubstr(" interface num 0")));
    EXPECT_EQ(write({1}), 0) << "the device stays open";
}

TEST_F(IOCommTest, CloseFails)
{
    open();
    usb.fail("close", -9);
    LogCapture log;
    EXPECT_EQ(comm->closeDevice(), 12);
    EXPECT_THAT(log.plainMessages(), Contains(" -> unable to close device"));
    comm.reset();
    EXPECT_THAT(usb.callsOf("close"), SizeIs(1)) << "the library freed the handle already";
}

TEST_F(IOCommTest, OpensAgainAfterClosing)
{
    open();
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(comm->closeDevice(), 0);
        EXPECT_EQ(comm->openDevice(), 0);
    }
    EXPECT_EQ(usb.openHandles, 1);
    EXPECT_EQ(write({1}), 0);
}

// ---- transfers ----------------------------------------------------------------

TEST_F(IOCommTest, TransfersNeedAnOpenDevice)
{
    attach(FakeDevice());
    LogCapture log;
    unsigned char byte = 0;
    int len = 1;
    EXPECT_EQ(write({1}), 4);
    EXPECT_EQ(comm->Read(&byte, &len), 4);
    EXPECT_EQ(log.count(" -> device is closed, open first"), 2);
    EXPECT_THAT(usb.calls, IsEmpty());
}

TEST_F(IOCommTest, TransfersNeedEndpoints)
{
    FakeDevice device;
    device.interfaces = {{255, {}}};
    open(device);
    LogCapture log;
    unsigned char byte = 0;
    int len = 1;
    EXPECT_EQ(write({1}), 6);
    EXPECT_EQ(comm->Read(&byte, &len), 6);
    EXPECT_THAT(log.plainMessages(), Contains(" -> endpoint invalid\n"));
    EXPECT_THAT(log.plainMessages(), Contains(" -> invalid read endpoint"));
    EXPECT_THAT(usb.calls, IsEmpty());
}

TEST_F(IOCommTest, Writes)
{
    open();
    setenv("ENABLE_SL_DUMP", "1", 1);
    LogCapture log;
    EXPECT_EQ(write({1, 2, 0xAB}), 0);
    unsetenv("ENABLE_SL_DUMP");
    EXPECT_THAT(usb.calls, ElementsAre("write 02 3"));
    EXPECT_THAT(usb.lastWritten, ElementsAre(1, 2, 0xAB));
    EXPECT_EQ(usb.timeout, 30000);
    EXPECT_THAT(log.plainMessages(), ElementsAre("writing data on USB", "(size: 3)", "01 02 ab "));
}

TEST_F(IOCommTest, WriteFailsOnNegativeResultsOnly)
{
    open();
    LogCapture log;
    usb.fail("write", -110);
    EXPECT_EQ(write({1}), 14);
    EXPECT_THAT(log.plainMessages(), Contains(" -> write error -110 = fake error\n"));
    usb.fail("write", 1);
    EXPECT_EQ(write({1, 2, 3}), 0) << "a short write is not detected";
}

TEST_F(IOCommTest, Reads)
{
    open();
    LogCapture log;
    usb.deliver({5, 6, 7});
    unsigned char bytes[100];
    int len = 100;
    EXPECT_EQ(comm->Read(bytes, &len), 0);
    EXPECT_EQ(len, 3);
    EXPECT_THAT(Bytes(bytes, bytes + 3), ElementsAre(5, 6, 7));
    EXPECT_EQ(usb.timeout, 30000);
    EXPECT_THAT(usb.calls, ElementsAre("read 81 100"));
    EXPECT_THAT(log.plainMessages(), Contains("Read -> read device of 100 bytes of data"));
}

TEST_F(IOCommTest, ReadFailsOnZeroBytesToo)
{
    open();
    for (const int result : {0, -110, -19}) {
        LogCapture log;
        usb.deliverResult(result);
        unsigned char bytes[100];
        int len = 100;
        EXPECT_EQ(comm->Read(bytes, &len), 15);
        EXPECT_EQ(len, 0);
        EXPECT_THAT(log.plainMessages(),
                    Contains(" -> read error " + std::to_string(result) + " = fake error\n"));
    }
}

// ---- commands -----------------------------------------------------------------

class IOCommCommandTest : public IOCommTest {
protected:
    void SetUp() override { openWith(326); }

    void openWith(int version)
    {
        open();
        command.reset(ICommand::createCmdInstance(version));
        command->setConfigReader(&store);
        EXPECT_EQ(comm->setCommand(command.get()), 0);
    }

    struct Store : ConfigReader {
        int LoadConfig(const char*) override { return 1; }
    } store;
    std::unique_ptr<ICommand> command;
    CResponse response;
};

TEST_F(IOCommCommandTest, NeedsACommandObject)
{
    open();
    LogCapture log;
    EXPECT_EQ(comm->writeCommand(1, &response), 2);
    EXPECT_THAT(log.plainMessages(),
                ElementsAre("writeCommand -> write command", " -> command object NULL"));
    EXPECT_THAT(usb.calls, IsEmpty());
}

TEST_F(IOCommCommandTest, InvalidCommand)
{
    for (const int id : {8, 1000}) {
        LogCapture log;
        EXPECT_EQ(comm->writeCommand(id, &response), 5);
        EXPECT_THAT(log.plainMessages(), Contains(" -> invalid command"));
    }
    EXPECT_THAT(usb.calls, IsEmpty());
}

TEST_F(IOCommCommandTest, WriteFails)
{
    LogCapture log;
    usb.fail("write", -1);
    usb.deliver(replyTo(1));
    EXPECT_EQ(comm->writeCommand(1, &response), 14);
    EXPECT_THAT(log.plainMessages(), Contains(" -> unable to write command"));
    EXPECT_THAT(usb.callsOf("read"), IsEmpty());
}

TEST_F(IOCommCommandTest, WriteToAClosedDevice)
{
    comm->closeDevice();
    EXPECT_EQ(comm->writeCommand(1, &response), 14);
}

TEST_F(IOCommCommandTest, CommandsWithoutReply)
{
    for (const int id : {0, 7}) {
        usb.calls.clear();
        usb.deliver(replyTo(id));
        LogCapture log;
        EXPECT_EQ(comm->writeCommand(id, &response), 0);
        EXPECT_THAT(usb.calls, ElementsAre("write 02 8"));
        EXPECT_THAT(log.plainMessages(), Contains("command id is " + std::to_string(id)));
        EXPECT_FALSE(log.contains("waiting for response"));
    }
}

TEST_F(IOCommCommandTest, CommandsWithReply)
{
    for (int id = 1; id <= 6; id++) {
        usb.calls.clear();
        usb.deliver(replyTo(id, 0x80, 3));
        LogCapture log;
        EXPECT_EQ(comm->writeCommand(id, &response), id);
        EXPECT_THAT(usb.calls,
                    ElementsAre(id == 3 || id == 4 ? "write 02 32" : "write 02 8", "read 81 512"));
        EXPECT_EQ(usb.lastWritten[2], kCommandCode[id]);
        EXPECT_EQ(response.getReply(), id);
        EXPECT_EQ(response.getADFStatus(), 3);
        EXPECT_THAT(log.plainMessages(), Contains("waiting for response"));
    }
}

TEST_F(IOCommCommandTest, WrapsCommands)
{
    command->setNpa(1);
    EXPECT_EQ(comm->writeCommand(0, &response), 0);
    EXPECT_THAT(usb.calls, ElementsAre("write 02 28"));
}

TEST_F(IOCommCommandTest, LogsEveryByte)
{
    usb.deliver(replyTo(1, 0x80, 2));
    LogCapture log;
    comm->writeCommand(1, &response);
    const std::regex byteLine("[ 0-9A-F][0-9A-F] [0-9]+");
    std::vector<std::string> bytes;
    for (const std::string& line : log.plainMessages()) {
        if (std::regex_match(line, byteLine)) {
            bytes.push_back(line);
        }
    }
    ASSERT_THAT(bytes, SizeIs(8 + 512));
    EXPECT_EQ(bytes[0], "1B 0");
    EXPECT_EQ(bytes[2], " 4 2");
    EXPECT_EQ(bytes[8], "1B 0");
    EXPECT_EQ(bytes[8 + 7], " 2 7");
    EXPECT_EQ(bytes[8 + 511], " 0 511") << "the room behind the reply is clear";
}

TEST_F(IOCommCommandTest, SkipsRepliesToOtherCommands)
{
    usb.deliver(replyTo(1));
    usb.deliver({1, 2, 3});  // too short for a reply
    usb.deliverResult(0);
    usb.deliverResult(-110);
    usb.deliver(replyTo(3, 130));
    usb.deliver(replyTo(1));
    EXPECT_EQ(comm->writeCommand(3, &response), 3);
    EXPECT_EQ(response.getStatus(), 130);
    EXPECT_THAT(usb.callsOf("read"), SizeIs(5));
    EXPECT_THAT(usb.callsOf("write"), SizeIs(1));
}

TEST_F(IOCommCommandTest, NoReplyObject)
{
    usb.deliver(replyTo(1));
    usb.deliver(replyTo(5));
    EXPECT_EQ(comm->writeCommand(5, nullptr), 5);
}

TEST_F(IOCommCommandTest, GivesUpAfter30000Attempts)
{
    EXPECT_EQ(comm->writeCommand(5, &response), 15);
    EXPECT_THAT(usb.callsOf("read"), SizeIs(30000));
}

TEST_F(IOCommCommandTest, LastResultStandsAfterTheAttempts)
{
    for (int i = 0; i < 29999; i++) {
        usb.deliverResult(0);
    }
    usb.deliver(replyTo(1));
    usb.deliver(replyTo(5));
    EXPECT_EQ(comm->writeCommand(5, &response), 1);
}

// The reply has come and is gone: another one never comes.
TEST_F(IOCommCommandTest, NoWaitForAReplyThatMemoryLacksFor)
{
    usb.deliver(replyTo(1));
    usb.deliver(replyTo(1));
    int result = TRANSPORT_BAD_COMMAND;
    for (int granted = 0; result == TRANSPORT_BAD_COMMAND; ++granted) {
        const Allocations lacking(granted, 1);
        result = comm->writeCommand(1, &response);
    }
    EXPECT_EQ(result, TRANSPORT_NO_MEMORY);
    EXPECT_THAT(usb.callsOf("read"), SizeIs(1));
}

TEST_F(IOCommCommandTest, CancelEndsTheWait)
{
    CancelToken token;
    comm->watchCancel(&token);
    int reads = 0;
    usb.onBulkRead = [&] {
        if (++reads == 3) {
            token.request();
        }
    };
    EXPECT_EQ(comm->writeCommand(5, &response), 15);
    EXPECT_EQ(reads, 3);
}

// ---- the image stream ------------------------------------------------------------

class IOCommImageTest : public IOCommCommandTest {
protected:
    void SetUp() override { startWith(326); }

    void startWith(int version)
    {
        openWith(version);
        start();
    }

    void start()
    {
        usb.deliver(replyTo(4));
        ASSERT_EQ(comm->writeCommand(4, &response), 4);
        usb.calls.clear();
    }

    int readImage(const Bytes& block)
    {
        usb.deliver(block);
        return comm->ReadImage(&got, &buffer, &image);
    }

    // The bytes that went to the engine so far.
    Bytes delivered()
    {
        Bytes bytes(static_cast<std::size_t>(buffer.GetAllDataSize()));
        EXPECT_EQ(buffer.GetProcessedDataSize(), 0);
        buffer.GetAllData(bytes.data(), buffer.GetAllDataSize());
        return bytes;
    }

    int got = 0;
    DataBuffer buffer;
    ImageData image;
};

TEST_F(IOCommImageTest, NeedsAStart)
{
    open();
    comm->setCommand(command.get());
    usb.deliver(ramp(10));
    EXPECT_EQ(comm->ReadImage(&got, &buffer, &image), 15);
    comm->closeDevice();
    EXPECT_EQ(comm->ReadImage(&got, &buffer, &image), 4);
    EXPECT_EQ(got, 0);
}

TEST_F(IOCommImageTest, ReadFails)
{
    LogCapture log;
    EXPECT_EQ(comm->ReadImage(&got, &buffer, &image), 15);
    EXPECT_THAT(usb.calls, ElementsAre("read 81 4096"));
    EXPECT_THAT(log.plainMessages(), Contains(" -> Read Image"));
    EXPECT_THAT(log.plainMessages(), Contains(" -> unable to read image 15"));
    comm->closeDevice();
    EXPECT_EQ(comm->ReadImage(&got, &buffer, &image), 4);
    EXPECT_EQ(got, 0);
}

// Whatever part of a block's header the transfer before brought: the whole one, too.
TEST_F(IOCommImageTest, ImageBytesBehindAHeaderThatLookLikeARecord)
{
    Bytes lookalike = record(1) + ramp(50);
    lookalike[4] = 200;
    Bytes all;
    for (const int version : {326, 401, 402}) {
        startWith(version);
        const Bytes first = imageBlock(ramp(20), version);
        const Bytes second = imageBlock(lookalike, version);
        const std::size_t header = second.size() - lookalike.size();
        for (std::size_t cut = 0; cut <= header; ++cut) {
            const auto at = second.begin() + static_cast<std::ptrdiff_t>(cut);
            EXPECT_EQ(readImage(first + Bytes(second.begin(), at)), 0) << version << " " << cut;
            EXPECT_EQ(readImage(Bytes(at, second.end())), 0) << version << " " << cut;
            all = all + ramp(20) + lookalike;
            ASSERT_EQ(delivered(), all) << version << " " << cut;
        }
        EXPECT_EQ(readImage(first + Bytes(second.begin(),
                                          second.begin() + static_cast<std::ptrdiff_t>(header))),
                  0);
        EXPECT_EQ(readImage(record(1)), 1) << "the page may end behind a header";
        all = all + ramp(20);
        ASSERT_EQ(delivered(), all) << version;
    }
}

TEST_F(IOCommImageTest, RecordsGiveTheirResponse)
{
    for (const int value : {1, 2, 3, 4, 5, 9, 15, 18, 255}) {
        EXPECT_EQ(readImage(record(value)), value);
    }
    EXPECT_EQ(got, 0);
    EXPECT_EQ(buffer.GetAllDataSize(), 0);
}

// The end of a page needs none, and image bytes must not get lost in silence.
TEST_F(IOCommImageTest, WithoutMemory)
{
    const Bytes end = record(1);
    const Bytes block = imageBlock(ramp(50));
    usb.deliver(end);
    usb.deliver(block);
    int results[2] = {};
    {
        const Allocations none(0);
        for (int& result : results) {
            result = comm->ReadImage(&got, &buffer, &image);
        }
    }
    EXPECT_THAT(results, ElementsAre(1, TRANSPORT_NO_MEMORY));
    EXPECT_EQ(got, 0);
    EXPECT_EQ(buffer.GetAllDataSize(), 0);
    EXPECT_EQ(readImage(block), 0);
    EXPECT_EQ(delivered(), ramp(50));
}

TEST_F(IOCommImageTest, PageMarker)
{
    LogCapture log;
    EXPECT_EQ(readImage(pageMarker(2550, 0x01020304, 5, 6, 7, 0)), 9);
    EXPECT_EQ(image.GetActualScanWidth(), 2550);
    EXPECT_EQ(image.GetActualScanHeight(), 0x01020304);
    EXPECT_EQ(image.GetInterleave(), 0);
    EXPECT_THAT(log.plainMessages(), Contains(" -> size is 31"));
    const Calls expected = {"values from scan record data w/ page marker:",
                            " -> width = 2550",
                            " -> height = 16909060",
                            " -> offsetx = 5",
                            " -> offsety = 6",
                            " -> trim = 7",
                            "interleaving is NOT needed"};
    EXPECT_THAT(expected, IsSubsetOf(log.plainMessages()));
}

TEST_F(IOCommImageTest, PageMarkerOfInterleavedData)
{
    LogCapture log;
    EXPECT_EQ(readImage(pageMarker(100, 200, 5, 6, 7, 1)), 9);
    EXPECT_EQ(image.GetInterleave(), 1);
    EXPECT_EQ(image.GetInterleaveWidth(), 100);
    EXPECT_EQ(image.GetInterleaveHeight(), 200);
    EXPECT_EQ(image.GetInterleaveOffsetX(), 5);
    EXPECT_EQ(image.GetInterleaveOffsetY(), 6);
    EXPECT_EQ(image.GetInterleaveTrim(), 7);
    EXPECT_EQ(image.GetActualScanWidth(), 100);
    EXPECT_THAT(log.plainMessages(), Contains("interleaving is needed"));
    EXPECT_FALSE(log.contains("interleaving is NOT needed"));
}

TEST_F(IOCommImageTest, OnlyOneMeansInterleaved)
{
    EXPECT_EQ(readImage(pageMarker(100, 200, 5, 6, 7, 2)), 9);
    EXPECT_EQ(image.GetInterleave(), 0);
}

TEST_F(IOCommImageTest, BytesMissingInAPageMarkerAreZero)
{
    Bytes marker = pageMarker(0x01010164, 200, 5, 6, 7, 0);
    marker.resize(12);
    EXPECT_EQ(readImage(marker), 9);
    EXPECT_EQ(image.GetActualScanWidth(), 0x64);
    EXPECT_EQ(image.GetActualScanHeight(), 0);
}

TEST_F(IOCommImageTest, OtherRecordsLeaveTheGeometry)
{
    image.RecordAttributes(11, 12);
    Bytes marker = pageMarker(100, 200, 5, 6, 7, 1);
    marker[8] = 8;
    EXPECT_EQ(readImage(marker), 8);
    EXPECT_EQ(image.GetActualScanWidth(), 11);
    EXPECT_EQ(image.GetInterleave(), 0);
}

// Fewer bytes than a block header has wait for what comes behind them.
TEST_F(IOCommImageTest, RecordBringsWhatIsHeld)
{
    EXPECT_EQ(readImage(imageBlock(ramp(30)) + Bytes{1, 2, 3, 4, 5}), 0);
    EXPECT_EQ(got, 30);
    EXPECT_EQ(readImage(record(1)), 1);
    EXPECT_EQ(got, 35);
    EXPECT_EQ(delivered(), ramp(30) + (Bytes{1, 2, 3, 4, 5}));
}

TEST_F(IOCommImageTest, DataWithoutHeader)
{
    got = 1000;
    EXPECT_EQ(readImage(ramp(300)), 0);
    EXPECT_EQ(got, 1300) << "the count is added";
    EXPECT_EQ(delivered(), ramp(300));
}

TEST_F(IOCommImageTest, HeaderDump)
{
    LogCapture log;
    readImage(ramp(3, 0x0E));
    Calls expected = {" -> size is 3",
                      " -> image data acquired",
                      " -> <<begin of header dump>>",
                      "  E  F 10  0  0  0  0  0  0  0",
                      "  0  0  0  0  0  0  0  0  0  0",
                      " -> <<end of header dump>>"};
    EXPECT_THAT(expected, IsSubsetOf(log.plainMessages()));
}

class IOCommBlockTest : public IOCommImageTest, public testing::WithParamInterface<int> {
protected:
    void SetUp() override { startWith(GetParam()); }
    Bytes block(const Bytes& data) { return imageBlock(data, GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Versions, IOCommBlockTest, testing::Values(326, 401, 402),
                         testing::PrintToStringParamName());

TEST_P(IOCommBlockTest, HeaderIsTakenOff)
{
    EXPECT_EQ(readImage(block(ramp(100))), 0);
    EXPECT_EQ(got, 100);
    EXPECT_EQ(delivered(), ramp(100));
}

TEST_P(IOCommBlockTest, SeveralBlocksInOneRead)
{
    EXPECT_EQ(readImage(block(ramp(100)) + block(ramp(50, 7)) + block(ramp(200))), 0);
    EXPECT_EQ(got, 350);
    EXPECT_EQ(delivered(), ramp(100) + ramp(50, 7) + ramp(200));
}

// However the stream is cut, the same bytes arrive: headers wait for their rest.
TEST_P(IOCommBlockTest, StreamCutAnywhere)
{
    const Bytes data = ramp(60) + ramp(45, 100) + ramp(70);
    const Bytes stream = block(ramp(60)) + block(ramp(45, 100)) + block(ramp(70));
    for (std::size_t cut = 1; cut < stream.size(); cut++) {
        start();
        buffer.Reset();
        got = 0;
        const auto middle = stream.begin() + static_cast<std::ptrdiff_t>(cut);
        EXPECT_EQ(readImage(Bytes(stream.begin(), middle)), 0);
        EXPECT_EQ(readImage(Bytes(middle, stream.end())), 0);
        EXPECT_EQ(got, 175) << "cut at " << cut;
        EXPECT_EQ(delivered(), data) << "cut at " << cut;
    }
}

TEST_P(IOCommBlockTest, BlockOverManyReads)
{
    const Bytes data = ramp(20000);
    const Bytes stream = block(data);
    for (std::size_t at = 0; at < stream.size(); at += 4096) {
        const std::size_t end = std::min(at + 4096, stream.size());
        EXPECT_EQ(readImage(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                  stream.begin() + static_cast<std::ptrdiff_t>(end))),
                  0);
    }
    EXPECT_EQ(delivered(), data);
}

TEST_P(IOCommBlockTest, DataThatLooksLikeARecord)
{
    Bytes fake = record(1) + ramp(91);  // its length field does not fit 102 bytes
    EXPECT_EQ(readImage(block(ramp(30)) + block(ramp(20) + fake)), 0);

    start();
    buffer.Reset();
    const Bytes stream = block(ramp(20) + fake);
    const auto middle = stream.end() - static_cast<std::ptrdiff_t>(fake.size());
    EXPECT_EQ(readImage(Bytes(stream.begin(), middle)), 0);
    EXPECT_EQ(readImage(Bytes(middle, stream.end())), 0) << "taken for a record";
    EXPECT_EQ(delivered(), ramp(20) + fake);
}

TEST_P(IOCommBlockTest, RecordInsideABlockThatStaysOpen)
{
    const Bytes stream = block(ramp(100));
    EXPECT_EQ(readImage(Bytes(stream.begin(), stream.end() - 40)), 0);
    EXPECT_EQ(readImage(record(18)), 18);
    EXPECT_EQ(readImage(record(3)), 3);
    EXPECT_EQ(readImage(Bytes(stream.end() - 40, stream.end())), 0);
    EXPECT_EQ(delivered(), ramp(100));
}

TEST_P(IOCommBlockTest, StartForgetsTheOldStream)
{
    const Bytes stream = block(ramp(100));
    readImage(Bytes(stream.begin(), stream.begin() + 8));
    start();
    EXPECT_EQ(readImage(block(ramp(10))), 0);
    EXPECT_EQ(delivered(), ramp(10));

    readImage(Bytes(stream.begin(), stream.end() - 5));
    buffer.Reset();
    start();
    EXPECT_EQ(readImage(block(ramp(10))), 0);
    EXPECT_EQ(delivered(), ramp(10));
}

// ---- names -------------------------------------------------------------------------

TEST_F(IOCommTest, Names)
{
    open();
    LogCapture log;
    char vendor[100] = "";
    char product[100] = "";
    EXPECT_EQ(comm->getVendorName(vendor, sizeof vendor), 0);
    EXPECT_EQ(comm->getProductName(product, sizeof product), 0);
    EXPECT_STREQ(vendor, "Quillon");
    EXPECT_STREQ(product, "Flatbed");
    EXPECT_THAT(log.plainMessages(), ElementsAre("getVendorName -> get vendor name = Quillon",
                                                 "getProductName -> get product name = Flatbed"));
    EXPECT_THAT(usb.calls, ElementsAre("string 1 100", "string 2 100"));
}

TEST_F(IOCommTest, NamesThatCannotBeRead)
{
    FakeDevice device;
    device.strings.clear();
    open(device);
    char vendor[100] = "";
    char product[5] = "";
    EXPECT_EQ(comm->getVendorName(vendor, sizeof vendor), 0);
    EXPECT_EQ(comm->getProductName(product, sizeof product), 0);
    EXPECT_STREQ(vendor, "Unknown Vendor");
    EXPECT_STREQ(product, "Unkn");
}

TEST_F(IOCommTest, OneNameThatDoesNotExist)
{
    for (const bool hasVendor : {true, false}) {
        FakeDevice device;
        device.manufacturerIndex = hasVendor ? 1 : 0;
        device.productIndex = hasVendor ? 0 : 2;
        open(device);
        char text[100] = "";
        EXPECT_EQ(comm->getVendorName(text, sizeof text), hasVendor ? 0 : 96);
        EXPECT_EQ(comm->getProductName(text, sizeof text), hasVendor ? 97 : 0);
        EXPECT_STREQ(text, hasVendor ? "Quillon" : "Flatbed");
    }
}

TEST_F(IOCommTest, NamesThatDoNotExist)
{
    FakeDevice device;
    device.manufacturerIndex = 0;
    device.productIndex = 0;
    open(device);
    char text[100] = "as it was";
    EXPECT_EQ(comm->getVendorName(text, sizeof text), 96);
    EXPECT_EQ(comm->getProductName(text, sizeof text), 97);
    EXPECT_STREQ(text, "as it was");
}

TEST_F(IOCommTest, NamesOfAClosedDevice)
{
    attach(FakeDevice());
    char text[100] = "";
    comm->getVendorName(text, sizeof text);
    comm->getProductName(text, sizeof text);
    EXPECT_THAT(usb.calls, IsEmpty());
}

}  // namespace
