// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DiscoveryReply.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int kSmallestPacket = 13;
constexpr int kCountsOffset = 4;  // of the questions, then of the answers
constexpr int kFirstQuestion = 12;
constexpr int kTypeAndClass = 4;
constexpr int kClassAndTime = 6;
constexpr int kTypeText = 16;
constexpr const char* kService = "_host-config";

constexpr std::size_t kMacBytes = 6;
constexpr std::size_t kDigits = 16;
constexpr unsigned kIdMask = 0xFFFF;

// Walks through a packet; behind its end there are zeros.
class Cursor {
public:
    Cursor(const unsigned char* begin, int size) : at_(begin), end_(begin + size) {}

    bool isAtEnd() const { return at_ == end_; }
    void skip(int count) { at_ += std::min<std::ptrdiff_t>(count, end_ - at_); }
    void skipName()
    {
        at_ = std::find(at_, end_, 0);
        skip(1);
    }
    int number()
    {
        const int high = byte();
        return high << 8 | byte();
    }
    // A length-prefixed string, without moving on.
    std::string peekString(int* size) const
    {
        return DiscoveryReply::extractString(at_, end_, size);
    }
    std::string string(int* size)
    {
        std::string text = peekString(size);
        skip(1 + *size);
        return text;
    }

private:
    int byte() { return at_ < end_ ? *at_++ : 0; }

    const unsigned char* at_;
    const unsigned char* end_;
};

void parseStrings(Cursor* cursor, NValueObjects* record)
{
    int left = cursor->number();
    while (left > 0 && !cursor->isAtEnd()) {
        int size = 0;
        DiscoveryReply::parseText(cursor->string(&size), record);
        left -= size + 1;
    }
}

// True when it was a TXT record of the service.
bool parseAnswer(Cursor* cursor, NValueObjects* record)
{
    int size = 0;
    cursor->string(&size);
    if (cursor->peekString(&size) != kService) {
        return false;
    }
    cursor->skipName();
    if (cursor->number() != kTypeText) {
        return false;
    }
    cursor->skip(kClassAndTime);
    parseStrings(cursor, record);
    return true;
}

// Scanners send each byte with its lowest bit first.
std::string macAddress(const std::string& digits)
{
    std::string mac;
    for (std::size_t i = 0; i < kMacBytes; ++i) {
        const std::string pair = digits.substr(std::min(2 * i, digits.size()), 2);
        unsigned value = 0;
        sscanf(pair.c_str(), "%2x", &value);
        char text[3];
        const unsigned char byte = DiscoveryReply::reverse(static_cast<unsigned char>(value));
        snprintf(text, sizeof text, "%2.2X", static_cast<unsigned>(byte));
        mac += text;
    }
    return mac;
}

const char* manufacturerOf(unsigned vid)
{
    if (vid == SCANLIB_QUILLON_VID) {
        return "Quillon";
    }
    return vid == SCANLIB_OXLE_VID ? "Oxle" : "";
}

void setIds(const std::string& digits, NValueObjects* record)
{
    const std::uint64_t ids = DiscoveryReply::hexStringLong(digits);
    record->setVid(static_cast<unsigned>(ids >> 16) & kIdMask);
    record->setPid(static_cast<unsigned>(ids) & kIdMask);
    record->setManufacturer(manufacturerOf(record->getVid()));
}

}  // namespace

unsigned char DiscoveryReply::reverse(unsigned char byte)
{
    unsigned reversed = 0;
    for (int bit = 0; bit < 8; ++bit) {
        reversed = reversed << 1 | (byte >> bit & 1U);
    }
    return static_cast<unsigned char>(reversed);
}

std::uint64_t DiscoveryReply::hexStringLong(const std::string& text)
{
    std::uint64_t value = 0;
    const std::size_t first = text.size() - std::min(text.size(), kDigits);
    for (std::size_t i = first; i < text.size(); ++i) {
        const char c = text[i];
        int digit = 0;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        }
        value = value << 4 | static_cast<std::uint64_t>(digit);
    }
    return value;
}

std::string DiscoveryReply::removeQuotes(const std::string& text)
{
    const std::size_t first = text.find('"');
    if (first == std::string::npos) {
        return text;
    }
    const std::size_t last = text.rfind('"');
    return last == first ? text.substr(first + 1) : text.substr(first + 1, last - first - 1);
}

std::string DiscoveryReply::extractString(const unsigned char* ptr, const unsigned char* end,
                                          int* len)
{
    *len = ptr < end ? *ptr : 0;
    if (*len == 0) {
        return {};
    }
    const unsigned char* first = ptr + 1;
    const unsigned char* last = first + std::min<std::ptrdiff_t>(*len, end - first);
    return std::string(first, std::find(first, last, 0));
}

// Other keys, such as IPNETMASK and MDNSNAME, say nothing that is needed here.
void DiscoveryReply::parseText(const std::string& text, NValueObjects* record)
{
    const std::size_t blank = text.find(' ');
    if (blank == std::string::npos) {
        return;
    }
    const std::string key = text.substr(0, blank);
    const std::string value = text.substr(blank + 1);
    if (key == "IPADDRESS") {
        record->setIp(removeQuotes(value));
    } else if (key == "MACUAA") {
        record->setMac(macAddress(removeQuotes(value)));
    } else if (key == "1284STRID") {
        const std::size_t quote = value.find('"');
        if (quote != std::string::npos) {
            record->setModel(removeQuotes(value.substr(quote)));
        }
    } else if (key == "ADAPTERNAME") {
        record->setModel(removeQuotes(value));
    } else if (key == "PRINTERVIDPID") {
        setIds(removeQuotes(value), record);
    }
}

int DiscoveryReply::parsePacket(const unsigned char* buf, int len, NValueObjects* record)
{
    if (len < kSmallestPacket || (buf[2] & 0x80) == 0) {
        return 0;
    }
    Cursor counts(buf, kFirstQuestion);
    counts.skip(kCountsOffset);
    int questions = counts.number();
    int answers = counts.number();

    Cursor cursor(buf, len);
    cursor.skip(kFirstQuestion);
    for (; questions > 0 && !cursor.isAtEnd(); --questions) {
        cursor.skipName();
        cursor.skip(kTypeAndClass);
    }
    bool isDone = false;
    for (; answers > 0 && !isDone && !cursor.isAtEnd(); --answers) {
        isDone = parseAnswer(&cursor, record);
    }
    return 1;
}
