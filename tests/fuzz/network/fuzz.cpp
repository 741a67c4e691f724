// SPDX-License-Identifier: LGPL-2.1-or-later
// Sessions with a scanner on the network: greeting, commands, frames, images, cancels and new
// connections.
#include "Check.h"
#include "Frames.h"
#include "Input.h"
#include "PlainReading.h"
#include "ScanEngine.h"
#include "ScriptedNet.h"

#include "CResponse.h"
#include "Cmd326.h"
#include "NetComm.h"

#include <memory>

#include <sane/sane.h>

namespace {

using fuzz::Input;
using fuzz::Script;
using fuzz::ScriptedNet;
using fuzz::Settings;

constexpr int kSheets = 2;
constexpr std::size_t kLongestBlock = 8192;
constexpr char kName[] = "Quillon/Model/libnet:000800000000:127.0.0.1:1234:3260";

// The library counts empty frames from the last record on, in whatever session that was.
void forgetEmptyFrames()
{
    const fuzz::Bytes item = {1, 0x90};  // the record that ends a page
    ScriptedNet scanner(Script(Input(item.data(), item.size()), 326), true, 0);
    Cmd326 command;
    NetComm transport;
    transport.setDevice(kName);
    transport.setCommand(&command);
    FUZZ_CHECK(transport.openDevice() == TRANSPORT_OK);
    DataBuffer buffer;
    ImageData image;
    int bytes = 0;
    FUZZ_CHECK(transport.ReadImage(&bytes, &buffer, &image) == RECORD_END_OF_DATA);
}

void scan(fuzz::ScanEngine& engine, const Settings& settings, const Input* plainScript)
{
    const ScanLib::Operation operation(engine);
    if (engine.Start() != SANE_STATUS_GOOD) {
        return;
    }
    std::optional<fuzz::Expected> expected;
    if (plainScript != nullptr) {
        expected =
            fuzz::plainReading(settings, *plainScript, kLongestBlock,
                               engine.GetIntValue("PIXELS_PER_LINE"), engine.GetIntValue("LINES"));
    }
    fuzz::checkPage(engine.readPage(settings.readSizes), expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    forgetEmptyFrames();

    Input input(data, size);
    const unsigned mode = input.byte();
    const Settings settings(input);
    const bool isObedient = (mode & 0x80) == 0;
    ScriptedNet scanner(Script(input, settings.version), isObedient, mode & 0x7F);
    const bool isWaiting = settings.number("SCANBARID") != 0;
    auto* transport = new NetComm;
    transport->setDevice(kName);
    fuzz::ScanEngine engine(settings, transport);
    scanner.onCancel = [&engine] { engine.cancelNow(); };
    {
        const ScanLib::Operation operation(engine);
        transport->openDevice();
        engine.LoadScanDeviceProperties();
        if (isWaiting) {
            // Frames come with their headers here, and so never as the reply.
            CResponse response;
            const int result = transport->writeCommandAndWaitReply(COMMAND_WAKE, &response);
            FUZZ_CHECK(result != TRANSPORT_OK);
        }
    }
    for (int sheet = 0; sheet < kSheets; ++sheet) {
        scan(engine, settings, isObedient && !isWaiting && sheet == 0 ? &input : nullptr);
    }
    const ScanLib::Operation closing(engine);
    engine.CancelAndFlush();
    return 0;
}
