// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DiscoveryPacket.h"

#include "../../src/DiscoveryReply.h"

#include <algorithm>

namespace trace {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::uint64_t kText = 16;
constexpr std::size_t kLongestAnswer = 1024;
constexpr std::size_t kMostRecords = 64;
constexpr const char* kLabel = "_host-config";

// Walks over the names and records of a DNS packet.
class Walk {
public:
    explicit Walk(ByteView packet) : packet_(packet) {}

    bool isAtEnd() const { return at_ >= packet_.size(); }

    std::string name()
    {
        std::string result;
        while (!isAtEnd()) {
            const std::size_t size = packet_[at_];
            if (size >= 0xC0) {
                at_ += 2;
                return result + "<pointer>";
            }
            ++at_;
            if (size == 0) {
                break;
            }
            const ByteView label = packet_.part(at_, size);
            result +=
                (result.empty() ? "" : ".") + printable(std::string(label.begin(), label.end()));
            at_ += size;
        }
        return result;
    }

    std::uint64_t number(std::size_t size)
    {
        at_ += size;
        return packet_.big(at_ - size, size);
    }

    ByteView bytes(std::size_t size)
    {
        const ByteView result = packet_.part(at_, size);
        at_ += size;
        return result;
    }

private:
    ByteView packet_;
    std::size_t at_ = kHeader;
};

void addStrings(ByteView data, std::vector<std::string>& strings)
{
    while (!data.empty()) {
        const ByteView text = data.part(1, data[0]);
        strings.push_back(printable(std::string(text.begin(), text.end())));
        data = data.from(1 + std::size_t{data[0]});
    }
}

void checkAsHost(ByteView packet, std::vector<std::string>& oddities)
{
    NValueObjects scanner;
    if (packet.size() > kLongestAnswer) {
        oddities.push_back("longer than the " + std::to_string(kLongestAnswer) +
                           " bytes that a host reads");
    }
    const ByteView read = packet.first(kLongestAnswer);
    DiscoveryReply::parsePacket(read.begin(), static_cast<int>(read.size()), &scanner);
    if (!scanner.isComplete()) {
        oddities.push_back("a host does not list this scanner: something is missing");
    }
}

}  // namespace

DiscoveryPacket decodeDiscovery(ByteView packet)
{
    DiscoveryPacket result;
    if (packet.size() < kHeader) {
        return result;
    }
    const bool isAnswer = (packet[2] & 0x80) != 0;
    Walk walk(packet);
    std::string names;
    for (std::size_t i = std::min(packet.big(4, 2), std::uint64_t{kMostRecords});
         i > 0 && !walk.isAtEnd(); --i) {
        names += " " + walk.name();
        names += " type " + std::to_string(walk.number(2));
        walk.number(2);  // class
    }
    result.isOurs = names.find(kLabel) != std::string::npos;
    for (std::size_t i = std::min(packet.big(6, 2), std::uint64_t{kMostRecords});
         i > 0 && !walk.isAtEnd(); --i) {
        const std::string name = walk.name();
        const std::uint64_t type = walk.number(2);
        walk.number(6);  // class and time to live
        const ByteView data = walk.bytes(walk.number(2));
        names += " " + name + " type " + std::to_string(type);
        result.isOurs = result.isOurs || name.find(kLabel) != std::string::npos;
        if (type == kText) {
            addStrings(data, result.strings);
        }
    }
    result.title = (isAnswer ? "answer to a search:" : "search for scanners:") + names;
    if (isAnswer && result.isOurs) {
        checkAsHost(packet, result.oddities);
    }
    return result;
}

}  // namespace trace
