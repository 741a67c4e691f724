// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScanEngine.h"

#include "Check.h"
#include "Surroundings.h"

#include "DataBuffer.h"
#include "DeCompHandler.h"
#include "FlatFileReader.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "InterleaveHandler.h"
#include "RawDataHandler.h"
#include "SaneConfReader.h"

#include <cstring>
#include <iterator>
#include <memory>

#include <sane/sane.h>

namespace {

constexpr int kVersions[] = {326, 401, 402};
constexpr double kInch = 25.4;
constexpr int kLongRead = 32768;
constexpr std::size_t kChosenReads = 200;  // those behind them are long ones
constexpr std::size_t kMostReads = 20000;

int readSize(unsigned code)
{
    constexpr unsigned kLongest = 255;
    return code == kLongest ? kLongRead : static_cast<int>(1 + code * code);
}

}  // namespace

fuzz::Settings::Settings(Input& input)
{
    const unsigned mode = input.byte();
    const unsigned image = input.byte();
    const auto bit = [](unsigned byte, int number) { return static_cast<int>(byte >> number & 1); };
    version = kVersions[mode % std::size(kVersions)];
    npa = bit(mode, 2);
    isLogged = mode >> 5 == 1;
    isFeeder = bit(mode, 4) != 0;
    const int dpi = static_cast<int>(1 + input.byte() % 100);
    width = kInch * (1 + input.byte() / 64.0);
    height = kInch * (1 + input.byte() / 64.0);
    readSizes = {readSize(input.byte()), readSize(input.byte())};
    numbers = {
        {"COMMANDVERSION", version},
        {"ENABLE_NPA", npa},
        {"CURRENTDPI", dpi},
        {"COLORDEPTH", bit(image, 0) != 0 ? 3 : 1},
        {"BGRTORGB", bit(image, 1)},
        {"FLATBEDSIDEFLIP", bit(image, 2)},
        {"ADFSIDEFLIP", bit(image, 3)},
        {"COMPRESSION", bit(image, 4)},
        {"COMPRESSIONTECH", 2},
        {"COMPRESSIONLEVEL", 6},
        {"COLORCORRECT", bit(image, 5)},
        {"SCANBARID", bit(image, 6)},
        {"SCAN_SOURCE", isFeeder ? 2 : 1},
        {"SCANNERTYPE", isFeeder ? 4 : 1},
        {"ADFDPILIMIT", 600},
        {"RESOLUTIONS", 2},
    };
}

int fuzz::Settings::number(const char* key) const
{
    for (const auto& [known, value] : numbers) {
        if (std::strcmp(known, key) == 0) {
            return value;
        }
    }
    return 0;
}

fuzz::ScanEngine::ScanEngine(const Settings& settings, ICommunication* comm)
{
    setLogging(settings.isLogged);
    putFile("correct.so", "");
    putFile("color0.bin", "\1");
    putFile("gray0.bin", "\2");
    putFile("color1.bin", "\3");
    putFile("gray1.bin", "\4");

    pCfgReader = std::make_unique<FlatFileReader>();
    for (const auto& [key, value] : settings.numbers) {
        SetIntValue(key, value);
    }
    for (const char* key : {"CURRENTBRX", "BOTTOMRIGHTX"}) {
        SetDoubleValue(key, settings.width);
    }
    for (const char* key : {"CURRENTBRY", "BOTTOMRIGHTY"}) {
        SetDoubleValue(key, settings.height);
    }
    SetStringValue("SCLIB", "correct.so");
    SetStringValue("SCFUNC", "correct");
    SetStringValue("COLORLUT", "color0.bin");
    SetStringValue("GRAYLUT", "gray0.bin");
    Buffer = std::make_unique<DataBuffer>();
    Image = std::make_unique<ImageData>();
    MyDecompressor = std::make_unique<DeCompHandler>();
    Interleaver = std::make_unique<InterleaveHandler>();
    ImageHandler = std::make_unique<RawDataHandler>();
    ImageHandler->SetUp(pCfgReader.get());
    SetComm(ICommand::createCmdInstance(settings.version));
    pCmd->setConfigReader(pCfgReader.get());
    pCmd->setNpa(settings.npa);
    SetIO(comm);
    pComm->setCommand(pCmd.get());
}

fuzz::Page fuzz::ScanEngine::readPage(const std::vector<int>& sizes)
{
    Page page = {SANE_STATUS_GOOD, {}};
    for (std::size_t reads = 0; page.status == SANE_STATUS_GOOD; ++reads) {
        FUZZ_CHECK(reads < kMostReads);
        const int size = reads < kChosenReads ? sizes[reads % sizes.size()] : kLongRead;
        // Of exactly that size, so that a byte too many is seen.
        const std::unique_ptr<unsigned char[]> room(
            new unsigned char[static_cast<std::size_t>(size)]);
        int length = -1;
        page.status = AcquireImage(room.get(), size, &length);
        FUZZ_CHECK(page.status >= SANE_STATUS_GOOD && page.status <= SANE_STATUS_ACCESS_DENIED);
        FUZZ_CHECK(length >= 0 && length <= size);
        FUZZ_CHECK(page.status != SANE_STATUS_EOF || length == 0);
        touch(room.get(), static_cast<std::size_t>(length));
        page.bytes.insert(page.bytes.end(), room.get(), room.get() + length);
    }
    return page;
}

void fuzz::ScanEngine::cutToScannedWidth(Page page)
{
    const int size = static_cast<int>(page.bytes.size());
    const int cut = Image->ApplyAdjustments(page.bytes.data(), size, GetIntValue("LINES"));
    FUZZ_CHECK(cut >= 0 && cut <= size);
    touch(page.bytes.data(), static_cast<std::size_t>(cut));
}
