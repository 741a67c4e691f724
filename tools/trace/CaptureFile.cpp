// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CaptureFile.h"

#include <algorithm>
#include <istream>
#include <ostream>
#include <sstream>

namespace trace {

const char* const kCaptureHeading = "# scanlib capture 1";

namespace {

constexpr std::size_t kShortestRun = 16;
constexpr std::size_t kLongestTransfer = 1 << 20;
constexpr std::size_t kLongestCapture = std::size_t{1} << 30;
constexpr const char* kHexDigits = "0123456789abcdef";
constexpr const char* kUsb = "usb";
constexpr const char* kNetwork = "network";

void writeByte(std::uint8_t byte, std::ostream& out)
{
    out << kHexDigits[byte >> 4] << kHexDigits[byte & 15];
}

void writeBytes(const Transfer& transfer, std::ostream& out)
{
    const Bytes& bytes = transfer.bytes;
    const auto known = bytes.begin() + static_cast<long>(transfer.known);
    const char* gap = " ";
    for (auto at = bytes.begin(); at != known;) {
        const auto end = std::find_if(at, known, [at](std::uint8_t byte) { return byte != *at; });
        const bool isRun = static_cast<std::size_t>(end - at) >= kShortestRun;
        out << (isRun ? " " : gap);
        writeByte(*at, out);
        if (isRun) {
            out << '*' << end - at;
        }
        gap = isRun ? " " : "";
        at = isRun ? end : at + 1;
    }
    if (transfer.known < bytes.size()) {
        out << ' ';
        writeByte(kMadeUp, out);
        out << '?' << bytes.size() - transfer.known;
    }
}

int digit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// One capture being read.
class Reader {
public:
    explicit Reader(std::istream& in) : in_(in) {}

    Conversation read()
    {
        if (!nextLine() || line_ != kCaptureHeading) {
            fail(std::string("a capture starts with \"") + kCaptureHeading + "\"");
        }
        result_.name = "saved capture";
        while (nextLine()) {
            readLine();
        }
        return std::move(result_);
    }

private:
    [[noreturn]] void fail(const std::string& what) const
    {
        throw CaptureError("line " + std::to_string(number_) + ": " + what);
    }

    bool nextLine()
    {
        ++number_;
        if (!std::getline(in_, line_)) {
            return false;
        }
        if (!line_.empty() && line_.back() == '\r') {
            line_.pop_back();
        }
        return true;
    }

    void readLine()
    {
        std::istringstream words(line_);
        std::string word;
        if (!(words >> word) || word[0] == '#') {
            return;
        }
        if (word == "transport") {
            readTransport(words);
        } else if (word == ">") {
            readTransfer(Party::Host, words);
        } else if (word == "<") {
            readTransfer(Party::Scanner, words);
        } else if (word == "!") {
            const std::uint64_t time = readTime(words);
            result_.transfers.push_back(Transfer::remark(time, printable(restOf(words))));
        } else {
            fail("neither transport, > nor <");
        }
    }

    // Behind the blank that sets it apart.
    static std::string restOf(std::istringstream& words)
    {
        std::string text;
        words.ignore();
        std::getline(words, text);
        return text;
    }

    void readTransport(std::istringstream& words)
    {
        std::string word;
        words >> word;
        if (word != kUsb && word != kNetwork) {
            fail("transport is usb or network");
        }
        result_.transport = word == kUsb ? Transport::Usb : Transport::Network;
    }

    std::uint64_t readTime(std::istringstream& words)
    {
        std::string word;
        words >> word;
        return number(word, UINT64_MAX);
    }

    std::uint64_t number(const std::string& text, std::uint64_t limit)
    {
        std::uint64_t value = 0;
        for (const char c : text) {
            const auto next = static_cast<std::uint64_t>(c - '0');
            if (c < '0' || c > '9' || next > limit || value > (limit - next) / 10) {
                fail("'" + printable(text) + "' is no number that fits here");
            }
            value = value * 10 + next;
        }
        if (text.empty()) {
            fail("'" + printable(text) + "' is no number that fits here");
        }
        return value;
    }

    void readTransfer(Party from, std::istringstream& words)
    {
        Transfer transfer;
        transfer.from = from;
        transfer.time = readTime(words);
        bool isKnown = true;
        std::string word;
        while (words >> word) {
            const std::size_t mark = word.find_first_of("*?");
            addHex(word.substr(0, mark), transfer.bytes);
            if (mark != std::string::npos) {
                isKnown = isKnown && word[mark] == '*';
                repeatLast(mark == 2, word.substr(mark + 1), transfer.bytes);
            }
            if (isKnown) {
                transfer.known = transfer.bytes.size();
            }
        }
        total_ += transfer.bytes.size();
        if (total_ > kLongestCapture) {
            fail("the capture is too long");
        }
        result_.transfers.push_back(std::move(transfer));
    }

    void addHex(const std::string& text, Bytes& bytes) const
    {
        if (text.size() % 2 != 0 || text.size() / 2 > kLongestTransfer - bytes.size()) {
            fail("half a byte, or too many bytes");
        }
        for (std::size_t i = 0; i < text.size(); i += 2) {
            const int high = digit(text[i]);
            const int low = digit(text[i + 1]);
            if (high < 0 || low < 0) {
                fail("'" + printable(text.substr(i, 2)) + "' is not hexadecimal");
            }
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
        }
    }

    void repeatLast(bool isOneByte, const std::string& times, Bytes& bytes)
    {
        const std::uint64_t count = number(times, kLongestTransfer);
        if (!isOneByte || count == 0 || count - 1 > kLongestTransfer - bytes.size()) {
            fail("one byte is repeated, and not too often");
        }
        const std::uint8_t byte = bytes.back();
        bytes.insert(bytes.end(), count - 1, byte);
    }

    std::istream& in_;
    std::string line_;
    std::size_t number_ = 0;
    std::size_t total_ = 0;
    Conversation result_;
};

}  // namespace

Transfer Transfer::data(Party from, std::uint64_t time, Bytes bytes)
{
    const std::size_t size = bytes.size();
    return {Kind::Data, from, time, std::move(bytes), size, {}, false};
}

Transfer Transfer::remark(std::uint64_t time, std::string text)
{
    return {Kind::Remark, Party::Host, time, {}, 0, std::move(text), false};
}

Transfer Transfer::oddity(std::uint64_t time, std::string text)
{
    return {Kind::Oddity, Party::Host, time, {}, 0, std::move(text), false};
}

bool Conversation::hasCommands() const
{
    return std::any_of(transfers.begin(), transfers.end(), [](const Transfer& transfer) {
        return transfer.kind == Transfer::Kind::Data && transfer.from == Party::Host;
    });
}

void Conversation::addOddity(std::string text)
{
    const std::uint64_t time = transfers.empty() ? 0 : transfers.back().time;
    transfers.push_back(Transfer::oddity(time, std::move(text)));
}

void writeCapture(const Conversation& conversation, std::ostream& out)
{
    out << kCaptureHeading << '\n'
        << "transport " << (conversation.transport == Transport::Usb ? kUsb : kNetwork) << '\n';
    const std::uint64_t start =
        conversation.transfers.empty() ? 0 : conversation.transfers.front().time;
    for (const Transfer& transfer : conversation.transfers) {
        const std::uint64_t time = transfer.time - std::min(start, transfer.time);
        if (transfer.kind != Transfer::Kind::Data) {
            out << "! " << time << ' ' << printable(transfer.text) << '\n';
            continue;
        }
        out << (transfer.from == Party::Host ? "> " : "< ") << time;
        writeBytes(transfer, out);
        out << '\n';
    }
}

Conversation readCapture(std::istream& in)
{
    return Reader(in).read();
}

}  // namespace trace
