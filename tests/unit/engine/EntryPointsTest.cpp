// The entry points: device list, parameters, start, and cancel at any moment.
#include "FakeUsb.h"
#include "LogCapture.h"
#include "SaneInterface.h"
#include "Sandbox.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
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

class HandleTest : public testing::Test {
protected:
    HandleTest() : engine(new TestEngine), calls(engine->journal)
    {
        engine->set("RESOLUTIONS", 3);
        engine->set("RESOLUTIONS_1", 75);
        engine->set("RESOLUTIONS_2", 10);
        engine->set("RESOLUTIONS_3", 300);
        InitOptions(engine);
        setResolution(10);
    }
    ~HandleTest() override
    {
        if (engine != nullptr) {
            sane_ScanLib_close(handle());
        }
        sane_ScanLib_exit();
    }

    SANE_Handle handle() { return static_cast<ScanLib*>(engine); }

    void setResolution(SANE_Word dpi)
    {
        EXPECT_EQ(sane_ScanLib_control_option(handle(), 2, SANE_ACTION_SET_VALUE, &dpi, nullptr),
                  SANE_STATUS_GOOD);
    }

    void start()
    {
        ASSERT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
        calls->clear();
    }

    SANE_Status read(int size = 100)
    {
        std::vector<SANE_Byte> data(static_cast<std::size_t>(size));
        length = -1;
        return sane_ScanLib_read(handle(), data.data(), size, &length);
    }

    void cancel() { sane_ScanLib_cancel(handle()); }

    double left() { return engine->GetDoubleValue("CURRENTTLX"); }
    double right() { return engine->GetDoubleValue("CURRENTBRX"); }

    const EmptyFolder folder{"/tmp"};
    TestEngine* engine;
    std::shared_ptr<Journal> calls;
    SANE_Int length = 0;
};

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

// ---- cancel ---------------------------------------------------------------------------------

TEST_F(HandleTest, ReadPassesTheResult)
{
    start();
    engine->transport->steps = {{0, ramp(10)}};
    EXPECT_EQ(read(10), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 10);
    EXPECT_EQ(read(10), SANE_STATUS_EOF);
    EXPECT_EQ(length, 0);
}

TEST_F(HandleTest, CancelWhileNothingRuns)
{
    cancel();
    EXPECT_THAT(*calls, ElementsAre("close"));
    start();
    cancel();
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close"));
    calls->clear();
    cancel();
    EXPECT_THAT(*calls, ElementsAre("close"));
}

TEST_F(HandleTest, CloseEndsTheJob)
{
    start();
    sane_ScanLib_close(handle());
    engine = nullptr;
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close", "destroyed"));
}

// The ways in which a cancel can arrive while an operation runs.
SANE_Handle interruptedHandle = nullptr;

void cancelOnSignal(int)
{
    sane_ScanLib_cancel(interruptedHandle);
}

struct Arrival {
    const char* name;
    std::function<void(SANE_Handle)> cancel;
    friend void PrintTo(const Arrival& c, std::ostream* out) { *out << c.name; }
};

const Arrival kArrivals[] = {
    {"Nested", [](SANE_Handle handle) { sane_ScanLib_cancel(handle); }},
    {"Signal",
     [](SANE_Handle handle) {
         interruptedHandle = handle;
         const auto before = std::signal(SIGUSR1, cancelOnSignal);
         raise(SIGUSR1);
         std::signal(SIGUSR1, before);
     }},
    {"Thread", [](SANE_Handle handle) { std::thread(sane_ScanLib_cancel, handle).join(); }},
};

class InterruptTest : public HandleTest, public testing::WithParamInterface<Arrival> {
protected:
    // A cancel only leaves a note: it does nothing with the device itself.
    void interrupt()
    {
        const Journal before = *calls;
        LogCapture log;
        GetParam().cancel(handle());
        EXPECT_EQ(*calls, before);
        EXPECT_THAT(log.lines(), IsEmpty());
    }

    // What a cancelled job does with the device.
    void expectCancelled()
    {
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), 1);
        EXPECT_EQ(calls->back(), "close");
        EXPECT_EQ(engine->ScanInProgress, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Arrivals, InterruptTest, testing::ValuesIn(kArrivals), kByName);

TEST_P(InterruptTest, WhileReading)
{
    start();
    engine->transport->steps = {{0, ramp(10)},
                                {0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10)},
                                {0, ramp(10)}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    expectCancelled();
    EXPECT_EQ((*calls)[2], "command 0") << "the device is told before it is read again";
    EXPECT_EQ(std::count(calls->begin(), calls->end(), "close"), 1);
    EXPECT_TRUE(engine->transport->steps.empty()) << "what the device still sends is drained";

    calls->clear();
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(length, 0);
    EXPECT_THAT(*calls, IsEmpty());
}

TEST_P(InterruptTest, WhileThereIsNoData)
{
    start();
    engine->transport->steps = {{18}, {18, {}, [this](ImageData*) { interrupt(); }}, {3}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    expectCancelled();
}

TEST_P(InterruptTest, WhileTheReadFails)
{
    start();
    engine->transport->steps = {{15, {}, [this](ImageData*) { interrupt(); }}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    EXPECT_EQ(calls->back(), "close");
}

TEST_P(InterruptTest, WhileStarting)
{
    engine->SetDoubleValue("CURRENTTLX", 20.0);
    engine->SetDoubleValue("CURRENTBRX", 60.0);
    for (const int command : {3, 4}) {
        engine->transport->onCommand = [&](int id) {
            if (id == command) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(calls->back(), "close");
        EXPECT_EQ(engine->ScanInProgress, 0);
        // The area is as the front end has set it.
        EXPECT_EQ(engine->GetDoubleValue("CURRENTTLX"), 20.0);
        // Only a device that was told to scan is told to stop.
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 4"), command == 4 ? 1 : 0);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), command == 4 ? 1 : 0);
        engine->transport->onCommand = nullptr;
        calls->clear();
    }
}

// A lock that somebody else holds is not undone, one that may be ours is.
TEST_P(InterruptTest, WhileTheLockIsRefused)
{
    const Bytes refused = {0x1B, 0x53, 0x05, 0, 0, 0, 130, 0};
    engine->transport->replies[3] = refused;
    for (const bool isAnswered : {true, false}) {
        if (!isAnswered) {
            engine->transport->writeResults[3] = 15;
        }
        engine->transport->onCommand = [&](int id) {
            if (id == 3) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 5"), isAnswered ? 0 : 1);
        EXPECT_EQ(calls->back(), "close");
        calls->clear();
    }
}

// A device that may scan is told to stop, one that has refused is not.
TEST_P(InterruptTest, WhileTheStartIsRefused)
{
    const Bytes refused = {0x1B, 0x53, 0x01, 0, 0, 0, 130, 0};
    engine->transport->replies[4] = refused;
    for (const bool isAnswered : {true, false}) {
        if (!isAnswered) {
            engine->transport->writeResults[4] = 15;
        }
        engine->transport->onCommand = [&](int id) {
            if (id == 4) {
                interrupt();
            }
        };
        EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_CANCELLED);
        EXPECT_EQ(std::count(calls->begin(), calls->end(), "command 0"), isAnswered ? 0 : 1);
        EXPECT_EQ(calls->back(), "close");
        calls->clear();
    }
}

TEST_P(InterruptTest, TooLateForTheRead)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            interrupt();
        }
    };
    read(100);
    EXPECT_EQ(calls->back(), "close");
}

TEST_P(InterruptTest, NextFrameIsNotCancelled)
{
    start();
    engine->transport->steps = {{0, ramp(10), [this](ImageData*) { interrupt(); }}, {3}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    start();
    engine->transport->steps = {{0, ramp(100)}};
    EXPECT_EQ(read(100), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 100);
    EXPECT_EQ(read(100), SANE_STATUS_EOF);
}

TEST_P(InterruptTest, WhileFlushing)
{
    start();
    engine->transport->steps = {{0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10), [this](ImageData*) { interrupt(); }},
                                {0, ramp(10)}};
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    expectCancelled();
    EXPECT_TRUE(engine->transport->steps.empty());
}

// Whatever the moment of a cancel: no later frame suffers from it.
TEST_P(InterruptTest, WhileALateCancelIsCarriedOut)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            interrupt();
        }
    };
    bool isFirst = true;
    engine->transport->onClose = [&] {
        if (isFirst) {
            isFirst = false;
            interrupt();
        }
    };
    read(100);
    EXPECT_FALSE(isFirst);
    engine->transport->onCommand = nullptr;
    EXPECT_EQ(sane_ScanLib_start(handle()), SANE_STATUS_GOOD);
}

// A front end that gives up while the device is silent.
TEST_F(HandleTest, CloseFromAnotherThread)
{
    start();
    std::atomic<bool> isReading{false};
    std::atomic<bool> isClosing{false};
    const auto duringRead = [&](ImageData*) {
        isReading = true;
        while (!isClosing) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_THAT(*calls, ElementsAre("read")) << "the closing thread waits";
    };
    engine->transport->steps = {{18, {}, duringRead}, {3}};
    std::thread closer([&] {
        while (!isReading) {
            std::this_thread::yield();
        }
        isClosing = true;
        sane_ScanLib_close(handle());
    });
    EXPECT_EQ(read(100), SANE_STATUS_CANCELLED);
    closer.join();
    engine = nullptr;
    EXPECT_EQ(calls->back(), "destroyed");
}

// The running operation may end between a cancel's look at it and its note.
TEST_F(HandleTest, InterruptBehindTheOperation)
{
    start();
    engine->Interrupt();
    EXPECT_THAT(*calls, ElementsAre("command 0", "read", "command 5", "close"));
    EXPECT_EQ(engine->ScanInProgress, 0);
    start();
    engine->transport->steps = {{0, ramp(100)}};
    EXPECT_EQ(read(100), SANE_STATUS_GOOD) << "the request is gone";
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

TEST_F(HandleTest, ALateCancelMayThrow)
{
    start();
    engine->transport->steps = {{1, ramp(10)}};
    engine->transport->onCommand = [this](int id) {
        if (id == 5) {
            cancel();
        }
    };
    engine->transport->onClose = [] { throw std::runtime_error("no close"); };
    LogCapture log;
    read();
    EXPECT_THAT(log.plainMessages(), Contains("[ERROR] cancel failed"));
    engine->transport->onCommand = nullptr;
    engine->transport->onClose = nullptr;
    start();
}

// A front end may end the thread that reads; the handle is free again then.
TEST_F(HandleTest, ThreadIsCancelledWhileReading)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer cannot follow the end of such a thread";
#endif
    start();
    std::atomic<bool> isReading{false};
    const auto wait = [&](ImageData*) {
        isReading = true;
        pause();
    };
    engine->transport->steps = {{18, {}, wait}, {0, ramp(100)}};
    pthread_t thread;
    const auto body = [](void* test) -> void* {
        static_cast<HandleTest_ThreadIsCancelledWhileReading_Test*>(test)->read();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, this), 0);
    while (!isReading) {
        std::this_thread::yield();
    }
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(read(), SANE_STATUS_GOOD);
    EXPECT_EQ(length, 100);
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
