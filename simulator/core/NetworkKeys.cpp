// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetworkKeys.h"

#include <arpa/inet.h>

#include <algorithm>

#include "Text.h"

namespace scansim {

namespace {

constexpr std::uint32_t kSmallestFrame = 2;  // a host cannot use a single byte
constexpr std::uint32_t kLargestFrame = 65536;
constexpr std::uint32_t kLongestTime = 3600000;
constexpr std::uint32_t kMostAnswers = 1000000;
constexpr std::size_t kLongestString = 255;
constexpr std::size_t kLongestLabel = 63;

using Parser = std::function<void(NetworkTraits&, const std::string&)>;

std::string limited(const std::string& text, std::size_t longest)
{
    if (text.size() > longest) {
        throw InputError("longer than " + std::to_string(longest) + " bytes");
    }
    return text;
}

void setIp(NetworkTraits& traits, const std::string& text)
{
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        throw InputError("'" + text + "' is no IPv4 address");
    }
    traits.ip = text;
}

void setMac(NetworkTraits& traits, const std::string& text)
{
    if (text.size() != 12 ||
        text.find_first_not_of("0123456789ABCDEFabcdef") != std::string::npos) {
        throw InputError("'" + text + "' is not of 12 hexadecimal digits");
    }
    traits.mac = text;
}

// "8192", "2 3 5" or "random:7"
void setFrameSizes(NetworkTraits& traits, const std::string& text)
{
    const std::string random = "random:";
    traits.frameSeed.reset();
    traits.frameSizes.clear();
    if (text.rfind(random, 0) == 0) {
        traits.frameSeed = parseNumber(text.substr(random.size()), 0, 0xFFFFFFFF);
        return;
    }
    for (const std::string& word : words(text)) {
        traits.frameSizes.push_back(parseNumber(word, kSmallestFrame, kLargestFrame));
    }
    if (traits.frameSizes.empty()) {
        throw InputError("no size is given");
    }
}

void setRecords(NetworkTraits& traits, const std::string& text)
{
    traits.records = words(text);
    for (const std::string& record : traits.records) {
        if (record != "txt" && record != "srv" && record != "a") {
            throw InputError("'" + record + "' is none of txt, srv and a");
        }
    }
}

Parser flag(bool NetworkTraits::*field)
{
    return [=](NetworkTraits& traits, const std::string& text) { traits.*field = parseFlag(text); };
}

Parser choice(bool NetworkTraits::*field, const std::string& no, const std::string& yes)
{
    return [=](NetworkTraits& traits, const std::string& text) {
        traits.*field = parseChoice(text, no, yes);
    };
}

Parser number(std::uint32_t NetworkTraits::*field, std::uint32_t low, std::uint32_t high)
{
    return [=](NetworkTraits& traits, const std::string& text) {
        traits.*field = parseNumber(text, low, high);
    };
}

Parser optionalText(std::optional<std::string> NetworkTraits::*field)
{
    return [=](NetworkTraits& traits, const std::string& text) {
        traits.*field = text == "none" ? std::string() : limited(text, kLongestString - 16);
    };
}

std::map<std::string, Parser> parsers()
{
    return {
        {"ip", setIp},
        {"mac", setMac},
        {"frame-size", setFrameSizes},
        {"segment-size", number(&NetworkTraits::segmentSize, 1, kLargestFrame)},
        {"segments", choice(&NetworkTraits::packsSegments, "frames", "packed")},
        {"second-host", choice(&NetworkTraits::refusesSecondHost, "waits", "refused")},
        {"port", choice(&NetworkTraits::isPortClosed, "open", "closed")},
        {"host-name",
         [](NetworkTraits& traits, const std::string& text) {
             traits.hostName = limited(text, kLongestLabel);
         }},
        {"answer.adapter-name", optionalText(&NetworkTraits::adapterName)},
        {"answer.id-string", optionalText(&NetworkTraits::idString)},
        {"answer.vid-pid",
         [](NetworkTraits& traits, const std::string& text) {
             traits.vidPid = parseNumber(text, 0, 0xFFFFFFFF);
         }},
        {"answer.quotes", flag(&NetworkTraits::hasQuotes)},
        {"answer.leave-out",
         [](NetworkTraits& traits, const std::string& text) { traits.leftOut = words(text); }},
        {"answer.string",
         [](NetworkTraits& traits, const std::string& text) {
             traits.extraStrings.push_back(limited(text, kLongestString));
         }},
        {"answer.records", setRecords},
        {"answer.question", flag(&NetworkTraits::repeatsQuestion)},
        {"answer.pointers", flag(&NetworkTraits::hasPointers)},
        {"answer.count", number(&NetworkTraits::answers, 0, kMostAnswers)},
        {"answer.delay-ms", number(&NetworkTraits::answerDelayMs, 0, kLongestTime)},
        {"answer.garbage", number(&NetworkTraits::garbageAnswers, 0, kMostAnswers)},
        {"answer.foreign", number(&NetworkTraits::foreignAnswers, 0, kMostAnswers)},
        {"answer.flood-ms", number(&NetworkTraits::floodMs, 0, kLongestTime)},
    };
}

}  // namespace

void addNetworkKeys(std::map<std::string, ModelSetter>& keys)
{
    for (const auto& [key, parser] : parsers()) {
        keys[key] = [parse = parser](Model& model, const ModelSetting& setting) {
            parse(model.network, setting.value);
        };
    }
}

}  // namespace scansim
