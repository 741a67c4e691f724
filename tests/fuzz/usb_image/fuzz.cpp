// SPDX-License-Identifier: LGPL-2.1-or-later
// The image stream of a USB scanner: transfers, records, blocks, buffers, interleaving and
// manipulations, up to what a front end reads.
#include "Check.h"
#include "Input.h"
#include "PlainReading.h"
#include "ScanEngine.h"
#include "ScriptedUsb.h"

#include "IOComm.h"

#include <cstdint>
#include <memory>

#include <sane/sane.h>

namespace {

using fuzz::Input;
using fuzz::Page;
using fuzz::Settings;

constexpr int kSheets = 2;
constexpr std::size_t kLongestTransfer = 4096;

struct Result {
    std::vector<Page> pages;
    bool isDisturbed;
};

Result scan(const Settings& settings, const Input& script, const std::vector<int>& sizes)
{
    fuzz::ScriptedUsb device({FakeDevice()}, fuzz::Script(script, settings.version), true);
    auto* transport = new IOComm;
    transport->setDevice("Quillon/Flatbed/libusb:001:002");
    fuzz::ScanEngine engine(settings, transport);
    device.onCancel = [&engine] { engine.cancelNow(); };

    Result result = {{}, false};
    for (int sheet = 0; sheet < kSheets; ++sheet) {
        const ScanLib::Operation operation(engine);
        if (engine.Start() == SANE_STATUS_GOOD) {
            const auto expected = fuzz::plainReading(settings, script, kLongestTransfer,
                                                     engine.GetIntValue("PIXELS_PER_LINE"),
                                                     engine.GetIntValue("LINES"));
            result.pages.push_back(engine.readPage(sizes));
            if (sheet == 0) {
                fuzz::checkPage(result.pages[0], expected);
            }
            engine.cutToScannedWidth(result.pages.back());
        }
    }
    const ScanLib::Operation closing(engine);
    engine.CancelAndFlush();
    result.isDisturbed = device.script().isDisturbed();
    return result;
}

// The size of the reads must not decide about a page that is read to its end.
void compare(const Result& a, const Result& b)
{
    if (a.isDisturbed || b.isDisturbed) {
        return;
    }
    FUZZ_CHECK(a.pages.size() == b.pages.size());
    for (std::size_t i = 0; i < a.pages.size(); ++i) {
        FUZZ_CHECK(a.pages[i].status == b.pages[i].status);
        if (a.pages[i].status != SANE_STATUS_EOF) {
            return;
        }
        FUZZ_CHECK(a.pages[i].bytes == b.pages[i].bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const Settings settings(input);
    compare(scan(settings, input, settings.readSizes), scan(settings, input, {32768}));
    return 0;
}
