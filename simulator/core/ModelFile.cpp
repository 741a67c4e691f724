// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetworkKeys.h"
#include "ModelFile.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "ChunkEncoder.h"
#include "FaultScript.h"
#include "Text.h"

#ifndef SCANSIM_QUILLON_VID
#error "SCANSIM_QUILLON_VID and SCANSIM_OXLE_VID come from the build settings"
#endif

namespace scansim {

namespace {

namespace fs = std::filesystem;

using Setter = ModelSetter;
using SourceSetter = std::function<void(Source&, const ModelSetting&)>;

// A scan reply with properties has to fit one 512-byte read, header included.
constexpr std::size_t kMaxPropertiesSize = 504;

// The compression technique, as property records number it.
constexpr std::uint32_t kBlockTransform = 2;

template <class Record>
auto number(std::uint32_t Record::*field, std::uint32_t low, std::uint32_t high)
{
    return [=](Record& record, const ModelSetting& setting) {
        record.*field = parseNumber(setting.value, low, high);
    };
}

Setter flag(bool Model::*field)
{
    return
        [=](Model& model, const ModelSetting& setting) { model.*field = parseFlag(setting.value); };
}

Setter choice(bool Model::*field, const std::string& no, const std::string& yes)
{
    return [=](Model& model, const ModelSetting& setting) {
        model.*field = parseChoice(setting.value, no, yes);
    };
}

Setter usbString(UsbString Model::*field)
{
    return [=](Model& model, const ModelSetting& setting) {
        UsbString& string = model.*field;
        string.text.clear();
        if (setting.value == "none") {
            string.kind = UsbString::Kind::Absent;
        } else if (setting.value == "fails") {
            string.kind = UsbString::Kind::Fails;
        } else {
            string.kind = UsbString::Kind::Text;
            string.text = setting.value;
        }
    };
}

std::string resolved(const std::string& path, const std::string& baseFolder)
{
    return (fs::path(baseFolder) / path).lexically_normal().string();
}

std::uint32_t parseVendorId(const std::string& text)
{
    if (text == "quillon") {
        return SCANSIM_QUILLON_VID;
    }
    if (text == "oxle") {
        return SCANSIM_OXLE_VID;
    }
    return parseNumber(text, 1, 0xFFFF);
}

Resolution parseResolution(const std::string& text)
{
    Resolution resolution;
    std::string dots = text;
    const std::size_t at = dots.find('@');
    if (at != std::string::npos) {
        resolution.depth = static_cast<std::uint8_t>(parseNumber(dots.substr(at + 1), 1, 255));
        dots.resize(at);
    }
    const std::size_t times = dots.find('x', 1);
    resolution.horizontal = parseNumber(dots.substr(0, times), 1, 9600);
    resolution.vertical = times == std::string::npos ? resolution.horizontal
                                                     : parseNumber(dots.substr(times + 1), 1, 9600);
    return resolution;
}

void setResolutions(Source& source, const ModelSetting& setting)
{
    source.resolutions.clear();
    for (const std::string& word : words(setting.value)) {
        source.resolutions.push_back(parseResolution(word));
    }
}

void setPapers(Source& source, const ModelSetting& setting)
{
    source.papers.clear();
    for (const std::string& word : words(setting.value)) {
        const bool isBuiltIn = word == "chart" || word == "noise";
        source.papers.push_back(isBuiltIn ? word : resolved(word, setting.baseFolder));
    }
    if (source.papers.empty()) {
        throw InputError("no paper is given");
    }
}

void setSources(Model& model, const ModelSetting& setting)
{
    model.sources.clear();
    for (const std::string& word : words(setting.value)) {
        const SourceKind kind =
            parseChoice(word, "flatbed", "feeder") ? SourceKind::Feeder : SourceKind::Flatbed;
        if (model.has(kind)) {
            throw InputError("'" + word + "' is named twice");
        }
        model.sources.push_back(kind);
    }
}

// "0xFF 0x81 0x02 / 7 0x83 0x04": class and endpoints of each interface.
void setInterfaces(Model& model, const ModelSetting& setting)
{
    model.interfaces.clear();
    for (const std::string& part : split(setting.value, '/')) {
        const std::vector<std::string> fields = words(part);
        if (fields.empty()) {
            throw InputError("an interface needs a class");
        }
        UsbInterface interface;
        interface.interfaceClass = static_cast<std::uint8_t>(parseNumber(fields[0], 0, 255));
        for (std::size_t i = 1; i < fields.size(); ++i) {
            interface.endpoints.push_back(
                static_cast<std::uint8_t>(parseNumber(fields[i], 1, 0x8F)));
        }
        model.interfaces.push_back(interface);
    }
}

void addFault(Model& model, const ModelSetting& setting)
{
    FaultScript().add(setting.value);
    model.faults.push_back(setting.value);
}

void setProtocol(Model& model, const ModelSetting& setting)
{
    const std::uint32_t version = parseNumber(setting.value, 326, 402);
    if (version != 326 && version != 401 && version != 402) {
        throw InputError("protocol is 326, 401 or 402");
    }
    model.protocol = version;
}

void setStream(Model& model, const ModelSetting& setting)
{
    if (setting.value != "raw" && setting.value != "interleaved" && setting.value != "compressed") {
        throw InputError("'" + setting.value + "' is none of raw, interleaved and compressed");
    }
    model.isInterleaved = setting.value == "interleaved";
    model.isCompressed = setting.value == "compressed";
    if (model.isCompressed) {
        model.compression = 1;
        model.compressionTechnique = kBlockTransform;
    }
}

int parseQuality(const std::string& text)
{
    const bool isNegative = text[0] == '-';
    const int size = static_cast<int>(parseNumber(text.substr(isNegative ? 1 : 0), 0, 1000));
    return isNegative ? -size : size;
}

void setQualities(Model& model, const ModelSetting& setting)
{
    model.qualities.clear();
    for (const std::string& word : words(setting.value)) {
        model.qualities.push_back(parseQuality(word));
    }
    if (model.qualities.empty()) {
        throw InputError("no quality is given");
    }
}

std::map<std::string, SourceSetter> sourceSetters()
{
    return {
        {"type", number(&Source::type, 0, 255)},
        {"bar-id", number(&Source::barId, 0, 255)},
        {"origin", number(&Source::origin, 0, 0xFFFFFFFF)},
        {"width", number(&Source::width, 1, 100000)},
        {"height", number(&Source::height, 1, 100000)},
        {"resolutions", setResolutions},
        {"paper", setPapers},
        {"mirrored",
         [](Source& source, const ModelSetting& setting) {
             source.isMirrored = parseFlag(setting.value);
         }},
    };
}

void addSourceKeys(std::map<std::string, Setter>& keys, const std::string& prefix,
                   Source Model::*source)
{
    for (const auto& [key, setter] : sourceSetters()) {
        keys[prefix + key] = [source, inner = setter](Model& model, const ModelSetting& setting) {
            inner(model.*source, setting);
        };
    }
}

void addStatusKeys(std::map<std::string, Setter>& keys)
{
    for (std::size_t id = 1; id < kCommandCount; ++id) {
        keys[std::string("status.") + commandName(static_cast<CommandId>(id))] =
            [id](Model& model, const ModelSetting& setting) {
                model.statuses[id] = parseNumber(setting.value, 0, 255);
            };
    }
}

std::map<std::string, Setter> makeSetters()
{
    std::map<std::string, Setter> keys = {
        {"model-name",
         [](Model& model, const ModelSetting& setting) { model.modelName = setting.value; }},
        {"feature-file",
         [](Model& model, const ModelSetting& setting) {
             model.featureFile = resolved(setting.value, setting.baseFolder);
         }},
        {"vendor-id",
         [](Model& model, const ModelSetting& setting) {
             model.vendorId = parseVendorId(setting.value);
         }},
        {"product-id", number(&Model::productId, 0, 0xFFFF)},
        {"vendor", usbString(&Model::vendor)},
        {"product", usbString(&Model::product)},
        {"device-class", number(&Model::deviceClass, 0, 255)},
        {"interfaces", setInterfaces},
        {"scanner-interface", number(&Model::scannerInterface, 0, 31)},
        {"packet-size", number(&Model::packetSize, 8, 1024)},
        {"read-only", flag(&Model::isReadOnly)},
        {"kernel-driver", flag(&Model::hasKernelDriver)},
        {"protocol", setProtocol},
        {"npa", flag(&Model::usesNpa)},
        {"compression", number(&Model::compression, 0, 255)},
        {"compression-level", number(&Model::compressionLevel, 0, 255)},
        {"properties.major", number(&Model::majorVersion, 0, 255)},
        {"properties.minor", number(&Model::minorVersion, 0, 255)},
        {"properties.codeset", number(&Model::codeset, 0, 255)},
        {"properties.compression", number(&Model::compressionTechnique, 0, 255)},
        {"properties.colour-alignment", number(&Model::colourAlignment, 0, 255)},
        {"properties.grey-alignment", number(&Model::greyAlignment, 0, 255)},
        {"sources", setSources},
        {"feeder.sheets", number(&Model::sheets, 0, 1000000)},
        {"feeder.sheet-height", number(&Model::sheetHeight, 1, 100000)},
        {"stream", setStream},
        {"interleave.offset-x", number(&Model::interleaveOffsetX, 0, 10000)},
        {"interleave.trim", number(&Model::interleaveTrim, 0, 10000)},
        {"band-lines", number(&Model::bandLines, 1, 32)},
        {"quality", setQualities},
        {"colour-order", choice(&Model::isBgr, "rgb", "bgr")},
        {"flipped", flag(&Model::isFlipped)},
        {"block-size", number(&Model::blockSize, 1, 65512)},
        {"block-transfers", choice(&Model::packsBlocks, "separate", "packed")},
        {"block-delay-ms", number(&Model::blockDelayMs, 0, 3600000)},
        {"blocks-after-cancel", number(&Model::blocksAfterCancel, 0, 1000000)},
        {"fault", addFault},
        {"replay",
         [](Model& model, const ModelSetting& setting) {
             model.replay = resolved(setting.value, setting.baseFolder);
         }},
    };
    addSourceKeys(keys, "flatbed.", &Model::flatbed);
    addSourceKeys(keys, "feeder.", &Model::feeder);
    addStatusKeys(keys);
    addNetworkKeys(keys);
    return keys;
}

const std::map<std::string, Setter>& setters()
{
    static const std::map<std::string, Setter> keys = makeSetters();
    return keys;
}

void apply(Model& model, const ModelSetting& setting)
{
    const auto found = setters().find(setting.key);
    if (found == setters().end()) {
        throw InputError(setting.where + ": unknown key '" + setting.key + "'");
    }
    try {
        found->second(model, setting);
    } catch (const InputError& error) {
        throw InputError(setting.where + ": " + setting.key + ": " + error.what());
    }
}

Model defaults(const std::string& path)
{
    Model model;
    model.name = fs::path(path).stem().string();
    model.modelName = model.name;
    model.vendorId = SCANSIM_QUILLON_VID;
    model.interfaces = {{255, {0x81, 0x02}}};
    model.flatbed.type = 1;
    model.feeder.type = 2;
    model.feeder.height = 4200;
    model.statuses.fill(0x80);
    return model;
}

void checkSources(const Model& model)
{
    if (model.sources.empty()) {
        throw InputError("'sources' names no source");
    }
    std::size_t propertiesSize = 7;
    for (SourceKind kind : model.sources) {
        const Source& source = model.source(kind);
        if (source.resolutions.empty()) {
            throw InputError("a source has no 'resolutions'");
        }
        propertiesSize += 15 + 9 * source.resolutions.size();
    }
    if (propertiesSize > kMaxPropertiesSize) {
        throw InputError("the property records do not fit one reply");
    }
}

void checkInterfaces(const Model& model)
{
    if (model.scannerInterface >= model.interfaces.size()) {
        throw InputError("'scanner-interface' is not among the interfaces");
    }
    bool hasIn = false;
    bool hasOut = false;
    for (std::uint8_t endpoint : model.interfaces[model.scannerInterface].endpoints) {
        hasIn = hasIn || (endpoint & 0x80) != 0;
        hasOut = hasOut || (endpoint & 0x80) == 0;
    }
    if (!hasIn || !hasOut) {
        throw InputError("the scanner interface needs an IN and an OUT endpoint");
    }
}

void checkCompression(const Model& model)
{
    for (SourceKind kind : model.sources) {
        const Source& source = model.source(kind);
        for (const Resolution& resolution : source.resolutions) {
            const std::uint64_t dots = std::uint64_t{source.width} * resolution.horizontal;
            if (dots > std::uint64_t{ChunkEncoder::kMaxPixels} * 300) {
                throw InputError("the lines of a source are too long for compression");
            }
        }
    }
}

void check(const Model& model)
{
    checkSources(model);
    checkInterfaces(model);
    if (model.isCompressed) {
        checkCompression(model);
    }
    if (model.blockSize + blockFraming(model.protocol).lengthSurplus > 0xFFFF) {
        throw InputError("'block-size' does not fit the length field of the protocol");
    }
}

std::vector<ModelSetting> readSettings(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        throw InputError(path + ": cannot be read");
    }
    std::vector<ModelSetting> settings;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string text = trimmed(line);
        if (!text.empty() && text[0] != '#') {
            settings.push_back(ModelFile::parseSetting(text, path + ":" + std::to_string(number),
                                                       fs::path(path).parent_path().string()));
        }
    }
    return settings;
}

}  // namespace

Model ModelFile::load(const std::string& path, const std::vector<ModelSetting>& overrides)
{
    Model model = defaults(path);
    for (const ModelSetting& setting : readSettings(path)) {
        apply(model, setting);
    }
    for (const ModelSetting& setting : overrides) {
        apply(model, setting);
    }
    try {
        check(model);
    } catch (const InputError& error) {
        throw InputError(path + ": " + error.what());
    }
    return model;
}

ModelSetting ModelFile::parseSetting(const std::string& text, const std::string& where,
                                     const std::string& baseFolder)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw InputError(where + ": '" + text + "' is not of the form key = value");
    }
    return {trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1)), where, baseFolder};
}

std::vector<std::string> ModelFile::knownKeys()
{
    std::vector<std::string> keys;
    for (const auto& entry : setters()) {
        keys.push_back(entry.first);
    }
    return keys;
}

}  // namespace scansim
