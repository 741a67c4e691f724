// SPDX-License-Identifier: LGPL-2.1-or-later
// The engine: names, store, capabilities, start of a job and its status codes.
#include "LogCapture.h"
#include "TestEngine.h"

#include <gmock/gmock.h>

#include <cstring>

#include <sane/sane.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::TestWithParam;

namespace {

// ---- the configuration file's path --------------------------------------------

struct Symbol {
    const char* name;
    const char* symbol;
    const char* path;  // null: no backend
    int size = 128;
    friend void PrintTo(const Symbol& c, std::ostream* out) { *out << c.name; }
};

class ConfigPathTest : public TestWithParam<Symbol> {};

TEST_P(ConfigPathTest, FollowsFromTheFile)
{
    char path[128] = "untouched";
    EXPECT_EQ(ScanLib::ConfigPathFromSymbol(GetParam().symbol, path, GetParam().size),
              GetParam().path != nullptr);
    EXPECT_STREQ(path, GetParam().path != nullptr ? GetParam().path : "untouched");
}

INSTANTIATE_TEST_SUITE_P(
    Symbols, ConfigPathTest,
    testing::Values(
        Symbol{"Plain", "/usr/lib/sane/libsane-foo.so.1(sane_foo_init+0x12) [0x7f00]",
               "/etc/sane.d/foo.conf"},
        Symbol{"NoFolder", "libsane-foo.so", "/etc/sane.d/foo.conf"},
        Symbol{"AnyCase", "./LibSANE-Foo_1_0.so.1(+0x1)", "/etc/sane.d/Foo_1_0.conf"},
        Symbol{"DashInTheName", "/lib/libsane-a-b.so.1", "/etc/sane.d/a-b.conf"},
        Symbol{"FirstPieceWins", "/opt/libsane-x/libsane-foo.so.1", "/etc/sane.d/x.conf"},
        Symbol{"FirstDashOfThePiece", "/lib/my-libsane-foo.so.1", "/etc/sane.d/libsane-foo.conf"},
        Symbol{"NoDot", "/lib/libsane-foo", "/etc/sane.d/foo.conf"},
        Symbol{"NoRoom", "/lib/libsane-foo.so.1", "/etc/sane", 10},
        Symbol{"OtherFile", "/usr/bin/scanimage(main+0x10) [0x55]", nullptr},
        Symbol{"OtherLibrary", "/usr/lib/libsane.so.1(sane_init+0x10)", nullptr}),
    kByName);

// This program is not a backend's file.
TEST(BackendNameTest, OutsideOfABackend)
{
    char path[128];
    std::memset(path, 'x', sizeof path);
    ScanLib::GetBackendName(path, sizeof path);
    EXPECT_EQ(path[0], '\0');
    EXPECT_EQ(path[10], 'x') << "at most one byte is cleared for each of ten frames";
}

TEST(BackendNameTest, StaysInsideOfItsRoom)
{
    const auto path = std::make_unique<char[]>(2);
    path[1] = 'x';
    ScanLib::GetBackendName(path.get(), 2);
    EXPECT_EQ(path[0], '\0');
    EXPECT_EQ(path[1], '\0');
}

TEST(OpenTest, NeedsAConfigurationFile)
{
    LogCapture log;
    ScanLib engine;
    EXPECT_EQ(engine.Open("Quillon/Flatbed/libusb:001:002"), 1);
    EXPECT_THAT(log.plainMessages(), Contains("[ERROR] Unsupported backend"));
}

// ---- ownership -------------------------------------------------------------------

// Each part writes its name when it goes.
template <typename Part>
struct Mortal : Part {
    Mortal(std::shared_ptr<Journal> calls, std::string name)
        : calls_(std::move(calls)), name_(std::move(name))
    {
    }
    ~Mortal() override { calls_->push_back(name_); }
    std::shared_ptr<Journal> calls_;
    std::string name_;
};

struct AnyCommand : ICommand {
    int getCommand(unsigned char**, int*) override { return 2; }
    void appendData(unsigned char**) override {}
};

TEST(EngineTest, DestroysItsPartsInOrder)
{
    auto engine = std::make_unique<TestEngine>();
    const auto calls = engine->journal;
    engine->pCfgReader = std::make_unique<Mortal<FlatFileReader>>(calls, "store");
    engine->MyDecompressor = std::make_unique<Mortal<DeCompHandler>>(calls, "decompressor");
    engine->SetComm(new Mortal<AnyCommand>(calls, "command"));
    engine->ImageHandler = std::make_unique<Mortal<RawDataHandler>>(calls, "handler");
    engine->Interleaver = std::make_unique<Mortal<InterleaveHandler>>(calls, "interleaver");
    calls->clear();
    engine.reset();
    EXPECT_THAT(*calls, ElementsAre("store", "decompressor", "command", "destroyed", "handler",
                                    "interleaver"));
}

TEST(EngineTest, ReplacesWhatItOwns)
{
    TestEngine engine;
    const auto calls = engine.journal;
    engine.SetComm(new Mortal<AnyCommand>(calls, "first"));
    engine.SetComm(new Mortal<AnyCommand>(calls, "second"));
    EXPECT_THAT(*calls, ElementsAre("first"));
    calls->clear();
    engine.SetIO(new FakeTransport(std::make_shared<Journal>()));
    EXPECT_THAT(*calls, ElementsAre("destroyed"));
    engine.SetIO(nullptr);
    EXPECT_EQ(engine.pComm, nullptr);
}

// An engine whose open failed has none of its parts.
TEST(EngineTest, DoesNothingWithoutItsParts)
{
    ScanLib engine;
    unsigned char data[10];
    int length = 7;
    EXPECT_EQ(engine.GetIntValue("CURRENTDPI"), 0);
    EXPECT_EQ(engine.GetDoubleValue("CURRENTTLX"), 0.0);
    EXPECT_EQ(engine.GetStringValue("SCLIB"), nullptr);
    EXPECT_FALSE(engine.SetIntValue("CURRENTDPI", 75));
    EXPECT_FALSE(engine.SetDoubleValue("CURRENTTLX", 1.0));
    EXPECT_FALSE(engine.SetStringValue("SCLIB", "x"));
    engine.LoadScanDeviceProperties();
    EXPECT_NE(engine.Start(), 0);
    EXPECT_NE(engine.AcquireImage(data, sizeof data, &length), 0);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(engine.Cancel(), 1);
    EXPECT_EQ(engine.CancelAndFlush(), 1);
    EXPECT_EQ(engine.Unlock(), 0);
}

// ---- values ----------------------------------------------------------------------------

TEST(EngineTest, Values)
{
    TestEngine engine;
    LogCapture log;
    EXPECT_TRUE(engine.SetIntValue("A", -5));
    EXPECT_TRUE(engine.SetDoubleValue("A", 2.5));
    EXPECT_TRUE(engine.SetStringValue("A", "text"));
    EXPECT_TRUE(engine.SetIntValue("A", -6));
    EXPECT_EQ(engine.GetIntValue("A"), -6);
    EXPECT_EQ(engine.GetDoubleValue("A"), 2.5);
    EXPECT_STREQ(engine.GetStringValue("A"), "text");
    EXPECT_EQ(engine.GetStringValue("B"), nullptr);
    EXPECT_THAT(log.plainMessages(), ElementsAre("key: A :: -5", "key: A", "key: A", "key: A :: -6",
                                                 "key: A", "key: A", "key: A", "key: B"));
}

TEST(EngineTest, ComputesValues)
{
    TestEngine engine;
    EXPECT_EQ(engine.GetIntValue("PIXELS_PER_LINE"), 10);
}

// ---- capabilities of the device -----------------------------------------------------------

struct Capabilities {
    const char* name;
    std::vector<Bytes> sources;
    std::map<std::string, int> expected;
    int scannerType = 0;  // what the store holds before
    friend void PrintTo(const Capabilities& c, std::ostream* out) { *out << c.name; }
};

class PropertiesTest : public TestWithParam<Capabilities> {};

TEST_P(PropertiesTest, AreRecorded)
{
    TestEngine engine;
    engine.set("SCANNERTYPE", GetParam().scannerType);
    engine.set("RESOLUTIONS", 77);
    engine.transport->replies[2] = properties(2, GetParam().sources);
    engine.LoadScanDeviceProperties();
    EXPECT_THAT(engine.calls(), ElementsAre("command 2"));
    EXPECT_EQ(engine.GetIntValue("COMPRESSIONTECH"), 2);
    for (const auto& [key, value] : GetParam().expected) {
        EXPECT_EQ(engine.GetIntValue(key.c_str()), value) << key;
    }
}

const Bytes kFlatbed = source(1, 3, {{75, 75}, {300, 300}});
const Bytes kFeeder = source(2, 4, {{75, 75}, {600, 300}, {300, 300}, {200, 200}});

INSTANTIATE_TEST_SUITE_P(
    Sources, PropertiesTest,
    testing::Values(
        Capabilities{"None", {}, {{"RESOLUTIONS", 77}, {"SCANNERTYPE", 0}, {"SCANBARID", 0}}},
        Capabilities{"Flatbed",
                     {kFlatbed},
                     {{"SCANNERTYPE", 1},
                      {"SCANBARID", 3},
                      {"RESOLUTIONS", 2},
                      {"RESOLUTIONS_1", 75},
                      {"RESOLUTIONS_2", 300},
                      {"SCAN_SOURCE_ADF", 0},
                      {"ADFDPILIMIT", 0}}},
        Capabilities{"UnequalHidesTheLast",
                     {source(1, 0, {{75, 75}, {150, 300}, {300, 300}, {600, 600}})},
                     {{"RESOLUTIONS", 2},
                      {"RESOLUTIONS_1", 75},
                      {"RESOLUTIONS_2", 300},
                      {"RESOLUTIONS_3", 0}}},
        Capabilities{"UnequalLast",
                     {source(1, 0, {{75, 75}, {300, 300}, {600, 1200}})},
                     {{"RESOLUTIONS", 2}, {"RESOLUTIONS_3", 0}}},
        Capabilities{"TwoUnequal",
                     {source(1, 0, {{75, 75}, {1, 2}, {3, 4}, {600, 600}, {1200, 1200}})},
                     {{"RESOLUTIONS", 1}, {"RESOLUTIONS_1", 75}, {"RESOLUTIONS_2", 0}}},
        Capabilities{"AllUnequal", {source(1, 0, {{1, 2}, {3, 4}})}, {{"RESOLUTIONS", 0}}},
        Capabilities{"FlatbedAndFeeder",
                     {kFlatbed, kFeeder},
                     {{"SCANNERTYPE", 4},
                      {"SCANBARID", 4},
                      {"RESOLUTIONS", 2},
                      {"SCAN_SOURCE_ADF", 2},
                      {"ADFDPILIMIT", 300}}},
        Capabilities{"FeederFirst",
                     {kFeeder, kFlatbed},
                     {{"SCANNERTYPE", 5},
                      {"SCANBARID", 4},
                      {"RESOLUTIONS", 77},
                      {"SCAN_SOURCE_ADF", 2},
                      {"ADFDPILIMIT", 300}}},
        Capabilities{"FeederOfAKnownType", {kFeeder}, {{"SCANNERTYPE", 4}}, 9},
        Capabilities{"FeederWithoutEqual",
                     {source(2, 0, {{300, 600}})},
                     {{"SCANNERTYPE", 5}, {"ADFDPILIMIT", 0}}},
        Capabilities{"OtherTypeIsSkipped",
                     {source(3, 8, {{1200, 1200}}), kFlatbed},
                     {{"SCANNERTYPE", 1}, {"SCANBARID", 3}, {"RESOLUTIONS", 2}}},
        Capabilities{"OtherTypeOnly",
                     {source(0, 8, {{1200, 1200}})},
                     {{"SCANNERTYPE", 0}, {"SCANBARID", 8}, {"RESOLUTIONS", 77}}},
        Capabilities{
            "TwoFlatbeds",
            {kFlatbed, source(1, 5, {{1200, 1200}})},
            {{"SCANNERTYPE", 1}, {"SCANBARID", 5}, {"RESOLUTIONS", 1}, {"RESOLUTIONS_1", 1200}}}),
    kByName);

TEST(EngineTest, PropertiesLog)
{
    TestEngine engine;
    engine.transport->replies[2] = properties(2, {kFlatbed, kFeeder});
    LogCapture log;
    engine.LoadScanDeviceProperties();
    for (const char* text :
         {" Compression Technology = 2", " Scan Bar ID = 3", " Scanner Type = 1",
          " szRes = RESOLUTIONS_1", " szRes = RESOLUTIONS_2", " Number of Resolutions = 2",
          " Scan Bar ID = 4", " ADF DPI Limit = 300"}) {
        EXPECT_THAT(log.plainMessages(), Contains(testing::EndsWith(text)));
    }
}

TEST(EngineTest, OtherRepliesRecordNothing)
{
    for (const Bytes& reply : {replyTo(1, 0x80, 0, properties(2, {kFlatbed})), Bytes{1, 2, 3}}) {
        TestEngine engine;
        engine.transport->replies[2] = reply;
        engine.set("RESOLUTIONS", 77);
        engine.LoadScanDeviceProperties();
        EXPECT_EQ(engine.GetIntValue("RESOLUTIONS"), 77);
        EXPECT_EQ(engine.GetIntValue("COMPRESSIONTECH"), 0);
    }
}

TEST(EngineTest, PropertiesCutShort)
{
    Bytes reply = properties(2, {kFlatbed, kFeeder});
    reply.resize(8 + 7 + 15);
    TestEngine engine;
    engine.transport->replies[2] = reply;
    engine.LoadScanDeviceProperties();
    EXPECT_EQ(engine.GetIntValue("SCANNERTYPE"), 1);
    EXPECT_EQ(engine.GetIntValue("ADFDPILIMIT"), 0);
}

// ---- the start of a frame ----------------------------------------------------------------

TEST(StartTest, Order)
{
    for (const int version : {326, 401}) {
        TestEngine engine(version);
        EXPECT_EQ(engine.Start(), 0);
        EXPECT_THAT(engine.calls(), ElementsAre("open", "command 3", "command 4"));
    }
    TestEngine engine(402);
    engine.set("SCANNERTYPE", 4);
    EXPECT_EQ(engine.Start(), 0);
    EXPECT_THAT(engine.calls(),
                ElementsAre("open", "command 6", "command 1", "command 3", "command 4"));
}

TEST(StartTest, BeginsTheFrame)
{
    TestEngine engine;
    engine.AcquireImageStatus = 5;
    engine.linesRead = 3;
    engine.Buffer->SetRawData(ramp(3).data(), 3);
    LogCapture log;
    EXPECT_EQ(engine.Start(), 0);
    EXPECT_EQ(engine.AcquireImageStatus, 0);
    EXPECT_EQ(engine.ScanInProgress, 1);
    EXPECT_EQ(engine.linesRead, 0);
    EXPECT_EQ(engine.Buffer->GetAllDataSize(), 0);
    EXPECT_EQ(engine.Image->GetStride(), 10);
    EXPECT_TRUE(log.contains("DeCompHandler Initialize called"));
    EXPECT_THAT(log.plainMessages(), Contains("All is well ret = 0"));
}

TEST(StartTest, BusyDevice)
{
    TestEngine engine(402);
    engine.transport->openResult = 8;
    LogCapture log;
    EXPECT_EQ(engine.Start(), 3);
    EXPECT_THAT(engine.calls(), ElementsAre("open"));
    EXPECT_THAT(log.plainMessages(), Contains("[ERROR] SL_STATUS_DEVICE BUSY now"));
}

TEST(StartTest, OtherOpenResultsAreNotExamined)
{
    for (const int result : {7, 9, 10, 3, -16, -1, 15}) {
        TestEngine engine;
        engine.transport->openResult = result;
        EXPECT_EQ(engine.Start(), 0);
        EXPECT_EQ(engine.count("command 4"), 1);
    }
}

TEST(StartTest, WakeFails)
{
    for (const int result : {14, 15, 0, 5}) {
        TestEngine engine(402);
        engine.transport->writeResults[6] = result;
        LogCapture log;
        EXPECT_EQ(engine.Start(), 9);
        EXPECT_THAT(engine.calls(), ElementsAre("open", "command 6"));
        EXPECT_THAT(log.plainMessages(), Contains("[ERROR] unable to wake scanner"));
        EXPECT_EQ(engine.ScanInProgress, 0);
    }
}

TEST(StartTest, SettingsRefused)
{
    TestEngine engine;
    engine.set("CURRENTBRX", 0.0);
    LogCapture log;
    EXPECT_EQ(engine.Start(), 1);
    EXPECT_THAT(engine.calls(), ElementsAre("open"));
    EXPECT_THAT(log.plainMessages(), Contains("CheckScanSettings ret = 1"));
    EXPECT_EQ(engine.ScanInProgress, 0);
}

TEST(StartTest, CommandsThatCannotBeWritten)
{
    for (const int result : {14, 15, 0, 1}) {
        for (const int command : {3, 4}) {
            TestEngine engine;
            engine.AcquireImageStatus = 5;
            engine.transport->writeResults[command] = result;
            LogCapture log;
            EXPECT_EQ(engine.Start(), 9);
            EXPECT_EQ(engine.calls().back(), "command " + std::to_string(command));
            const std::string step = command == 3 ? "Lock" : "Start";
            EXPECT_THAT(log.plainMessages(),
                        Contains("WriteCmd " + step + " failed ret = " + std::to_string(result)));
            EXPECT_EQ(engine.ScanInProgress, 0);
            EXPECT_EQ(engine.AcquireImageStatus, 5);
        }
    }
}

// The device is not left locked, nor scanning, by an engine that has no memory to go on.
// Whatever is lost or cannot be sent, no job is left behind.
TEST(StartTest, NoMemoryForTheJob)
{
    struct Case {
        int command;
        int result;
        Journal behind;
    };
    const Case cases[] = {
        {3, TRANSPORT_BAD_COMMAND, {"command 3"}},
        {3, TRANSPORT_NO_MEMORY, {"command 3", "command 5"}},
        {4, TRANSPORT_BAD_COMMAND, {"command 4", "command 5"}},
        {4, TRANSPORT_NO_COMMAND, {"command 4", "command 5"}},
        {4, TRANSPORT_NO_MEMORY, {"command 4", "command 0", "read", "command 5", "close"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.command << " gives " << c.result);
        TestEngine engine;
        engine.transport->writeResults[c.command] = c.result;
        EXPECT_EQ(engine.Start(), SANE_STATUS_NO_MEM);
        Journal& calls = engine.calls();
        const auto first = std::find(calls.begin(), calls.end(), c.behind.front());
        EXPECT_EQ(Journal(first, calls.end()), c.behind);
        EXPECT_EQ(engine.ScanInProgress, 0);
        engine.transport->writeResults.clear();
        EXPECT_EQ(engine.Start(), 0);
    }
}

TEST(AcquireTest, NoMemoryEndsTheFrame)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{TRANSPORT_NO_MEMORY}, {TRANSPORT_NO_MEMORY}, {0, ramp(10)}};
    unsigned char data[100];
    int length = -1;
    EXPECT_EQ(engine.AcquireImage(data, sizeof data, &length), SANE_STATUS_NO_MEM);
    EXPECT_THAT(engine.calls(),
                ElementsAre("read", "command 0", "read", "read", "read", "command 5", "close"));
    EXPECT_EQ(acquire(engine, 100).status, SANE_STATUS_NO_MEM);
    engine.startFrame();
    EXPECT_EQ(acquireAll(engine, 100).status, 5);
}

struct Mapping {
    int status;
    int result;
    int afterLock = -1;  // where it differs
    int afterStart = -1;
};

// Every device status that stops a job.
const Mapping kMappings[] = {{129, 4}, {130, 3}, {131, 3},       {132, 9},
                             {133, 9}, {134, 9}, {136, 0, 3, 4}, {137, 10}};

int mapped(int status, int command)
{
    for (const Mapping& mapping : kMappings) {
        if (mapping.status == status) {
            return command == 3 && mapping.afterLock >= 0    ? mapping.afterLock
                   : command == 4 && mapping.afterStart >= 0 ? mapping.afterStart
                                                             : mapping.result;
        }
    }
    return 0;
}

TEST(StatusTest, Mapping)
{
    TestEngine engine;
    for (int status = -1; status <= 256; status++) {
        for (int command = 0; command <= 7; command++) {
            EXPECT_EQ(engine.MapToSLSTATUS(status, command), mapped(status, command))
                << status << " after command " << command;
        }
    }
    LogCapture log;
    engine.MapToSLSTATUS(137, 3);
    const auto messages = log.messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_THAT(log.plainMessages(), ElementsAre("command: 3"));
    EXPECT_EQ(messages.back(), "::::::::::::::: METHOD END ::::::::::::::: code = 10");
}

TEST(StartTest, DeviceStatusStopsTheJob)
{
    for (const int command : {3, 4}) {
        for (int status = 0; status <= 255; status++) {
            TestEngine engine;
            engine.transport->replies[command] = replyTo(command, status);
            LogCapture log;
            const int expected = mapped(status, command);
            EXPECT_EQ(engine.Start(), expected);
            EXPECT_EQ(engine.ScanInProgress, expected == 0 ? 1 : 0);
            EXPECT_EQ(engine.count("command 4"), command == 4 || expected == 0 ? 1 : 0);
            const std::string step = command == 3 ? "Lock" : "Start";
            EXPECT_EQ(log.count(step + " failed ret = " + std::to_string(expected)),
                      expected == 0 ? 0 : 1);
        }
    }
}

// ---- the end of a job --------------------------------------------------------------------

TEST(CancelTest, WithoutAJob)
{
    TestEngine engine;
    LogCapture log;
    EXPECT_EQ(engine.Cancel(), 1);
    EXPECT_THAT(engine.calls(), IsEmpty());
    EXPECT_THAT(log.plainMessages(), ElementsAre("Exiting ScanLib::Cancel. ret = 1"));

    EXPECT_EQ(engine.CancelAndFlush(), 1);
    EXPECT_THAT(engine.calls(), ElementsAre("close"));
    EXPECT_EQ(engine.AcquireImageStatus, 0);
    EXPECT_FALSE(log.contains("Flushing data from the scanner."));
}

TEST(CancelTest, WithAJob)
{
    TestEngine engine;
    engine.startFrame();
    LogCapture log;
    EXPECT_EQ(engine.Cancel(), 0);
    EXPECT_THAT(engine.calls(), ElementsAre("command 0"));
    EXPECT_THAT(log.plainMessages(), ElementsAre("Scan in Progress", "Cancel successful",
                                                 "Exiting ScanLib::Cancel. ret = 0"));
    EXPECT_EQ(engine.ScanInProgress, 1);
}

TEST(CancelTest, CannotBeWritten)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->writeResults[0] = 14;
    LogCapture log;
    EXPECT_EQ(engine.CancelAndFlush(), 1);
    EXPECT_THAT(engine.calls(), ElementsAre("command 0", "close"));
    EXPECT_FALSE(log.contains("Cancel successful"));
}

TEST(CancelTest, FlushesWhatTheDeviceStillSends)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{0, ramp(30000)}, {0, ramp(30000)}, {18}, {0, ramp(9)}, {4}};
    LogCapture log;
    EXPECT_EQ(engine.CancelAndFlush(), 0);
    EXPECT_EQ(engine.calls().front(), "command 0");
    EXPECT_EQ(engine.calls().back(), "close");
    EXPECT_EQ(engine.count("read"), 5);
    EXPECT_EQ(engine.AcquireImageStatus, 2);
    EXPECT_EQ(engine.ScanInProgress, 0);
    EXPECT_EQ(engine.count("command 5"), 1);
    EXPECT_THAT(log.plainMessages(), Contains("Flushing data from the scanner."));
    EXPECT_THAT(log.plainMessages(), Contains("retstatus = 2"));

    engine.calls().clear();
    unsigned char data[10];
    int length = 1;
    EXPECT_EQ(engine.AcquireImage(data, sizeof data, &length), 2);
    EXPECT_EQ(length, 0);
    EXPECT_THAT(engine.calls(), IsEmpty());
}

TEST(CancelTest, FlushToTheEndOfThePage)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->steps = {{0, ramp(60)}, {1, ramp(40)}};
    EXPECT_EQ(engine.CancelAndFlush(), 0);
    EXPECT_EQ(engine.AcquireImageStatus, 5);
    EXPECT_EQ(engine.count("read"), 2);
}

struct Endless {
    const char* name;
    Step step;
    friend void PrintTo(const Endless& c, std::ostream* out) { *out << c.name; }
};

class EndlessFlushTest : public TestWithParam<Endless> {};

TEST_P(EndlessFlushTest, Ends)
{
    TestEngine engine;
    engine.startFrame();
    engine.transport->lastStep = GetParam().step;
    // The journal of all reads would take much memory.
    engine.transport->lastStep.during = [&](ImageData*) { engine.calls().pop_back(); };
    EXPECT_EQ(engine.CancelAndFlush(), 0);
    EXPECT_THAT(engine.calls(), ElementsAre("command 0", "command 5", "close"));
    EXPECT_NE(engine.AcquireImageStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(Devices, EndlessFlushTest,
                         testing::Values(Endless{"SendsData", {0, ramp(4096)}},
                                         Endless{"HasNoDataYet", {18}},
                                         Endless{"SendsNothing", {0}},
                                         Endless{"IsGone", {1, {}, nullptr, true}}),
                         kByName);

TEST(UnlockTest, EndsTheJob)
{
    for (const int result : {5, 15}) {
        TestEngine engine;
        engine.startFrame();
        engine.transport->writeResults[5] = result;
        LogCapture log;
        EXPECT_EQ(engine.Unlock(), 0);
        EXPECT_THAT(engine.calls(), ElementsAre("command 5"));
        EXPECT_EQ(engine.ScanInProgress, 0);
        EXPECT_EQ(log.count("Unlock Successful"), result == 5 ? 1 : 0);
    }
}

// ---- validation of the settings -------------------------------------------------------------

struct Settings {
    const char* name;
    std::map<const char*, double> doubles;
    std::map<const char*, int> integers;
    int feederStatus;
    int result;
    std::vector<std::string> log;  // lines that are there; "!..." that are not
    bool isFeeder = false;         // the flag that goes to the geometry
    bool isSetUp = true;           // the geometry was taken
    double right = -1;             // CURRENTBRX afterwards, where it differs
    friend void PrintTo(const Settings& c, std::ostream* out) { *out << c.name; }
};

class SettingsTest : public TestWithParam<Settings> {};

TEST_P(SettingsTest, AreChecked)
{
    const Settings& given = GetParam();
    TestEngine engine;
    engine.set("ADFSIDEFLIP", 1);
    engine.set("ADFDPILIMIT", 300);
    for (const auto& [key, value] : given.doubles) {
        engine.set(key, value);
    }
    for (const auto& [key, value] : given.integers) {
        engine.set(key, value);
    }
    const double right = engine.GetDoubleValue("CURRENTBRX");
    engine.transport->feederStatus = given.feederStatus;
    LogCapture log;
    EXPECT_EQ(engine.CheckScanSettings(), given.result);
    for (const std::string& line : given.log) {
        if (line[0] == '!') {
            EXPECT_FALSE(log.contains(line.substr(1))) << line;
        } else {
            EXPECT_THAT(log.plainMessages(), Contains(line));
        }
    }
    EXPECT_EQ(log.count("SL_STATUS_UNSUPPORTED"), given.isSetUp ? 0 : 1);
    EXPECT_THAT(log.plainMessages(),
                Contains("scan source is " + std::to_string(engine.GetIntValue("SCAN_SOURCE"))));
    EXPECT_EQ(
        log.count("Exiting ScanLib::CheckScanSettings. ret = " + std::to_string(given.result)),
        given.isSetUp ? 1 : 0);
    EXPECT_EQ(engine.Image->GetScanWidth() > 0, given.isSetUp);
    EXPECT_EQ(engine.Image->GetSideFlip() == FLIP_ON, given.isFeeder);
    EXPECT_EQ(engine.GetDoubleValue("CURRENTBRX"), given.right >= 0 ? given.right : right);
    const int type = engine.GetIntValue("SCANNERTYPE");
    const bool isAsked = (type == 4 || type == 5) && log.contains("check if scanner support adf");
    EXPECT_EQ(engine.count("command 1"), isAsked ? 1 : 0);
    EXPECT_EQ(log.count("Write Cmd ScanADFStatus"), isAsked ? 1 : 0);
}

const char kNegative[] = "[WARN] Negative width or height";
const char kSmall[] = "[WARN] Scan size is below the minimum";
const char kResolution[] = "[WARN] Cannot scan using the ADF with the current resolution.";
const char kPreview[] = "[WARN] Cannot preview using the ADF.";
const char kNoPaper[] = "no paper found in the ADF";
const char kNoFeeder[] = "[WARN] no adf found";
const char kPaper[] = "There is paper on the ADF";

INSTANTIATE_TEST_SUITE_P(
    Area, SettingsTest,
    testing::Values(
        Settings{"ExactMinimum", {}, {}, 0, 0, {"check if scanner support adf"}},
        Settings{"JustBelow", {{"CURRENTBRX", 25.39}}, {}, 0, 1, {kSmall}, false, false},
        Settings{"JustBelowHigh", {{"CURRENTBRY", 25.39}}, {}, 0, 1, {kSmall}, false, false},
        Settings{"InsideTheTolerance",
                 {{"CURRENTBRX", 25.3951}, {"CURRENTBRY", 25.3951}},
                 {{"CURRENTDPI", 100}},
                 0,
                 0,
                 {}},
        Settings{"Empty", {{"CURRENTBRX", 0.0}}, {}, 0, 1, {kNegative}, false, false},
        Settings{"EmptyHigh", {{"CURRENTBRY", 0.0}}, {}, 0, 1, {kNegative}, false, false},
        Settings{"Inverted",
                 {{"CURRENTTLX", 100.0}},
                 {},
                 0,
                 1,
                 {kNegative, std::string("!") + kSmall},
                 false,
                 false},
        Settings{"InvertedHigh", {{"CURRENTTLY", 100.0}}, {}, 0, 1, {kNegative}, false, false},
        Settings{"OffsetWindow",
                 {{"CURRENTTLX", 10.0},
                  {"CURRENTBRX", 35.4},
                  {"CURRENTTLY", 20.0},
                  {"CURRENTBRY", 45.4}},
                 {},
                 0,
                 0,
                 {}},
        Settings{"OffsetTooSmall",
                 {{"CURRENTTLX", 10.0}, {"CURRENTBRX", 35.38}},
                 {},
                 0,
                 1,
                 {kSmall},
                 false,
                 false}),
    kByName);

INSTANTIATE_TEST_SUITE_P(FullWidth, SettingsTest,
                         testing::Values(Settings{"At300",
                                                  {{"CURRENTBRX", 216.0}},
                                                  {{"CURRENTDPI", 300}},
                                                  0,
                                                  0,
                                                  {"Setting Brx to 215."},
                                                  false,
                                                  true,
                                                  215.0},
                                         Settings{"At600",
                                                  {{"CURRENTBRX", 216.0}},
                                                  {{"CURRENTDPI", 600}},
                                                  0,
                                                  0,
                                                  {"Setting Brx to 215."},
                                                  false,
                                                  true,
                                                  215.0},
                                         Settings{"At299",
                                                  {{"CURRENTBRX", 216.0}},
                                                  {{"CURRENTDPI", 299}},
                                                  0,
                                                  0,
                                                  {"!Setting Brx to 215."}},
                                         Settings{"Narrower",
                                                  {{"CURRENTBRX", 215.9}},
                                                  {{"CURRENTDPI", 300}},
                                                  0,
                                                  0,
                                                  {"!Setting Brx to 215."}},
                                         Settings{"Wider",
                                                  {{"CURRENTBRX", 216.001}},
                                                  {{"CURRENTDPI", 300}},
                                                  0,
                                                  0,
                                                  {"!Setting Brx to 215."}}),
                         kByName);

INSTANTIATE_TEST_SUITE_P(
    Feeder, SettingsTest,
    testing::Values(
        Settings{"FlatbedOnly",
                 {},
                 {{"SCANNERTYPE", 1}, {"SCAN_SOURCE", 2}},
                 0,
                 0,
                 {std::string("!") + kNoFeeder}},
        Settings{"OtherType", {}, {{"SCANNERTYPE", 3}, {"SCAN_SOURCE", 2}}, 0, 0, {}},
        Settings{"SourceFlatbed",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 1}},
                 2,
                 0,
                 {std::string("!") + kPaper}},
        Settings{"SourceFlatbedNoPaper", {}, {{"SCANNERTYPE", 5}, {"SCAN_SOURCE", 1}}, 1, 0, {}},
        Settings{"SourceFlatbedNoFeeder", {}, {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 1}}, 0, 0, {}},
        Settings{"Paper", {}, {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}}, 2, 0, {kPaper}, true},
        Settings{
            "PaperFeederOnly", {}, {{"SCANNERTYPE", 5}, {"SCAN_SOURCE", 2}}, 2, 0, {kPaper}, true},
        Settings{"AtTheLimit",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"CURRENTDPI", 300}},
                 2,
                 0,
                 {kPaper},
                 true},
        Settings{"AboveTheLimit",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"CURRENTDPI", 301}},
                 2,
                 1,
                 {kPaper, kResolution},
                 false,
                 false},
        Settings{"AboveTheLimitFlatbed",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 1}, {"CURRENTDPI", 301}},
                 2,
                 0,
                 {}},
        Settings{"Preview",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"PREVIEW", 1}},
                 2,
                 1,
                 {kPaper, kPreview},
                 false,
                 false},
        Settings{"PreviewAllowed",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"PREVIEW", 1}, {"ADFPREVIEW", 1}},
                 2,
                 0,
                 {kPaper},
                 true},
        Settings{"ResolutionBeforePreview",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"PREVIEW", 1}, {"CURRENTDPI", 600}},
                 2,
                 1,
                 {kResolution, std::string("!") + kPreview},
                 false,
                 false},
        Settings{"NoPaper",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}},
                 1,
                 7,
                 {kNoPaper, "return from adf status  is 1"}},
        Settings{"NoPaperPreview",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"PREVIEW", 1}},
                 1,
                 1,
                 {kNoPaper, "return from adf status  is 1"}},
        Settings{"NoPaperPreviewAllowed",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"PREVIEW", 1}, {"ADFPREVIEW", 1}},
                 1,
                 7,
                 {kNoPaper}},
        Settings{"NoFeeder",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}},
                 0,
                 1,
                 {kNoFeeder, "return from adf status  is 0"}},
        Settings{"NoPaperFullWidth",
                 {{"CURRENTBRX", 216.0}},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}, {"CURRENTDPI", 300}},
                 1,
                 7,
                 {kNoPaper},
                 false,
                 true,
                 215.0},
        Settings{"UnknownFeederStatus",
                 {},
                 {{"SCANNERTYPE", 4}, {"SCAN_SOURCE", 2}},
                 3,
                 0,
                 {std::string("!") + kNoFeeder}}),
    kByName);

TEST(SettingsWriteTest, FailedFeederQueryCountsAsItsReply)
{
    TestEngine engine;
    engine.set("SCANNERTYPE", 4);
    engine.set("SCAN_SOURCE", 2);
    engine.transport->writeResults[1] = 15;  // leaves the response without data
    EXPECT_EQ(engine.CheckScanSettings(), 0);
    EXPECT_EQ(engine.Image->GetScanWidth(), 10);
}

}  // namespace
