// SPDX-License-Identifier: LGPL-2.1-or-later
// The whole library through its entry points: what a front end calls and what the scanner does
// are both the input's choice.
#include "Check.h"
#include "Dns.h"
#include "Input.h"
#include "ScanEngine.h"
#include "ScriptedNet.h"
#include "ScriptedUsb.h"
#include "Surroundings.h"

#include "SaneInterface.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Settings;
using namespace entry;

constexpr char kUsbName[] = "libusb/001/002";
constexpr char kNetName[] = "libnet/000800000000";
constexpr char kConfig[] = "/etc/sane.d/fuzzed.conf";
constexpr char kModels[] =
    "usb 0x1234 0x3260 /etc/sane.d/model.ini Flatbed\n"
    "usb 0x1234 0x3261 /etc/sane.d/none.ini Missing\n";
constexpr int kLongRead = 32768;
constexpr int kChosenReads = 200;  // those behind them are long ones
constexpr int kMostReads = 20000;
constexpr std::size_t kMostHandles = 2;

std::string modelFile(const Settings& settings)
{
    std::string text = "[INTEGERS]\n";
    for (const auto& [key, value] : settings.numbers) {
        text += std::string(key) + "=" + std::to_string(value) + "\n";
    }
    text += "RESOLUTIONS=2\nRESOLUTIONS_1=75\nRESOLUTIONS_2=10\n[DOUBLES]\n";
    for (const char* key : {"CURRENTBRX", "BOTTOMRIGHTX"}) {
        text += std::string(key) + "=" + std::to_string(settings.width) + "\n";
    }
    for (const char* key : {"CURRENTBRY", "BOTTOMRIGHTY"}) {
        text += std::string(key) + "=" + std::to_string(settings.height) + "\n";
    }
    return text;
}

bool isKnown(SANE_Status status)
{
    return status >= SANE_STATUS_GOOD && status <= SANE_STATUS_ACCESS_DENIED;
}

// A front end that calls whatever its input says, as far as the interface allows it.
class FrontEnd {
public:
    explicit FrontEnd(const Input& calls) : calls_(calls)
    {
        SANE_Int version = 0;
        FUZZ_CHECK(sane_ScanLib_init(&version, nullptr) == SANE_STATUS_GOOD);
    }
    FrontEnd(const FrontEnd&) = delete;
    FrontEnd& operator=(const FrontEnd&) = delete;
    ~FrontEnd()
    {
        while (!handles_.empty()) {
            close();
        }
        sane_ScanLib_exit();
    }

    void run()
    {
        while (!calls_.isEmpty()) {
            call(calls_.byte());
        }
    }

    // In a signal handler, so to say.
    void cancelAll()
    {
        for (SANE_Handle handle : handles_) {
            sane_ScanLib_cancel(handle);
        }
    }

    void listDevices();
    void open(const char* name);

private:
    void call(unsigned code);
    void chooseName();
    void close();
    void describeAll();
    void control(SANE_Action action);
    void start();
    SANE_Status read(int size);
    void readPage();

    SANE_Handle handle() const { return handles_.back(); }

    Input calls_;
    std::vector<SANE_Handle> handles_;
    std::string listed_;
};

// Every search finds the scanner on the network, behind those on USB.
void FrontEnd::listDevices()
{
    fuzz::ScriptedNet::current->datagrams.push_back(answerWith(scannerStrings()));
    const SANE_Device** list = nullptr;
    FUZZ_CHECK(sane_ScanLib_get_devices(&list, SANE_FALSE) == SANE_STATUS_GOOD);
    for (; *list != nullptr; ++list) {
        listed_ = (*list)->name;
        for (const char* text : {(*list)->name, (*list)->vendor, (*list)->model, (*list)->type}) {
            FUZZ_CHECK(text != nullptr);
            fuzz::touch(text);
        }
    }
    FUZZ_CHECK(listed_ == kNetName);
}

void FrontEnd::open(const char* name)
{
    SANE_Handle handle = nullptr;
    const SANE_Status status = sane_ScanLib_open(name, &handle);
    FUZZ_CHECK(isKnown(status) && (status == SANE_STATUS_GOOD) == (handle != nullptr));
    if (handle != nullptr) {
        handles_.push_back(handle);
    }
}

void FrontEnd::chooseName()
{
    if (handles_.size() >= kMostHandles) {
        return;
    }
    const unsigned choice = calls_.byte();
    const Bytes text = choice < 0x80 ? Bytes() : calls_.take(choice & 0x1F);
    switch (choice % 4) {
    case 0:
        open(kUsbName);
        break;
    case 1:
        open(listed_.c_str());
        break;
    case 2:
        open(std::string(text.begin(), text.end()).c_str());
        break;
    default:
        open(nullptr);
        break;
    }
}

void FrontEnd::close()
{
    sane_ScanLib_close(handle());
    handles_.pop_back();
}

void FrontEnd::describeAll()
{
    for (int n = 0; n < kOptionCount; ++n) {
        const SANE_Option_Descriptor* option = sane_ScanLib_get_option_descriptor(handle(), n);
        FUZZ_CHECK(option != nullptr);
        for (const char* text : {option->name, option->title, option->desc}) {
            FUZZ_CHECK(text != nullptr);
            fuzz::touch(text);
        }
        if (option->constraint_type == SANE_CONSTRAINT_WORD_LIST) {
            const SANE_Word* list = option->constraint.word_list;
            fuzz::touch(list, (static_cast<std::size_t>(list[0]) + 1) * sizeof *list);
        } else if (option->constraint_type == SANE_CONSTRAINT_RANGE) {
            fuzz::touch(option->constraint.range, sizeof *option->constraint.range);
        } else if (option->constraint_type == SANE_CONSTRAINT_STRING_LIST) {
            for (const SANE_String_Const* text = option->constraint.string_list; *text != nullptr;
                 ++text) {
                fuzz::touch(*text);
            }
        }
    }
    FUZZ_CHECK(sane_ScanLib_get_option_descriptor(handle(), kOptionCount) == nullptr);
    FUZZ_CHECK(sane_ScanLib_get_option_descriptor(handle(), -1) == nullptr);
}

// Values have just the room that the option says, and texts no particular place.
void FrontEnd::control(SANE_Action action)
{
    const int code = static_cast<signed char>(calls_.byte());
    const int n = code < 0 ? code : code % (kOptionCount + 1);
    const SANE_Option_Descriptor* option = sane_ScanLib_get_option_descriptor(handle(), n);
    const bool isText = option != nullptr && option->type == SANE_TYPE_STRING;
    Bytes value(option != nullptr ? static_cast<std::size_t>(option->size) + 1 : 1);
    if (action == SANE_ACTION_SET_VALUE && isText) {
        const unsigned choice = calls_.byte();
        const SANE_String_Const* list = option->constraint.string_list;
        Bytes text = choice >= 0x80 ? calls_.take(choice & 0x3F) : Bytes();
        for (unsigned i = 0; choice < 0x80 && i <= choice && list[i] != nullptr; ++i) {
            text.assign(list[i], list[i] + std::strlen(list[i]));
        }
        value.assign(1, 0);
        value.insert(value.end(), text.begin(), text.end());
        value.push_back(0);
    }
    SANE_Word word = action == SANE_ACTION_SET_VALUE && !isText ? calls_.integer() : 0;
    void* place = isText ? static_cast<void*>(value.data() + 1) : &word;
    SANE_Int info = -1;
    const SANE_Status status =
        sane_ScanLib_control_option(handle(), n, action, place, word % 7 == 3 ? nullptr : &info);
    FUZZ_CHECK(isKnown(status));
    FUZZ_CHECK(info == -1 || (info & ~(SANE_INFO_INEXACT | SANE_INFO_RELOAD_OPTIONS |
                                       SANE_INFO_RELOAD_PARAMS)) == 0);
    if (isText && status == SANE_STATUS_GOOD) {
        fuzz::touch(reinterpret_cast<const char*>(place));
    }
    fuzz::touch(&word, sizeof word);
}

void FrontEnd::start()
{
    const SANE_Status status = sane_ScanLib_start(handle());
    FUZZ_CHECK(isKnown(status));
    SANE_Parameters params = {};
    FUZZ_CHECK(sane_ScanLib_get_parameters(handle(), &params) == SANE_STATUS_GOOD);
    FUZZ_CHECK(params.depth == 8);
    fuzz::touch(&params, sizeof params);
}

SANE_Status FrontEnd::read(int size)
{
    const std::unique_ptr<unsigned char[]> room(new unsigned char[static_cast<std::size_t>(size)]);
    SANE_Int length = -1;
    const SANE_Status status = sane_ScanLib_read(handle(), room.get(), size, &length);
    FUZZ_CHECK(isKnown(status) && length >= 0 && length <= size);
    FUZZ_CHECK(status != SANE_STATUS_EOF || length == 0);
    fuzz::touch(room.get(), static_cast<std::size_t>(length));
    return status;
}

void FrontEnd::readPage()
{
    const unsigned code = calls_.byte();
    const int size = code == 0 ? kLongRead : static_cast<int>(code * code);
    int reads = 0;
    while (read(reads < kChosenReads ? size : kLongRead) == SANE_STATUS_GOOD) {
        FUZZ_CHECK(++reads < kMostReads);
    }
}

void FrontEnd::call(unsigned code)
{
    constexpr unsigned kCalls = 16;
    switch (code % kCalls) {
    case 0:
        listDevices();
        return;
    case 1:
        chooseName();
        return;
    case 2:
        fuzz::passTime(std::chrono::seconds(calls_.byte()));
        return;
    default:
        break;
    }
    if (handles_.empty()) {
        return;
    }
    switch (code % kCalls) {
    case 3:
        describeAll();
        break;
    case 4:
        control(SANE_ACTION_GET_VALUE);
        break;
    case 5:
        control(SANE_ACTION_SET_VALUE);
        break;
    case 6:
        control(SANE_ACTION_SET_AUTO);
        break;
    case 7: {
        SANE_Parameters params = {};
        sane_ScanLib_get_parameters(handle(), &params);
        fuzz::touch(&params, sizeof params);
        break;
    }
    case 8:
    case 9:
        start();
        break;
    case 10:
        read(static_cast<int>(calls_.byte()));
        break;
    case 11:
    case 12:
        readPage();
        break;
    case 13:
        sane_ScanLib_cancel(handle());
        break;
    case 14:
        close();
        break;
    default:
        FUZZ_CHECK(sane_ScanLib_set_io_mode(handle(), SANE_TRUE) == SANE_STATUS_UNSUPPORTED);
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned mode = input.byte();
    const Settings settings(input);
    const unsigned callCount = input.byte();
    const Bytes calls = input.take(callCount);
    const bool isObedient = (mode & 1) == 0;
    const bool isOnNetwork = (mode & 2) != 0;

    fuzz::setLogging(settings.isLogged);
    fuzz::putFile(kConfig, kModels);
    fuzz::putFile("/etc/sane.d/model.ini", modelFile(settings));
    const fuzz::Script script(input, settings.version);
    const fuzz::Script silent(Input(nullptr, 0), settings.version);
    fuzz::ScriptedUsb usb({FakeDevice()}, isOnNetwork ? silent : script, isObedient);
    fuzz::ScriptedNet net(isOnNetwork ? script : silent, isObedient, mode >> 4);
    {
        FrontEnd frontEnd(Input(calls.data(), calls.size()));
        usb.onCancel = net.onCancel = [&frontEnd] { frontEnd.cancelAll(); };
        frontEnd.listDevices();
        frontEnd.open(isOnNetwork ? kNetName : kUsbName);
        frontEnd.run();
    }
    FUZZ_CHECK(usb.usb().openHandles == 0);
    return 0;
}
