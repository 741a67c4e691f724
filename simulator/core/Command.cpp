// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Command.h"

#include <algorithm>

#include "NpaWrapper.h"

namespace scansim {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::uint32_t kDotsPerInch = 300;

bool carriesParameters(CommandId id)
{
    return id == CommandId::Lock || id == CommandId::Start;
}

std::size_t parameterSize(std::uint32_t protocol)
{
    switch (protocol) {
    case 401:
        return 26;
    case 402:
        return 35;
    default:
        return 24;
    }
}

std::optional<CommandId> recognise(const Bytes& bytes)
{
    for (std::size_t i = 0; i < kCommandCount; ++i) {
        const Bytes header = commandHeader(static_cast<CommandId>(i), 326);
        if (bytes.size() >= 3 && std::equal(header.begin(), header.begin() + 3, bytes.begin())) {
            return static_cast<CommandId>(i);
        }
    }
    return std::nullopt;
}

ScanRequest readRequest(const Bytes& parameters, std::uint32_t protocol)
{
    const std::uint8_t* p = parameters.data();
    ScanRequest request;
    request.colourCode = p[0];
    request.compression = p[1];
    request.compressionLevel = p[2];
    request.filter = p[3];
    request.pixels = le32(p + 4);
    request.lines = le32(p + 8);
    request.offsetX = le32(p + 12);
    request.offsetY = le32(p + 16);
    request.dpi = le16(p + 20);
    request.verticalDpi = le16(p + 22);
    request.sourceCode = protocol == 326 ? 0U : p[24];
    return request;
}

void checkConstantTail(const Bytes& parameters, const Model& model, Journal& journal)
{
    Bytes expected;
    if (model.protocol == 401) {
        expected = {0};
    } else if (model.protocol == 402) {
        expected = {0, 1, 1, 1, 0x00, 0x80, 0x00, 0x80, 1, 2};
    }
    if (!std::equal(expected.begin(), expected.end(),
                    parameters.end() - static_cast<long>(expected.size()))) {
        journal.complain("the constant bytes at the end of the scan parameters are wrong: " +
                         hex(parameters.data(), parameters.size()));
    }
}

// Complains when a value is not as it should be; true when it is.
bool expect(bool isRight, Journal& journal, const std::string& what, std::uint32_t value)
{
    if (!isRight) {
        journal.complain(what + " " + std::to_string(value) + " is wrong");
    }
    return isRight;
}

bool offersResolution(const Source& source, std::uint32_t dpi)
{
    return std::any_of(
        source.resolutions.begin(), source.resolutions.end(),
        [dpi](const Resolution& r) { return r.horizontal == dpi && r.vertical == dpi; });
}

std::uint64_t dotsOf(std::uint32_t length, std::uint32_t dpi)
{
    return (static_cast<std::uint64_t>(length) * dpi + kDotsPerInch - 1) / kDotsPerInch;
}

bool isInside(const ScanRequest& request, const Source& source, Journal& journal)
{
    const std::uint64_t right = static_cast<std::uint64_t>(request.offsetX) + request.pixels;
    const std::uint64_t bottom = static_cast<std::uint64_t>(request.offsetY) + request.lines;
    const bool fitsAcross = request.pixels > 0 && right <= dotsOf(source.width, request.dpi);
    const bool fitsDown = request.lines > 0 && bottom <= dotsOf(source.height, request.dpi);
    if (!fitsAcross) {
        journal.complain("pixels " + std::to_string(request.pixels) + " at offset " +
                         std::to_string(request.offsetX) + " are not inside the source's " +
                         std::to_string(dotsOf(source.width, request.dpi)));
    }
    if (!fitsDown) {
        journal.complain("lines " + std::to_string(request.lines) + " at offset " +
                         std::to_string(request.offsetY) + " are not inside the source's " +
                         std::to_string(dotsOf(source.height, request.dpi)));
    }
    return fitsAcross && fitsDown;
}

}  // namespace

std::string describe(const Command& command)
{
    if (!carriesParameters(command.id)) {
        return commandName(command.id);
    }
    const ScanRequest& r = command.request;
    const auto text = [](std::uint32_t value) { return std::to_string(value); };
    return std::string(commandName(command.id)) + ": " + text(r.pixels) + " x " + text(r.lines) +
           " pixels at " + text(r.offsetX) + "," + text(r.offsetY) + ", " + text(r.dpi) + " x " +
           text(r.verticalDpi) + " dpi, colour " + text(r.colourCode) + ", compression " +
           text(r.compression) + "/" + text(r.compressionLevel) + ", filter " + text(r.filter) +
           ", source " + text(r.sourceCode);
}

Bytes commandHeader(CommandId id, std::uint32_t protocol)
{
    static const std::uint8_t codes[kCommandCount][2] = {{0x53, 0x0F}, {0x53, 0x04}, {0x53, 0x03},
                                                         {0x53, 0x05}, {0x53, 0x01}, {0x53, 0x06},
                                                         {0x44, 0x04}};
    const std::uint8_t* code = codes[static_cast<std::size_t>(id)];
    const std::size_t length = carriesParameters(id) ? parameterSize(protocol) : 0;
    const std::uint8_t wantsReply = id == CommandId::Cancel ? 0x00 : 0x80;
    return {0x1B, code[0], code[1], 0, static_cast<std::uint8_t>(length), 0, wantsReply, 0};
}

std::optional<Command> decodeCommand(const Model& model, const Bytes& written, Journal& journal)
{
    const std::optional<Bytes> bytes = model.usesNpa ? unwrapNpa(written, journal) : written;
    if (!bytes) {
        return std::nullopt;
    }
    const std::optional<CommandId> id = recognise(*bytes);
    if (!id) {
        journal.complain("not a command: " + hex(written.data(), written.size()));
        return std::nullopt;
    }
    const Bytes header = commandHeader(*id, model.protocol);
    const std::size_t size = kHeaderSize + header[4];
    if (bytes->size() != size) {
        journal.complain(std::string(commandName(*id)) + " is " + std::to_string(bytes->size()) +
                         " bytes long instead of " + std::to_string(size));
        return std::nullopt;
    }
    if (!std::equal(header.begin(), header.end(), bytes->begin())) {
        journal.complain(std::string(commandName(*id)) + " has the header " +
                         hex(bytes->data(), kHeaderSize) + " instead of " +
                         hex(header.data(), kHeaderSize));
    }
    Command command;
    command.id = *id;
    command.parameters.assign(bytes->begin() + kHeaderSize, bytes->end());
    if (carriesParameters(*id)) {
        command.request = readRequest(command.parameters, model.protocol);
        checkConstantTail(command.parameters, model, journal);
    }
    return command;
}

bool isPossible(const ScanRequest& request, const Model& model, SourceKind kind, Journal& journal)
{
    const Source& source = model.source(kind);
    bool isGood = expect(request.colourCode == 2 || request.colourCode == 3, journal, "colour code",
                         request.colourCode);
    isGood &= expect(request.compression == model.compression, journal, "compression",
                     request.compression);
    isGood &= expect(request.compressionLevel == model.compressionLevel, journal,
                     "compression level", request.compressionLevel);
    isGood &=
        expect(request.filter == 3 || request.filter == 4, journal, "filter code", request.filter);
    isGood &= expect(request.verticalDpi == request.dpi, journal, "vertical resolution",
                     request.verticalDpi);
    isGood &= expect(offersResolution(source, request.dpi), journal, "resolution", request.dpi);
    return isInside(request, source, journal) && isGood;
}

}  // namespace scansim
