// SPDX-License-Identifier: LGPL-2.1-or-later
// The entry points: device list, parameters, start and read.
#include "FakeUsb.h"
#include "HandleTest.h"
#include "LogCapture.h"
#include "SaneInterface.h"
#include "Sandbox.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using namespace entry;

namespace {

constexpr char kDump[] = "/tmp/scan.dump";

// ---- without a handle --------------------------------------------------------------------

TEST(InitTest, TellsTheVersion)
{
    LogCapture log;
    SANE_Int version = 0;
    EXPECT_EQ(sane_ScanLib_init(&version, nullptr), SANE_STATUS_GOOD);
    EXPECT_EQ(version, 0x01000001);
    EXPECT_EQ(sane_ScanLib_init(nullptr, nullptr), SANE_STATUS_GOOD);
    EXPECT_THAT(log.messages(), Contains("::::::::::::::: SCANLIB START ::::::::::::::: "));
    sane_ScanLib_exit();
    EXPECT_THAT(log.messages(), Contains("::::::::::::::: SCANLIB END ::::::::::::::: "));
}

TEST(IoModeTest, IsNotSupported)
{
    TestEngine engine;
    ScanLib* handle = &engine;
    EXPECT_EQ(sane_ScanLib_set_io_mode(handle, SANE_TRUE), SANE_STATUS_UNSUPPORTED);
    EXPECT_EQ(sane_ScanLib_set_io_mode(handle, SANE_FALSE), SANE_STATUS_UNSUPPORTED);
    SANE_Int fd = 1234;
    EXPECT_EQ(sane_ScanLib_get_select_fd(handle, &fd), SANE_STATUS_UNSUPPORTED);
    EXPECT_EQ(fd, 1234);
    EXPECT_EQ(sane_ScanLib_get_select_fd(handle, nullptr), SANE_STATUS_UNSUPPORTED);
}

TEST(OpenDeviceTest, FailureWritesNoHandle)
{
    char other = 0;
    SANE_Handle handle = &other;
    for (const char* name : {"libusb/001/002", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(sane_ScanLib_open(name, &handle), SANE_STATUS_UNSUPPORTED);
        EXPECT_EQ(handle, &other);
    }
}

// What a front end has that goes on behind a failed open.
TEST(NoHandleTest, IsRefused)
{
    SANE_Word value = 75;
    SANE_Int info = 0;
    for (const SANE_Action action : {SANE_ACTION_GET_VALUE, SANE_ACTION_SET_VALUE}) {
        EXPECT_EQ(sane_ScanLib_control_option(nullptr, 2, action, &value, &info),
                  SANE_STATUS_INVAL);
    }
    SANE_Parameters parameters = {};
    EXPECT_EQ(sane_ScanLib_get_parameters(nullptr, &parameters), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_ScanLib_start(nullptr), SANE_STATUS_INVAL);
    SANE_Byte data[10];
    SANE_Int length = 5;
    EXPECT_EQ(sane_ScanLib_read(nullptr, data, 10, &length), SANE_STATUS_INVAL);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(sane_ScanLib_set_io_mode(nullptr, SANE_FALSE), SANE_STATUS_UNSUPPORTED);
    EXPECT_EQ(sane_ScanLib_get_select_fd(nullptr, nullptr), SANE_STATUS_UNSUPPORTED);
    sane_ScanLib_get_option_descriptor(nullptr, 0);
    sane_ScanLib_cancel(nullptr);
    sane_ScanLib_close(nullptr);
}

TEST(NullPointersTest, AreRefused)
{
    EXPECT_EQ(sane_ScanLib_get_devices(nullptr, SANE_FALSE), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_ScanLib_open("libusb/001/002", nullptr), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_ScanLib_open(nullptr, nullptr), SANE_STATUS_INVAL);
}

// ---- the device list -----------------------------------------------------------------------

class DeviceListTest : public testing::Test {
protected:
    ~DeviceListTest() override { sane_ScanLib_exit(); }

    void configure() { folder.write("Quillon_1_0_0.conf", "usb 0x1234 0x3260 /m.ini Model\n"); }

    // Vendor, model, type and name of each device.
    std::vector<std::vector<std::string>> list()
    {
        const SANE_Device** devices = nullptr;
        EXPECT_EQ(sane_ScanLib_get_devices(&devices, SANE_FALSE), SANE_STATUS_GOOD);
        std::vector<std::vector<std::string>> all;
        for (; devices != nullptr && *devices != nullptr; devices++) {
            const SANE_Device& device = **devices;
            all.push_back({device.vendor, device.model, device.type, device.name});
        }
        return all;
    }

    const EmptyFolder folder{"/etc/sane.d"};
};

TEST_F(DeviceListTest, SplitsTheNames)
{
    FakeDevice second;
    second.file = "010";
    second.strings = {{1, "a/b:c"}, {2, "Combo 5"}};
    FakeUsb usb({FakeDevice(), second});
    configure();
    EXPECT_THAT(list(), ElementsAre(ElementsAre("Quillon", "Flatbed", "Scanner", "libusb/001/002"),
                                    ElementsAre("a-b:c", "Combo 5", "Scanner", "libusb/001/010")));
}

TEST_F(DeviceListTest, MayBeAskedForAgain)
{
    FakeUsb usb;
    configure();
    EXPECT_EQ(list().size(), 1U);
    usb.add(FakeDevice());
    EXPECT_EQ(list().size(), 2U);
    usb.unplugAll();
    const SANE_Device** devices = nullptr;
    EXPECT_EQ(sane_ScanLib_get_devices(&devices, SANE_TRUE), SANE_STATUS_INVAL);
    usb.add(FakeDevice());
    EXPECT_EQ(list().size(), 1U);
    sane_ScanLib_exit();
    sane_ScanLib_exit();
    EXPECT_EQ(list().size(), 1U);
}

TEST_F(DeviceListTest, NoScanners)
{
    FakeUsb usb{std::vector<FakeDevice>()};
    const SANE_Device* none = nullptr;
    const SANE_Device** const untouched = &none;
    for (const bool isConfigured : {false, true}) {
        if (isConfigured) {
            configure();
        }
        LogCapture log;
        const SANE_Device** devices = untouched;
        EXPECT_EQ(sane_ScanLib_get_devices(&devices, SANE_FALSE), SANE_STATUS_INVAL);
        EXPECT_EQ(devices, untouched);
        EXPECT_THAT(log.plainMessages(), Contains("No scanners found"));
        EXPECT_THAT(log.plainMessages(), Contains("backend name is "));
    }
}

TEST_F(DeviceListTest, EngineCodes)
{
    FakeUsb usb{std::vector<FakeDevice>()};
    char** names = nullptr;
    int count = 0;
    EXPECT_EQ(ScanLib::GetScanners(&names, &count), 17);
    configure();
    EXPECT_EQ(ScanLib::GetScanners(&names, &count), 1);
    EXPECT_EQ(names, nullptr);
}

// ---- on a handle ---------------------------------------------------------------------------

TEST_F(HandleTest, Parameters)
{
    engine->set("CURRENTBRX", 50.8);
    for (const int depth : {3, 1, 2, 0, 24}) {
        engine->set("COLORDEPTH", depth);
        SANE_Parameters parameters = {};
        EXPECT_EQ(sane_ScanLib_get_parameters(handle(), &parameters), SANE_STATUS_GOOD);
        EXPECT_EQ(parameters.format, depth == 3 ? SANE_FRAME_RGB : SANE_FRAME_GRAY);
        EXPECT_EQ(parameters.last_frame, SANE_TRUE);
        EXPECT_EQ(parameters.depth, 8);
        EXPECT_EQ(parameters.pixels_per_line, 20);
        EXPECT_EQ(parameters.lines, 10);
        EXPECT_EQ(parameters.bytes_per_line, 20 * depth);
    }
}

TEST_F(HandleTest, ParametersOfAPreview)
{
    engine->set("PREVIEW", 1);
    engine->set("CURRENTDPI", 5555);
    SANE_Parameters parameters = {};
    EXPECT_EQ(sane_ScanLib_get_parameters(handle(), &parameters), SANE_STATUS_GOOD);
    EXPECT_EQ(parameters.lines, 75);
    EXPECT_EQ(engine->GetIntValue("CURRENTDPI"), 10);
    engine->set("PREVIEW", 2);
    EXPECT_EQ(sane_ScanLib_get_parameters(handle(), &parameters), SANE_STATUS_GOOD);
    EXPECT_EQ(parameters.lines, 10);
}

TEST_F(HandleTest, StartFromTheFlatbed)
{
    engine->set("CURRENTTLX", 10.0);
    engine->set("CURRENTBRX", 50.0);
    LogCapture log;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_EQ(left(), 10.0);
    EXPECT_EQ(right(), 50.0);
    for (const char* line :
         {"before ScanLib::Start. ", "after ScanLib::Start. ", "Scan Source is NOT ADF"}) {
        EXPECT_THAT(log.plainMessages(), Contains(line));
    }
}

const char* const kMirrorLog[] = {
    "width =  szCurrentBrx - szCurrentTlx",
    "40.000000 = 50.000000 - 10.000000",
    "szCurrentBrx = szBottomRightX - szCurrentTlx",
    "205.900000 = 215.900000 - 10.000000",
    "szCurrentTlx = szBottomRightX - (szCurrentTlx - width)",
    "165.900000 = 215.900000 - (10.000000 + 40.000000)",
};

TEST_F(HandleTest, StartFromTheFeederMirrorsTheArea)
{
    engine->set("SCANNERTYPE", 4);
    engine->set("SCAN_SOURCE", 2);
    engine->set("ADFDPILIMIT", 300);
    engine->transport->feederStatus = 2;
    engine->set("CURRENTTLX", 10.0);
    engine->set("CURRENTBRX", 50.0);
    LogCapture log;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_NEAR(left(), 165.9, 1e-9);
    EXPECT_NEAR(right(), 205.9, 1e-9);
    EXPECT_THAT(log.plainMessages(), Contains("Scan Source is ADF"));
    EXPECT_THAT(kMirrorLog, testing::IsSubsetOf(log.plainMessages()));

    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_NEAR(left(), 10.0, 1e-9);
    EXPECT_NEAR(right(), 50.0, 1e-9);
}

TEST_F(HandleTest, FailedStartMirrorsForAnySource)
{
    engine->set("CURRENTTLX", 10.0);
    engine->set("CURRENTBRX", 50.0);
    engine->set("CURRENTDPI", 75);
    engine->transport->replies[3] = replyTo(3, 137);
    LogCapture log;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_NO_MEM);
    EXPECT_NEAR(left(), 165.9, 1e-9);
    EXPECT_NEAR(right(), 205.9, 1e-9);
    EXPECT_EQ(engine->GetIntValue("CURRENTDPI"), 10);
    EXPECT_THAT(log.plainMessages(), Contains("ScanLib start failed"));
    for (const char* line : kMirrorLog) {
        EXPECT_THAT(log.plainMessages(), Not(Contains(line)));
    }
}

// ---- odd arguments -------------------------------------------------------------------------

TEST_F(HandleTest, NullPointers)
{
    start();
    engine->transport->steps = {{0, ramp(100)}};
    SANE_Byte data[50];
    EXPECT_EQ(sane_ScanLib_read(handle(), data, 50, nullptr), SANE_STATUS_GOOD);
    EXPECT_EQ(data[49], ramp(50).back());
    length = -1;
    EXPECT_EQ(sane_ScanLib_read(handle(), nullptr, 50, &length), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(sane_ScanLib_get_parameters(handle(), nullptr), SANE_STATUS_GOOD);
    EXPECT_EQ(read(50), SANE_STATUS_GOOD) << "nothing has got lost";
    EXPECT_EQ(length, 50);
    EXPECT_EQ(read(50), SANE_STATUS_EOF);
}

TEST_F(HandleTest, LengthsBelowOne)
{
    start();
    engine->transport->steps = {{0, ramp(100)}};
    SANE_Byte data[1] = {7};
    for (const SANE_Int size : {0, -1, -40000, std::numeric_limits<SANE_Int>::min()}) {
        length = -1;
        EXPECT_EQ(sane_ScanLib_read(handle(), data, size, &length), SANE_STATUS_GOOD);
        EXPECT_EQ(length, 0);
        EXPECT_EQ(data[0], 7);
    }
    EXPECT_THAT(*calls, IsEmpty()) << "nothing to ask the device for";
    EXPECT_EQ(read(100), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 100);
}

TEST_F(HandleTest, ReadsOutsideOfAFrame)
{
    engine->transport->lastStep = {0, ramp(10)};
    EXPECT_NE(read(), SANE_STATUS_GOOD) << "before any start";
    engine->transport->writeResults[4] = 15;
    EXPECT_NE(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    calls->clear();
    EXPECT_NE(read(), SANE_STATUS_GOOD) << "behind a failed start";
    EXPECT_THAT(*calls, IsEmpty());
    engine->transport->writeResults.clear();
    start();
    engine->transport->steps = {{1, ramp(100)}};
    EXPECT_EQ(read(), SANE_STATUS_GOOD);
    calls->clear();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(read(), SANE_STATUS_EOF);
        EXPECT_EQ(length, 0);
    }
    EXPECT_THAT(*calls, IsEmpty()) << "nothing is asked of the device";
    cancel();
    EXPECT_NE(read(), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 0);
    EXPECT_THAT(*calls, ElementsAre("close"));
}

// ---- the dump file -------------------------------------------------------------------------

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST_F(HandleTest, DumpFileIsCreated)
{
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    struct stat status = {};
    ASSERT_EQ(stat(kDump, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(status.st_size, 0);
}

TEST_F(HandleTest, DumpFileIsCreatedByAFailedStartToo)
{
    engine->transport->openResult = 8;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_DEVICE_BUSY);
    EXPECT_EQ(access(kDump, F_OK), 0);
}

TEST_F(HandleTest, DumpFileIsNotTruncated)
{
    folder.write("scan.dump", "kept");
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_EQ(std::filesystem::file_size(kDump), 4U);
}

TEST_F(HandleTest, DumpFileIsNotFollowed)
{
    std::filesystem::create_symlink("/tmp/victim", kDump);
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    EXPECT_NE(access("/tmp/victim", F_OK), 0);
}

TEST_F(HandleTest, DumpFileNeedNotOpen)
{
    std::filesystem::create_directory(kDump);
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
}

TEST_F(HandleTest, StartsLeaveNoDescriptors)
{
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
    }
    EXPECT_LE(openDescriptors(), before + 1);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == kDump) {
            EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    sane_ScanLib_close(handle());
    engine = nullptr;
    sane_ScanLib_exit();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(HandleTest, ReadPassesTheResult)
{
    start();
    engine->transport->steps = {{0, ramp(10)}};
    EXPECT_EQ(read(10), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 10);
    EXPECT_EQ(read(10), SANE_STATUS_EOF);
    EXPECT_EQ(length, 0);
}

// ---- what is thrown stays inside -----------------------------------------------------------

TEST_F(HandleTest, ExceptionsBecomeStatuses)
{
    const auto noMemory = [] { throw std::bad_alloc(); };
    const auto other = [] { throw std::runtime_error("other"); };
    const auto odd = [] { throw 5; };
    const std::pair<std::function<void()>, SANE_Status> kinds[] = {
        {noMemory, SANE_STATUS_NO_MEM}, {other, SANE_STATUS_IO_ERROR}, {odd, SANE_STATUS_IO_ERROR}};
    for (const auto& [thrower, status] : kinds) {
        const std::function<void()>& raise = thrower;
        engine->transport->onCommand = [&](int) { raise(); };
        EXPECT_EQ(sane_ScanLib_start(handle()), status);
        engine->transport->onCommand = nullptr;
        start();
        engine->transport->steps = {{0, ramp(10), [&](ImageData*) { raise(); }}};
        EXPECT_EQ(read(), status);
        EXPECT_EQ(length, 0);
        engine->transport->onClose = raise;
        cancel();
        engine->transport->onClose = nullptr;
    }
}

// ---- the mirrored area ---------------------------------------------------------------------

TEST_F(HandleTest, MirroringKeepsEveryPixel)
{
    engine->set("SCANNERTYPE", 4);
    engine->set("SCAN_SOURCE", 2);
    engine->set("ADFDPILIMIT", 300);
    engine->transport->feederStatus = 2;
    setResolution(300);
    constexpr double kPixel = 25.4 / 300;
    // Whole pixels: the last bit of a width decides about one of them.
    for (int n = 0; n < 500; n++) {
        const double corner = n * kPixel;
        engine->set("CURRENTTLX", corner);
        engine->set("CURRENTBRX", corner + (310 + n) * kPixel);
        engine->set("CURRENTDPI", 300);
        const int pixels = engine->GetIntValue("PIXELS_PER_LINE");
        ASSERT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
        EXPECT_EQ(engine->GetIntValue("PIXELS_PER_LINE"), pixels) << n;
    }
}

}  // namespace
