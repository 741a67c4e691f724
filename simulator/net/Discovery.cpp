// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Discovery.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>

namespace scansim {

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::uint16_t kTypeA = 1;
constexpr std::uint16_t kTypeTxt = 16;
constexpr std::uint16_t kTypeSrv = 33;
constexpr std::uint16_t kClassInternet = 1;
constexpr std::uint16_t kScannerPort = 9100;
constexpr std::uint8_t kPointer = 0xC0;
constexpr std::size_t kLargestGarbage = 1400;

const char* const kService = "_host-config";

void addWord(Bytes& out, std::size_t value)
{
    out.push_back(static_cast<std::uint8_t>(value >> 8 & 0xFF));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void addString(Bytes& out, const std::string& text)
{
    out.push_back(static_cast<std::uint8_t>(text.size()));
    out.insert(out.end(), text.begin(), text.end());
}

void addServiceName(Bytes& out)
{
    addString(out, kService);
    addString(out, "_udp");
    addString(out, "local");
    out.push_back(0);
}

void addQuestion(Bytes& out)
{
    addServiceName(out);
    addWord(out, kTypeSrv);
    addWord(out, kClassInternet);
}

Bytes makeHeader(bool isResponse, std::size_t questions, std::size_t answers)
{
    Bytes out;
    addWord(out, 0);
    addWord(out, isResponse ? 0x8400 : 0);
    addWord(out, questions);
    addWord(out, answers);
    addWord(out, 0);
    addWord(out, 0);
    return out;
}

Bytes expectedQuery()
{
    Bytes query = makeHeader(false, 1, 0);
    addQuestion(query);
    return query;
}

// The MAC address as scanners write it: the bits of each byte the other way round.
std::string reversedMac(const std::string& mac)
{
    std::string out;
    for (std::size_t i = 0; i + 1 < mac.size(); i += 2) {
        const auto value = static_cast<unsigned>(std::stoul(mac.substr(i, 2), nullptr, 16));
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < 8; ++bit) {
            reversed |= (value >> bit & 1U) << (7 - bit);
        }
        char text[4];
        std::snprintf(text, sizeof text, "%02X", reversed & 0xFF);
        out += text;
    }
    return out;
}

struct TextString {
    std::string key;
    std::string value;
};

std::vector<TextString> textStrings(const Model& model)
{
    const NetworkTraits& traits = model.network;
    char vidPid[16];
    std::snprintf(vidPid, sizeof vidPid, "%08X",
                  traits.vidPid.value_or(model.vendorId << 16 | model.productId));
    std::vector<TextString> strings = {{"IPADDRESS", traits.ip},
                                       {"IPNETMASK", "255.255.255.0"},
                                       {"IPGATEWAY", "0.0.0.0"},
                                       {"IPNAME", traits.hostName},
                                       {"MACLAA", "000000000000"},
                                       {"MACUAA", reversedMac(traits.mac)},
                                       {"MDNSNAME", traits.hostName + ".local"},
                                       {"IPADDRSOURCE", "DHCP"}};
    const std::string idString = traits.idString.value_or(model.product.text);
    const std::string adapterName = traits.adapterName.value_or(model.product.text);
    if (!idString.empty()) {
        strings.push_back({"1284STRID", idString});
    }
    if (!adapterName.empty()) {
        strings.push_back({"ADAPTERNAME", adapterName});
    }
    strings.push_back({"PASSWORDSET", "FALSE"});
    strings.push_back({"CPDATTACHED", "TRUE"});
    strings.push_back({"PRINTERVIDPID", vidPid});
    return strings;
}

// The model is only looked for behind a quote, so there is always one.
bool isQuoted(const NetworkTraits& traits, const std::string& key)
{
    return traits.hasQuotes || key == "1284STRID";
}

Bytes textData(const Model& model)
{
    const NetworkTraits& traits = model.network;
    Bytes data;
    for (const TextString& string : textStrings(model)) {
        if (std::find(traits.leftOut.begin(), traits.leftOut.end(), string.key) ==
            traits.leftOut.end()) {
            const char* const quote = isQuoted(traits, string.key) ? "\"" : "";
            addString(data, string.key + " " + quote + string.value + quote);
        }
    }
    for (const std::string& string : traits.extraStrings) {
        addString(data, string);
    }
    return data;
}

void addRecord(Bytes& out, const Model& model, std::uint16_t type, const Bytes& data)
{
    addString(out, model.network.hostName);
    if (model.network.hasPointers) {
        out.push_back(kPointer);
        out.push_back(kHeaderSize);  // where the question repeats the rest of the name
    } else {
        addServiceName(out);
    }
    addWord(out, type);
    addWord(out, kClassInternet);
    addWord(out, 0);
    addWord(out, 120);  // seconds that the answer is good for
    addWord(out, data.size());
    out.insert(out.end(), data.begin(), data.end());
}

Bytes serviceData(const Model& model)
{
    Bytes data;
    addWord(data, 0);
    addWord(data, 0);
    addWord(data, kScannerPort);
    addString(data, model.network.hostName);
    addString(data, "local");
    data.push_back(0);
    return data;
}

Bytes addressData(const Model& model)
{
    in_addr address{};
    inet_pton(AF_INET, model.network.ip.c_str(), &address);
    const auto* first = reinterpret_cast<const std::uint8_t*>(&address);
    return Bytes(first, first + sizeof address);
}

}  // namespace

Query recogniseQuery(const Bytes& datagram)
{
    if (datagram == expectedQuery()) {
        return Query::Good;
    }
    const std::string service = kService;
    const bool isResponse = datagram.size() > 2 && (datagram[2] & 0x80) != 0;
    const bool namesService = std::search(datagram.begin(), datagram.end(), service.begin(),
                                          service.end()) != datagram.end();
    return namesService && !isResponse ? Query::Wrong : Query::None;
}

Bytes makeAnswer(const Model& model)
{
    const NetworkTraits& traits = model.network;
    const bool hasQuestion = traits.repeatsQuestion || traits.hasPointers;
    Bytes out = makeHeader(true, hasQuestion ? 1 : 0, traits.records.size());
    if (hasQuestion) {
        addQuestion(out);
    }
    for (const std::string& record : traits.records) {
        if (record == "txt") {
            addRecord(out, model, kTypeTxt, textData(model));
        } else if (record == "srv") {
            addRecord(out, model, kTypeSrv, serviceData(model));
        } else {
            addRecord(out, model, kTypeA, addressData(model));
        }
    }
    return out;
}

Bytes makeForeignAnswer(std::uint32_t number)
{
    Model model;
    model.vendorId = 0xFEED;
    model.productId = number & 0xFFFF;
    model.product.text = "Foreign " + std::to_string(number);
    model.network.hostName = "foreign-" + std::to_string(number);
    model.network.ip =
        "10.99." + std::to_string(number / 256 % 256) + "." + std::to_string(number % 256);
    model.network.mac = "020000000000";
    return makeAnswer(model);
}

Bytes makeGarbageAnswer(std::uint32_t number)
{
    std::minstd_rand random(number + 1);
    Bytes out(1 + random() % kLargestGarbage);
    std::generate(out.begin(), out.end(), [&] { return static_cast<std::uint8_t>(random() >> 8); });
    if (number % 2 == 0 && out.size() > 2) {
        out[2] |= 0x80;  // at least a response
    }
    return out;
}

}  // namespace scansim
