// SPDX-License-Identifier: LGPL-2.1-or-later
// Replies and property records, what the engine makes of them, and the commands of every
// protocol version for whatever settings came of it.
#include "Check.h"
#include "Input.h"
#include "ScanEngine.h"
#include "ScriptedUsb.h"
#include "Surroundings.h"

#include "CProps.h"
#include "CResponse.h"
#include "ICommand.h"
#include "ICommunication.h"
#include "IOComm.h"
#include "SaneInterface.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Settings;

constexpr int kDataOffset = 8;
constexpr int kPropertiesHeader = 7;
constexpr int kSourceHeader = 15;
constexpr int kResolution = 9;

// The data of a properties reply, zero behind its end.
class Records {
public:
    explicit Records(const Bytes& reply)
    {
        const auto length = static_cast<std::size_t>(reply[4] | reply[5] << 8);
        const std::size_t first = std::min<std::size_t>(kDataOffset, reply.size());
        const std::size_t last = std::min(reply.size(), first + length);
        data_.assign(reply.begin() + static_cast<std::ptrdiff_t>(first),
                     reply.begin() + static_cast<std::ptrdiff_t>(last));
    }

    int size() const { return static_cast<int>(data_.size()); }
    int byte(int at) const { return at < size() ? data_[static_cast<std::size_t>(at)] : 0; }
    int word(int at) const
    {
        unsigned value = 0;
        for (int i = 3; i >= 0; --i) {
            value = value << 8 | static_cast<unsigned>(byte(at + i));
        }
        return static_cast<int>(value);
    }

private:
    Bytes data_;
};

void checkResolution(const CScanRes* resolution, const Records& records, int at)
{
    FUZZ_CHECK(resolution != nullptr);
    int horizontal = 0;
    int vertical = 0;
    FUZZ_CHECK(resolution->getHorRes(&horizontal) == 0 && horizontal == records.word(at));
    FUZZ_CHECK(resolution->getVerRes(&vertical) == 0 && vertical == records.word(at + 4));
    FUZZ_CHECK(resolution->getColorDepth() == records.byte(at + 8));
    FUZZ_CHECK(resolution->isEqual() == (horizontal == vertical ? 1 : 0));
}

// Returns where the next source starts.
int checkSource(const CSources* source, const Records& records, int at)
{
    FUZZ_CHECK(source != nullptr);
    FUZZ_CHECK(source->getType() == records.byte(at));
    FUZZ_CHECK(source->getBarId() == records.byte(at + 1));
    int value = 0;
    FUZZ_CHECK(source->getOrgOffset(&value) == 0 && value == records.word(at + 2));
    FUZZ_CHECK(source->getWidth(&value) == 0 && value == records.word(at + 6));
    FUZZ_CHECK(source->getHeight(&value) == 0 && value == records.word(at + 10));
    const int count = records.byte(at + 14);
    FUZZ_CHECK(source->getNumOfRes() == count);
    for (int i = 0; i < count; ++i) {
        checkResolution(source->getScanRes(i), records, at + kSourceHeader + kResolution * i);
    }
    FUZZ_CHECK(source->getScanRes(count) == nullptr && source->getScanRes(-1) == nullptr);
    return at + kSourceHeader + kResolution * count;
}

void checkProperties(const CProps& properties, const Records& records)
{
    const int fields[] = {properties.getMajor(),        properties.getMinor(),
                          properties.getCodeset(),      properties.getCompression(),
                          properties.getAlignmentClr(), properties.getAlignmentGry(),
                          properties.getNumOfSources()};
    for (int i = 0; i < kPropertiesHeader; ++i) {
        FUZZ_CHECK(fields[i] == (i < records.size() ? records.byte(i) : -1));
    }
    const int count = records.byte(kPropertiesHeader - 1);
    int at = kPropertiesHeader;
    for (int i = 0; i < count; ++i) {
        at = checkSource(properties.getSource(i), records, at);
    }
    FUZZ_CHECK(properties.getSource(count) == nullptr && properties.getSource(-1) == nullptr);
}

void checkReply(const Bytes& reply)
{
    const int size = static_cast<int>(reply.size());
    CResponse response;
    if (response.setHeader(reply.data(), size) != 0) {
        FUZZ_CHECK(size < 6);
        return;
    }
    const auto field = [&](int at) { return at < size ? reply[static_cast<std::size_t>(at)] : -1; };
    FUZZ_CHECK(response.getReply() >= 0 && response.getReply() <= COMMAND_IMAGE);
    const bool isScan = reply[0] == 0x1B && reply[1] == 'S';
    FUZZ_CHECK(response.getStatus() == (isScan ? field(6) : -1));
    FUZZ_CHECK(response.getADFStatus() == field(7));
    FUZZ_CHECK(response.getRecordResponse() == field(8));
    FUZZ_CHECK(response.isFlipped() == (field(9) == 1 ? 1 : 0));
    FUZZ_CHECK((response.getProperties() != nullptr) == (reply[2] == 3));
    if (response.getProperties() != nullptr) {
        checkProperties(*response.getProperties(), Records(reply));
    }
}

// The lengths that commands have, and the frame around them.
void checkCommand(const Bytes& bytes, int id, const Settings& settings)
{
    constexpr std::size_t kOverhead = 20;
    const bool isLong = id == COMMAND_LOCK || id == COMMAND_START;
    const std::size_t longSize = settings.version == 402 ? 43 : settings.version == 401 ? 34 : 32;
    const std::size_t size = isLong ? longSize : 8;
    fuzz::touch(bytes.data(), bytes.size());
    FUZZ_CHECK(fuzz::Script::commandOf(bytes) == id);
    if (settings.npa == 0) {
        FUZZ_CHECK(bytes.size() == size);
        return;
    }
    FUZZ_CHECK(bytes.size() % 4 == 0 && bytes.size() == size + kOverhead + bytes[11]);
    FUZZ_CHECK(bytes.size() == static_cast<std::size_t>(bytes[1] << 8 | bytes[2]) + 3);
}

void checkCommands(ICommand& commands, const Settings& settings)
{
    for (int id = COMMAND_CANCEL; id <= COMMAND_IMAGE; ++id) {
        std::unique_ptr<unsigned char[]> bytes;
        int length = -1;
        FUZZ_CHECK(commands.encode(id, &bytes, &length) == 0);
        checkCommand(Bytes(bytes.get(), bytes.get() + length), id, settings);
    }
}

void touchOptions(ScanLib& engine)
{
    InitOptions(&engine);
    const std::unique_ptr<int, decltype(&free)> values(GetListValues(&engine), free);
    FUZZ_CHECK(values != nullptr && values.get()[0] >= 0);
    fuzz::touch(values.get(), (static_cast<std::size_t>(values.get()[0]) + 1) * sizeof(int));
    const SANE_Option_Descriptor* resolution =
        entry::sane_ScanLib_get_option_descriptor(&engine, 2);
    const SANE_Word* list = resolution->constraint.word_list;
    FUZZ_CHECK(list[0] == values.get()[0]);
    for (int i = 1; i <= list[0]; ++i) {
        FUZZ_CHECK(list[i] == values.get()[list[0] - i + 1]);
    }
}

// Gives its commands away.
class Engine : public fuzz::ScanEngine {
public:
    using fuzz::ScanEngine::ScanEngine;
    ICommand& commands() { return *pCmd; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const Settings settings(input);
    fuzz::setLogging(settings.isLogged);
    Input replies = input;
    checkReply(replies.rest());

    // The same bytes as what the device sends in transfers of its own choice.
    fuzz::ScriptedUsb device({FakeDevice()}, fuzz::Script(input, settings.version), false);
    auto* transport = new IOComm;
    transport->setDevice("Quillon/Flatbed/libusb:001:002");
    Engine engine(settings, transport);
    device.onCancel = [&engine] { engine.cancelNow(); };
    const ScanLib::Operation operation(engine);
    transport->openDevice();
    engine.LoadScanDeviceProperties();
    touchOptions(engine);
    checkCommands(engine.commands(), settings);
    for (int id = COMMAND_CANCEL; id <= COMMAND_WAKE; ++id) {
        CResponse response;
        const int result = transport->writeCommand(id, &response);
        FUZZ_CHECK(!ICommand::isAnswered(id) || result != id || response.getReply() == id);
    }
    return 0;
}
