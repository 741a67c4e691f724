// SPDX-License-Identifier: LGPL-2.1-or-later
// ICommand and the encodings Cmd326, Cmd401 and Cmd402.
#include "Cmd326.h"
#include "Cmd401.h"
#include "Cmd402.h"

#include "Allocations.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <tuple>

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// The base with nothing added.
class PlainCommand : public ICommand {
public:
    int getCommand(unsigned char**, int*) override { return 0; }
    void appendData(unsigned char**) override {}
    using ICommand::iDataSize;
    using ICommand::iStrip;
    using ICommand::iStripMin;
    using ICommand::pConfigReader;
};

struct Built {
    int result = -1;
    int length = -1;
    Bytes bytes;
};

Built build(ICommand& command)
{
    Built built;
    unsigned char* out = nullptr;
    built.result = command.getCommand(&out, &built.length);
    if (out != nullptr) {
        built.bytes.assign(out, out + built.length);
        delete[] out;
    }
    return built;
}

std::unique_ptr<ICommand> create(int version)
{
    return std::unique_ptr<ICommand>(ICommand::createCmdInstance(version));
}

// ---- creation ------------------------------------------------------------------------

TEST(ICommand, StartsWithItsDefaults)
{
    PlainCommand command;
    EXPECT_EQ(command.pConfigReader, nullptr);
    EXPECT_EQ(command.iDataSize, 0);
    EXPECT_EQ(command.getCommandId(), 0);
    EXPECT_EQ(command.getNpa(), 0);
    EXPECT_EQ(command.getVersion(), 0);
    EXPECT_EQ(command.iStrip, 9);
    EXPECT_EQ(command.iStripMin, 1);
}

TEST(ICommand, CreatesTheClassOfAVersion)
{
    for (const int version : {326, 0, 999, -1, 400, 403, INT_MAX}) {
        const auto command = create(version);
        EXPECT_NE(dynamic_cast<Cmd326*>(command.get()), nullptr) << version;
        EXPECT_EQ(dynamic_cast<Cmd401*>(command.get()), nullptr) << version;
        EXPECT_EQ(dynamic_cast<Cmd402*>(command.get()), nullptr) << version;
        EXPECT_EQ(command->getVersion(), 326);
    }
    EXPECT_NE(dynamic_cast<Cmd401*>(create(401).get()), nullptr);
    EXPECT_EQ(create(401)->getVersion(), 401);
    EXPECT_NE(dynamic_cast<Cmd402*>(create(402).get()), nullptr);
    EXPECT_EQ(create(402)->getVersion(), 402);
    const Allocations none(0);
    EXPECT_EQ(ICommand::createCmdInstance(326), nullptr);
}

TEST(ICommand, VirtualFunctionsStandInTheirOrder)
{
    using C = ICommand;
    EXPECT_THAT((std::vector<int>{virtualSlot(&C::setConfigReader),
                                  virtualSlot(&C::setCommandId),
                                  virtualSlot(&C::setNpa),
                                  virtualSlot(&C::setVersion),
                                  virtualSlot(&C::setStripSize),
                                  virtualSlot(&C::setStripMin),
                                  virtualSlot(&C::addNPA),
                                  virtualSlot(&C::removeESC),
                                  virtualSlot(&C::getNpa),
                                  virtualSlot(&C::getCommandId),
                                  virtualSlot(&C::getPixelPerLine),
                                  virtualSlot(&C::getLines),
                                  virtualSlot(&C::getScanOffsetX),
                                  virtualSlot(&C::getScanOffsetY),
                                  virtualSlot(&C::getCurrentDPI),
                                  virtualSlot(&C::getCompression),
                                  virtualSlot(&C::getCompressionLevel),
                                  virtualSlot(&C::getFilter),
                                  virtualSlot(&C::getColorDepth),
                                  virtualSlot(&C::getVersion),
                                  virtualSlot(&C::getSource),
                                  virtualSlot(&C::getCommand),
                                  virtualSlot(&C::appendData)}),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
                            22, 23, 24));
    EXPECT_EQ(virtualSlot(&Cmd326::getCommand), 2);
    EXPECT_EQ(virtualSlot(&Cmd326::getCommandId), 3);
    EXPECT_EQ(virtualSlot(&Cmd326::appendData), 4);
}

// ---- setters and getters --------------------------------------------------------------

TEST(ICommand, KeepsItsStoreOverANullPointer)
{
    PlainCommand command;
    TestStore store;
    const LogCapture capture;
    EXPECT_EQ(command.setConfigReader(nullptr), 2);
    EXPECT_EQ(command.setConfigReader(&store), 0);
    EXPECT_EQ(command.pConfigReader, &store);
    EXPECT_EQ(command.setConfigReader(nullptr), 2);
    EXPECT_EQ(command.pConfigReader, &store);
    EXPECT_EQ(capture.count(" -> set config reader"), 3);
}

TEST(ICommand, StoresAndLogsItsSettings)
{
    PlainCommand command;
    const LogCapture capture;
    command.setCommandId(4);
    command.setVersion(500);
    command.setStripSize(12);
    command.setStripMin(-3);
    EXPECT_EQ(command.getCommandId(), 4);
    EXPECT_EQ(command.getVersion(), 500);
    EXPECT_EQ(command.iStrip, 12);
    EXPECT_EQ(command.iStripMin, -3);
    EXPECT_EQ(command.getNpa(), 0);
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre(EndsWith(" -> set command id = 4"), EndsWith(" -> set version = 500"),
                            EndsWith(" -> set strip size = 12"), EndsWith(" -> set strip min = -3"),
                            EndsWith(" -> get command id"), EndsWith(" -> get version = 500"),
                            EndsWith(" -> get npa = 0")));
}

TEST(ICommand, NpaIsOnOrOff)
{
    PlainCommand command;
    const std::pair<int, int> cases[] = {{7, 1}, {-1, 0},      {1, 1},      {0, 0},
                                         {2, 1}, {INT_MIN, 0}, {INT_MAX, 1}};
    for (const auto& [given, expected] : cases) {
        const LogCapture capture;
        command.setNpa(given);
        EXPECT_EQ(command.getNpa(), expected) << given;
        EXPECT_TRUE(capture.contains(" -> set npa = " + std::to_string(given)));
        EXPECT_TRUE(capture.contains(" -> get npa = " + std::to_string(expected)));
    }
}

struct GetterCase {
    const char* name;
    int (ICommand::*getter)();
    const char* key;
    const char* log;                          // before the value
    std::vector<std::pair<int, int>> values;  // stored value, result
    int withoutStore;
};

class ICommandGetter : public testing::TestWithParam<GetterCase> {};

TEST_P(ICommandGetter, ReadsTheStore)
{
    const GetterCase& param = GetParam();
    for (const auto& [stored, expected] : param.values) {
        TestStore store{{param.key, stored}};
        PlainCommand command;
        command.setConfigReader(&store);
        const LogCapture capture;
        EXPECT_EQ((command.*param.getter)(), expected) << stored;
        EXPECT_THAT(capture.messages(), Contains(EndsWith(param.log + std::to_string(expected))));
    }
}

TEST_P(ICommandGetter, NeedsNoStore)
{
    PlainCommand command;
    EXPECT_EQ((command.*GetParam().getter)(), GetParam().withoutStore);
}

using Values = std::vector<std::pair<int, int>>;
const Values kAsStored = {{0, 0}, {1, 1}, {-5, -5}, {70000, 70000}};
const Values kSources = {{1, 1}, {2, 4}, {3, 0}, {0, 1}, {4, 1}, {5, 1}, {-1, 1}};

INSTANTIATE_TEST_SUITE_P(
    Getters, ICommandGetter,
    testing::Values(
        GetterCase{"PixelPerLine", &ICommand::getPixelPerLine, "PIXELS_PER_LINE",
                   " -> Pixel Per Line = ", kAsStored, 0},
        GetterCase{"Lines", &ICommand::getLines, "LINES", " -> Lines = ", kAsStored, 0},
        GetterCase{"ScanOffsetX", &ICommand::getScanOffsetX, "SCANOFFSETX",
                   " -> Scan Offset X = ", kAsStored, 0},
        GetterCase{"ScanOffsetY", &ICommand::getScanOffsetY, "SCANOFFSETY",
                   " -> Scan Offset Y = ", kAsStored, 0},
        GetterCase{"CurrentDPI", &ICommand::getCurrentDPI, "CURRENTDPI",
                   " -> Current DPI = ", kAsStored, 0},
        GetterCase{"Compression", &ICommand::getCompression, "COMPRESSION",
                   "Command -> Compression = ", kAsStored, 0},
        GetterCase{"CompressionLevel", &ICommand::getCompressionLevel, "COMPRESSIONLEVEL",
                   "Command -> Compression Level = ", kAsStored, 0},
        GetterCase{"Filter", &ICommand::getFilter, "PREVIEW",
                   " -> Filter = ", Values{{0, 3}, {1, 4}, {-1, 4}, {7, 4}}, 3},
        GetterCase{"ColorDepth", &ICommand::getColorDepth, "COLORDEPTH",
                   " -> Color Depth = = ", Values{{3, 3}, {24, 2}, {1, 2}, {0, 2}, {-3, 2}}, 2},
        GetterCase{"Source", &ICommand::getSource, "SCAN_SOURCE", "source: ", kSources, 1}),
    CaseName());

TEST(ICommand, ValuesComeFromTheScanWindow)
{
    TestStore store{{"PIXELS_PER_LINE", 7}, {"LINES", 8}};
    store.setWindow(100, 50);
    store.SetDoubleOption("CURRENTTLX", 25.4);
    PlainCommand command;
    command.setConfigReader(&store);
    EXPECT_EQ(command.getPixelPerLine(), -199);
    EXPECT_EQ(command.getLines(), 50);
    EXPECT_EQ(command.getScanOffsetX(), 300);
}

TEST(ICommand, LogsTheSourceBeforeAndAfter)
{
    TestStore store{{"SCAN_SOURCE", 2}};
    PlainCommand command;
    command.setConfigReader(&store);
    const LogCapture capture;
    command.getSource();
    EXPECT_THAT(capture.plainMessages(),
                ElementsAre("source ========================================== 2", "source: 4"));
    EXPECT_THAT(capture.lines(), Contains(testing::StartsWith("[P:")).Times(2));
}

// ---- addNPA ----------------------------------------------------------------------------

TEST(ICommand, WrapsCommandsOfEveryLength)
{
    PlainCommand command;
    const Bytes mark = {0xAA, 0xBB, 0xCC, 0xDD};
    for (int n = 1; n < 300; ++n) {
        const Bytes bytes = counting(n, 1);
        const int pad = (4 - (n + 20) % 4) % 4;
        const int total = n + 20 + pad;
        Bytes expected = {0xA5,
                          static_cast<unsigned char>((total - 3) / 256),
                          static_cast<unsigned char>((total - 3) % 256),
                          0x10,
                          0x01,
                          0x83};
        expected = expected + mark + Bytes{2, static_cast<unsigned char>(pad)} +
                   Bytes(static_cast<std::size_t>(pad), 0) + bytes + mark + mark;
        unsigned char* out = nullptr;
        int length = n;
        const LogCapture capture;
        ASSERT_EQ(command.addNPA(&out, bytes.data(), &length), 0);
        ASSERT_EQ(length, total);
        EXPECT_EQ(length % 4, 0);
        EXPECT_EQ(Bytes(out, out + length), expected) << n;
        EXPECT_TRUE(capture.contains(" -> adding npa to command"));
        delete[] out;
    }
}

TEST(ICommand, WrapsEightBytesInTwentyEight)
{
    PlainCommand command;
    unsigned char* out = nullptr;
    int length = 8;
    ASSERT_EQ(command.addNPA(&out, counting(8).data(), &length), 0);
    ASSERT_EQ(length, 28);
    EXPECT_EQ(Bytes(out, out + 12),
              (Bytes{0xA5, 0x00, 0x19, 0x10, 0x01, 0x83, 0xAA, 0xBB, 0xCC, 0xDD, 0x02, 0x00}));
    delete[] out;
}

TEST(ICommand, WrapsNothingWithoutMemory)
{
    PlainCommand command;
    unsigned char* out = nullptr;
    int length = 8;
    const Bytes bytes = counting(8);
    {
        const Allocations none(0);
        EXPECT_EQ(command.addNPA(&out, bytes.data(), &length), 2);
    }
    EXPECT_EQ(out, nullptr);
}

TEST(ICommand, WrapsWhatItsLengthFieldCounts)
{
    PlainCommand command;
    const Bytes bytes(65516);
    for (const int length : {65517, INT_MAX, -1, INT_MIN, 65516}) {
        unsigned char* out = nullptr;
        int framed = length;
        const bool fits = length == sizeOf(bytes);
        EXPECT_EQ(command.addNPA(&out, bytes.data(), &framed), fits ? 0 : 2) << length;
        ASSERT_EQ(out != nullptr, fits);
        if (fits) {
            EXPECT_EQ(slice(Bytes(out, out + framed), 0, 3), (Bytes{0xA5, 0xFF, 0xFD}));
        }
        delete[] out;
    }
}

// ---- removeESC -------------------------------------------------------------------------

// A block of the image stream as a version with these settings receives it.
Bytes block(const Bytes& data, int strip, int stripMin)
{
    Bytes header(static_cast<std::size_t>(strip), 0x33);
    const int length = sizeOf(data) + stripMin;
    header[0] = 0x1B;
    header[1] = 0x53;
    header[2] = 0x02;
    header[4] = static_cast<unsigned char>(length % 256);
    header[5] = static_cast<unsigned char>(length / 256);
    return header + data;
}

TEST(ICommand, TakesABlockHeaderOff)
{
    PlainCommand command;
    DataBuffer buffer;
    const Bytes data = counting(1024);
    append(buffer, block(data, 9, 1));
    EXPECT_EQ(rawBytes(buffer)[4], 0x01);
    EXPECT_EQ(rawBytes(buffer)[5], 0x04);
    const LogCapture capture;
    EXPECT_EQ(command.removeESC(&buffer), 0);
    EXPECT_EQ(processedBytes(buffer), data);
    EXPECT_EQ(buffer.GetRawDataSize(), 0);
    EXPECT_EQ(command.getPendingBlockSize(), 0);
    EXPECT_THAT(capture.plainMessages(), Contains("-> removing esc from data 0"));
}

TEST(ICommand, WaitsForAWholeBlockHeader)
{
    const Bytes whole = block(counting(5), 9, 1);
    for (int size = 1; size < 9; ++size) {
        PlainCommand command;
        DataBuffer buffer;
        append(buffer, slice(whole, 0, size));
        EXPECT_EQ(command.removeESC(&buffer), 0);
        EXPECT_EQ(rawBytes(buffer), slice(whole, 0, size)) << size;
        EXPECT_EQ(buffer.GetProcessedDataSize(), 0) << size;
        EXPECT_EQ(command.getPendingBlockSize(), 0) << size;
        append(buffer, slice(whole, size, 14));
        EXPECT_EQ(command.removeESC(&buffer), 0);
        EXPECT_EQ(processedBytes(buffer), counting(5)) << size;
    }
}

TEST(ICommand, PassesDataWithoutAHeaderOn)
{
    const Bytes starts[] = {
        {0x1B, 0x53, 0x03}, {0x1B, 0x44, 0x02}, {0x1C, 0x53, 0x02}, {0x1B, 0x44}, {0x00},
        {0x53, 0x02}};
    for (const Bytes& start : starts) {
        PlainCommand command;
        DataBuffer buffer;
        const Bytes data = start + counting(20);
        append(buffer, data);
        EXPECT_EQ(command.removeESC(&buffer), 0);
        EXPECT_EQ(processedBytes(buffer), data);
        EXPECT_EQ(command.getPendingBlockSize(), 0);
    }
}

TEST(ICommand, CarriesTheRestOfABlockOver)
{
    PlainCommand command;
    DataBuffer buffer;
    const Bytes whole = block(counting(100), 9, 1);
    append(buffer, slice(whole, 0, 40));
    EXPECT_EQ(command.removeESC(&buffer), 0);
    EXPECT_EQ(processedBytes(buffer), counting(31));
    EXPECT_EQ(command.getPendingBlockSize(), 69);
    // What looks like a header inside a block is image data.
    const Bytes inside = {0x1B, 0x53, 0x02, 0, 9, 0, 0, 0, 0, 0, 0, 0};
    append(buffer, inside);
    const LogCapture capture;
    EXPECT_EQ(command.removeESC(&buffer), 0);
    EXPECT_TRUE(capture.contains("-> removing esc from data 69"));
    EXPECT_EQ(processedBytes(buffer), counting(31) + inside);
    EXPECT_EQ(command.getPendingBlockSize(), 57);
}

TEST(ICommand, AsksForAnotherCallWhileMoreThanAHeaderIsLeft)
{
    const std::tuple<int, int, int> versions[] = {{326, 9, 1}, {401, 10, 2}, {402, 31, 23}};
    for (const auto& [version, strip, stripMin] : versions) {
        for (int rest = 0; rest < 50; ++rest) {
            const auto command = create(version);
            DataBuffer buffer;
            append(buffer,
                   block(counting(10), strip, stripMin) + Bytes(static_cast<std::size_t>(rest), 7));
            EXPECT_EQ(command->removeESC(&buffer), rest > strip ? 1 : 0) << version << " " << rest;
            EXPECT_EQ(processedBytes(buffer), counting(10));
            EXPECT_EQ(buffer.GetRawDataSize(), rest);
        }
    }
}

// Image bytes in front of a header that have not been fetched yet stay.
TEST(ICommand, TakesOutTheHeaderAndNothingElse)
{
    PlainCommand command;
    DataBuffer buffer;
    fill(buffer, {1, 2, 3}, block({4, 5}, 9, 1) + block({6}, 9, 1));
    EXPECT_EQ(command.removeESC(&buffer), 1);
    EXPECT_EQ(processedBytes(buffer), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(command.removeESC(&buffer), 0);
    EXPECT_EQ(processedBytes(buffer), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST(ICommand, AnEmptyBufferStaysEmpty)
{
    PlainCommand command;
    DataBuffer buffer;
    EXPECT_EQ(command.removeESC(&buffer), 0);
    EXPECT_EQ(buffer.GetAllDataSize(), 0);
    EXPECT_EQ(command.getPendingBlockSize(), 0);
}

struct StreamCase {
    int version, strip, stripMin;
    unsigned seed;
};

class RemoveEscStream : public testing::TestWithParam<StreamCase> {};

// Blocks cut at random places come out as their image data, whatever the data looks like
// and however often the image bytes are fetched.
TEST_P(RemoveEscStream, GivesTheImageData)
{
    const StreamCase& param = GetParam();
    Random random(param.seed);
    for (int round = 0; round < 100; ++round) {
        const auto command = create(param.version);
        Bytes stream;
        Bytes expected;
        for (int i = random.pick(1, 12); i > 0; --i) {
            Bytes data = random.bytes(random.pick(0, random.pick(0, 3) == 0 ? 2000 : 20));
            if (data.size() > 3 && random.pick(0, 1) == 0) {
                data[0] = 0x1B;
                data[1] = 0x53;
                data[2] = 0x02;
            }
            stream = stream + block(data, param.strip, param.stripMin);
            expected = expected + data;
        }
        DataBuffer buffer;
        Bytes received;
        for (int from = 0; from < sizeOf(stream);) {
            const int n =
                std::min(random.pick(1, random.pick(0, 1) == 0 ? 5 : 400), sizeOf(stream) - from);
            append(buffer, slice(stream, from, from + n));
            from += n;
            int calls = 0;
            while (command->removeESC(&buffer) == 1) {
                ASSERT_LT(++calls, 1000);
            }
            if (random.pick(0, 2) == 0) {
                Bytes out(static_cast<std::size_t>(buffer.GetProcessedDataSize()));
                buffer.GetProcessedData(out.data(), sizeOf(out));
                received = received + out;
            }
        }
        // A last header may wait behind a block that ended at the end of a read.
        while (buffer.GetRawDataSize() > 0) {
            const int before = buffer.GetRawDataSize();
            command->removeESC(&buffer);
            ASSERT_LT(buffer.GetRawDataSize(), before);
        }
        EXPECT_EQ(received + processedBytes(buffer), expected);
        EXPECT_EQ(command->getPendingBlockSize(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, RemoveEscStream,
                         testing::Values(StreamCase{326, 9, 1, 51}, StreamCase{401, 10, 2, 52},
                                         StreamCase{402, 31, 23, 53}),
                         [](const auto& that) { return std::to_string(that.param.version); });

// A header that announces less than nothing announces nothing.
TEST(ICommand, BlocksOfLengthZeroMakeProgress)
{
    for (const int version : {326, 401, 402}) {
        const int strip = version == 326 ? 9 : version == 401 ? 10 : 31;
        const auto command = create(version);
        DataBuffer buffer;
        Bytes header(static_cast<std::size_t>(strip), 0);
        header[0] = 0x1B;
        header[1] = 0x53;
        header[2] = 0x02;
        append(buffer, header + header + header + Bytes{7, 8, 9});
        int calls = 1;
        while (command->removeESC(&buffer) == 1) {
            ASSERT_LT(++calls, 10);
        }
        command->removeESC(&buffer);
        EXPECT_EQ(allBytes(buffer), (Bytes{7, 8, 9})) << version;
        EXPECT_EQ(command->getPendingBlockSize(), 0) << version;
    }
}

TEST(ICommand, UnusualHeaderSizesStayInsideTheBuffer)
{
    for (const int strip : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 6, INT_MAX}) {
        for (const int stripMin : {-1, 0, 1, 1 << 20}) {
            PlainCommand command;
            command.setStripSize(strip);
            command.setStripMin(stripMin);
            DataBuffer buffer;
            append(buffer, {0x1B, 0x53, 0x02, 0});
            command.removeESC(&buffer);
            EXPECT_GE(command.getPendingBlockSize(), 0);
            EXPECT_LE(buffer.GetAllDataSize(), 4);
        }
    }
}

// ---- getCommand ------------------------------------------------------------------------

const Bytes kHeaders[] = {
    {0x1B, 0x53, 0x0F, 0, 0, 0, 0, 0},       {0x1B, 0x53, 0x04, 0, 0, 0, 0x80, 0},
    {0x1B, 0x53, 0x03, 0, 0, 0, 0x80, 0},    {0x1B, 0x53, 0x05, 0, 0x18, 0, 0x80, 0},
    {0x1B, 0x53, 0x01, 0, 0x18, 0, 0x80, 0}, {0x1B, 0x53, 0x06, 0, 0, 0, 0x80, 0},
    {0x1B, 0x44, 0x04, 0, 0, 0, 0x80, 0},    {0x1B, 0x53, 0x02, 0, 0, 0, 0, 0},
};

struct Version {
    int number;
    unsigned char parameters;  // byte 4 of the long commands
    Bytes tail;                // behind the first 32 bytes
};

const Version kVersions[] = {
    {326, 0x18, {}},
    {401, 0x1A, {0x04, 0x00}},
    {402, 0x23, {0x04, 0x00, 0x01, 0x01, 0x01, 0x00, 0x80, 0x00, 0x80, 0x01, 0x02}},
};

class Encoding : public testing::TestWithParam<Version> {
protected:
    void SetUp() override
    {
        store.SetIntOption("SCAN_SOURCE", 2);
        store.SetIntOption("COLORDEPTH", 3);
        store.setWindow(2550, 3300);
        command = create(GetParam().number);
        command->setConfigReader(&store);
    }
    Built buildNumber(int id)
    {
        command->setCommandId(id);
        return build(*command);
    }
    Bytes expected(int id, Bytes parameters) const
    {
        Bytes header = kHeaders[id];
        header[4] = GetParam().parameters;
        return header + parameters + GetParam().tail;
    }

    TestStore store;
    std::unique_ptr<ICommand> command;
};

TEST_P(Encoding, ShortCommandsAreTheirHeader)
{
    for (const int id : {0, 1, 2, 5, 6, 7}) {
        const LogCapture capture;
        const Built built = buildNumber(id);
        EXPECT_EQ(built.result, 0);
        EXPECT_EQ(built.bytes, kHeaders[id]) << id;
        EXPECT_TRUE(capture.contains("return now 8"));
        EXPECT_FALSE(capture.contains("append"));
    }
}

TEST_P(Encoding, LongCommandsCarryTheScan)
{
    const Bytes letter = {3, 0, 0, 3, 0xF6, 0x09, 0, 0, 0xE4, 0x0C, 0,    0,
                          0, 0, 0, 0, 0,    0,    0, 0, 0x2C, 0x01, 0x2C, 0x01};
    for (const int id : {3, 4}) {
        const Built built = buildNumber(id);
        EXPECT_EQ(built.result, 0);
        EXPECT_EQ(built.bytes, expected(id, letter)) << id;
    }
}

TEST_P(Encoding, EveryFieldHasItsPlace)
{
    store.SetIntOption("COLORDEPTH", 1);
    store.SetIntOption("COMPRESSION", 0x105);
    store.SetIntOption("COMPRESSIONLEVEL", 0x206);
    store.SetIntOption("PREVIEW", 1);
    // Without a resolution the computed values are 0 and the stored ones show.
    store.SetIntOption("CURRENTDPI", 0);
    store.SetIntOption("PIXELS_PER_LINE", 0x04030201);
    store.SetIntOption("LINES", 0x14131211);
    store.SetIntOption("SCANOFFSETX", 0x24232221);
    store.SetIntOption("SCANOFFSETY", -2);
    EXPECT_EQ(buildNumber(4).bytes,
              expected(4, {2,    5,    6,    4,    0x01, 0x02, 0x03, 0x04, 0x11, 0x12, 0x13, 0x14,
                           0x21, 0x22, 0x23, 0x24, 0xFE, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0}));
    store.SetIntOption("CURRENTDPI", 0x1234);
    const Built built = buildNumber(3);
    EXPECT_EQ(slice(built.bytes, 28, 32), (Bytes{0x34, 0x12, 0x34, 0x12}));
}

TEST_P(Encoding, SourceCodeFollowsTheSource)
{
    for (const auto& [source, code] : kSources) {
        store.SetIntOption("SCAN_SOURCE", source);
        const Built built = buildNumber(4);
        if (GetParam().number != 326) {
            EXPECT_EQ(built.bytes[32], code) << source;
        }
        EXPECT_EQ(built.length, 32 + sizeOf(GetParam().tail));
    }
}

TEST_P(Encoding, NpaWrapsWhatWouldBeSent)
{
    for (int id = 0; id < 8; ++id) {
        command->setNpa(0);
        const Built plain = buildNumber(id);
        command->setNpa(1);
        const LogCapture capture;
        const Built framed = buildNumber(id);
        unsigned char* out = nullptr;
        int length = plain.length;
        ASSERT_EQ(command->addNPA(&out, plain.bytes.data(), &length), 0);
        EXPECT_EQ(framed.result, 0);
        EXPECT_EQ(framed.bytes, Bytes(out, out + length)) << id;
        EXPECT_TRUE(capture.contains("return now " + std::to_string(length)));
        delete[] out;
    }
    EXPECT_EQ(buildNumber(0).length, 28);
}

TEST_P(Encoding, UnknownNumbersFail)
{
    for (const int npa : {0, 1}) {
        command->setNpa(npa);
        for (const int id : {8, 9, 255, INT_MAX, -1, -8, INT_MIN}) {
            const LogCapture capture;
            const Built built = buildNumber(id);
            EXPECT_EQ(built.result, 2) << id;
            EXPECT_EQ(built.length, 0) << id;
            EXPECT_THAT(built.bytes, IsEmpty());
            EXPECT_FALSE(capture.contains("return now"));
        }
    }
}

TEST_P(Encoding, LongCommandsForgetThePendingBlock)
{
    const int strip = GetParam().number == 326 ? 9 : GetParam().number == 401 ? 10 : 31;
    const int stripMin = GetParam().number == 326 ? 1 : GetParam().number == 401 ? 2 : 23;
    for (int id = 0; id < 8; ++id) {
        DataBuffer buffer;
        buildNumber(3);
        append(buffer, slice(block(counting(100), strip, stripMin), 0, strip + 1));
        command->removeESC(&buffer);
        ASSERT_EQ(command->getPendingBlockSize(), 99);
        buildNumber(id);
        EXPECT_EQ(command->getPendingBlockSize(), id == 3 || id == 4 ? 0 : 99) << id;
    }
}

TEST_P(Encoding, NeedsNoStore)
{
    const auto bare = create(GetParam().number);
    bare->setCommandId(4);
    const Built built = build(*bare);
    EXPECT_EQ(built.result, 0);
    Bytes tail = GetParam().tail;
    if (!tail.empty()) {
        tail[0] = 1;
    }
    Bytes header = kHeaders[4];
    header[4] = GetParam().parameters;
    EXPECT_EQ(built.bytes, (header + Bytes{2, 0, 0, 3} + Bytes(20, 0) + tail));
}

TEST_P(Encoding, FailsWithoutMemory)
{
    for (const int npa : {0, 1}) {
        command->setNpa(npa);
        command->setCommandId(4);
        bool isRefused = true;
        for (int granted = 0; isRefused; ++granted) {
            unsigned char* out = nullptr;
            int length = 0;
            const Allocations allocations(granted);
            const int result = command->getCommand(&out, &length);
            isRefused = allocations.refused();
            EXPECT_EQ(result, isRefused ? 2 : 0) << granted;
            EXPECT_EQ(out == nullptr, isRefused) << granted;
            delete[] out;
            ASSERT_LT(granted, 20);
        }
    }
}

TEST_P(Encoding, AsksInAFixedOrder)
{
    const LogCapture capture;
    buildNumber(4);
    Lines steps;
    for (const std::string& message : capture.messages()) {
        for (const char* part : {"METHOD START", "Pixel Per Line", "Lines", "Scan Offset X",
                                 "Scan Offset Y", "Current DPI", "Filter", "Color Depth",
                                 "Compression Level", "Compression =", "append selected options",
                                 "source: ", "command ID: 4", "METHOD END"}) {
            if (message.find(part) != std::string::npos) {
                steps.push_back(part);
            }
        }
        if (message.find("append selected options") != std::string::npos) {
            steps.back() = message;
        }
    }
    const Lines block = {"Pixel Per Line",    "Lines",
                         "Scan Offset X",     "Scan Offset Y",
                         "Current DPI",       "Filter",
                         "Color Depth",       "Compression =",
                         "Compression Level", "Command -> append selected options"};
    // The start and end lines of other functions are not of interest.
    Lines relevant;
    for (const std::string& step : steps) {
        if (step.find("METHOD") == std::string::npos) {
            relevant.push_back(step);
        }
    }
    switch (GetParam().number) {
    case 326:
        EXPECT_EQ(relevant, block);
        break;
    case 401:
        ASSERT_EQ(relevant.size(), block.size() + 2);
        EXPECT_EQ(Lines(relevant.begin(), relevant.begin() + 10), block);
        EXPECT_THAT(
            Lines(relevant.begin() + 10, relevant.end()),
            testing::UnorderedElementsAre("source: ", EndsWith(" -> append selected options")));
        break;
    default:
        ASSERT_EQ(relevant.size(), block.size() + 4);
        EXPECT_EQ(relevant[0], "Current DPI");
        EXPECT_EQ(relevant[1], "command ID: 4");
        EXPECT_EQ(Lines(relevant.begin() + 2, relevant.begin() + 12), block);
        EXPECT_EQ(relevant[12], "append selected options");
        EXPECT_EQ(relevant[13], "source: ");
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, Encoding, testing::ValuesIn(kVersions),
                         [](const auto& that) { return std::to_string(that.param.number); });

TEST(Cmd402, LogsItsStartAndEnd)
{
    TestStore store;
    Cmd402 command;
    command.setConfigReader(&store);
    command.setCommandId(3);
    Bytes bytes(43);
    unsigned char* data = bytes.data();
    const LogCapture capture;
    command.appendData(&data);
    EXPECT_THAT(capture.messages().front(), HasSubstr("METHOD START"));
    EXPECT_THAT(capture.messages().back(), HasSubstr("METHOD END"));
}

TEST(Cmd326, AppendsToALongerBuffer)
{
    TestStore store;
    store.setWindow(2, 1);
    Cmd326 command;
    command.setConfigReader(&store);
    Bytes bytes(40, 0xEE);
    unsigned char* data = bytes.data();
    command.appendData(&data);
    EXPECT_EQ(slice(bytes, 0, 8), Bytes(8, 0xEE));
    EXPECT_EQ(slice(bytes, 8, 16), (Bytes{2, 0, 0, 3, 2, 0, 0, 0}));
    EXPECT_EQ(slice(bytes, 32, 40), Bytes(8, 0xEE));
}

TEST(Cmd326, LogsTheLengthOfLongCommands)
{
    Cmd326 command;
    const LogCapture capture;
    command.setCmdLen(36);
    EXPECT_THAT(capture.messages(), ElementsAre("::::::::::::::: METHOD START ::::::::::::::: ",
                                                "Setting Command length: 36",
                                                "::::::::::::::: METHOD END ::::::::::::::: "));
    command.setCommandId(4);
    const Built built = build(command);
    EXPECT_EQ(built.length, 36);
    EXPECT_EQ(slice(built.bytes, 32, 36), Bytes(4, 0));
    command.setCommandId(1);
    EXPECT_EQ(build(command).length, 8);
}

// A length that does not hold the parameter block cuts it; one without room for the
// header fails.
TEST(Cmd326, TooShortALengthCutsTheCommand)
{
    for (const int version : {326, 401, 402}) {
        const auto command = create(version);
        command->setCommandId(4);
        const Bytes whole = build(*command).bytes;
        for (const int length : {INT_MIN, -1, 0, 7, 8, 9, 31, sizeOf(whole) - 1}) {
            for (const int npa : {0, 1}) {
                command->setNpa(npa);
                dynamic_cast<Cmd326&>(*command).setCmdLen(length);
                const Built built = build(*command);
                EXPECT_EQ(built.result, length < 8 ? 2 : 0) << version << " " << length;
                EXPECT_EQ(built.bytes.empty(), length < 8);
                if (length > 8 && npa == 0) {
                    EXPECT_EQ(built.bytes, slice(whole, 0, length));
                }
            }
        }
    }
}

}  // namespace
