// SPDX-License-Identifier: LGPL-2.1-or-later
// Recordings of whatever kind, as scanlib-trace reads them, and the captures that it saves, as the
// simulator plays them.
#include "Check.h"

#include "CaptureFile.h"
#include "Dialogue.h"
#include "Input.h"
#include "Journal.h"
#include "LogReader.h"
#include "Redaction.h"
#include "Replay.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <pcap/pcap.h>

namespace {

using trace::Bytes;
using trace::ByteView;
using trace::Conversation;
using trace::InputKind;
using trace::Party;
using trace::Transfer;

using Conversations = std::vector<Conversation>;

// What a byte of a recording may become when it is printed, and what a transfer may that a few
// characters of a capture make long.
constexpr std::size_t kMostPerByte = 128;
constexpr std::size_t kMostPerTransfer = std::size_t{1} << 18;
// Of a transfer, however long the recording says it was.
constexpr std::size_t kLongestTransfer = std::size_t{1} << 20;

std::size_t count(const std::string& text, const std::string& what)
{
    std::size_t result = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++result;
    }
    return result;
}

// Nothing that a terminal takes for a command.
bool isPlain(const std::string& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7F); });
}

Conversations readPackets(ByteView contents)
{
    // It is only read.
    std::FILE* file = fmemopen(const_cast<std::uint8_t*>(contents.begin()), contents.size(), "rb");
    FUZZ_CHECK(file != nullptr);
    trace::PacketFile packets(file);
    return trace::readPackets(packets);
}

// Nothing if the tool says that it cannot read this.
std::optional<Conversations> read(ByteView contents)
{
    try {
        if (trace::kindOfInput(contents) == InputKind::Packets) {
            return readPackets(contents);
        }
        std::istringstream text(std::string(contents.begin(), contents.end()));
        if (trace::kindOfInput(contents) == InputKind::Capture) {
            return Conversations{trace::readCapture(text)};
        }
        return trace::readLog(text);
    } catch (const std::runtime_error& error) {
        FUZZ_CHECK(std::strlen(error.what()) > 0 && isPlain(error.what()));
        return std::nullopt;
    }
}

std::string printed(const Conversation& conversation, bool showsBytes)
{
    std::ostringstream out;
    trace::Dialogue dialogue(conversation, {showsBytes}, out);
    dialogue.print();
    std::string text = out.str();
    FUZZ_CHECK(isPlain(text));
    FUZZ_CHECK(dialogue.oddities() <= count(text, "ODD: "));
    return text;
}

std::string printed(const Conversations& conversations)
{
    std::string result;
    for (const Conversation& conversation : conversations) {
        const std::string brief = printed(conversation, false);
        const std::string all = printed(conversation, true);
        FUZZ_CHECK(brief.size() <= all.size());
        result += brief + all;
    }
    return result;
}

std::string saved(const Conversation& conversation)
{
    std::ostringstream out;
    trace::writeCapture(conversation, out);
    FUZZ_CHECK(isPlain(out.str()));
    return out.str();
}

void checkTransfers(const Conversations& conversations, InputKind kind, std::size_t size)
{
    std::size_t recorded = 0;
    for (const Conversation& conversation : conversations) {
        FUZZ_CHECK(kind != InputKind::Log || conversation.hasCommands());
        for (const Transfer& transfer : conversation.transfers) {
            FUZZ_CHECK(transfer.known <= transfer.bytes.size());
            FUZZ_CHECK(transfer.bytes.size() <= kLongestTransfer);
            FUZZ_CHECK(transfer.kind == Transfer::Kind::Data || transfer.bytes.empty());
            FUZZ_CHECK(isPlain(transfer.text));
            recorded += transfer.isRebuilt ? 0 : transfer.known;
        }
    }
    // Only captures have a short word for many bytes.
    FUZZ_CHECK(kind == InputKind::Capture || recorded <= size);
}

// What host and scanner say on several connections is put into order. Searches are not.
void checkTimes(const Conversations& conversations)
{
    const auto isEarlier = [](const Transfer& a, const Transfer& b) { return a.time < b.time; };
    for (const Conversation& conversation : conversations) {
        FUZZ_CHECK(conversation.name.rfind("Host ", 0) != 0 ||
                   std::is_sorted(conversation.transfers.begin(), conversation.transfers.end(),
                                  isEarlier));
    }
}

void checkLength(const Conversations& conversations, InputKind kind, std::size_t size,
                 const std::string& text)
{
    std::size_t most = kMostPerByte * (size + 1);
    if (kind == InputKind::Capture) {
        most += kMostPerTransfer * conversations[0].transfers.size();
    }
    FUZZ_CHECK(text.size() <= most);
}

// What nobody has recorded is white when it is saved. It was before, but in captures, where it may
// be anything.
void checkSame(const Conversation& before, const Conversation& after, InputKind kind)
{
    FUZZ_CHECK(before.transport == after.transport);
    FUZZ_CHECK(before.transfers.size() == after.transfers.size());
    for (std::size_t i = 0; i < before.transfers.size(); ++i) {
        const Transfer& a = before.transfers[i];
        const Transfer& b = after.transfers[i];
        FUZZ_CHECK((a.kind == Transfer::Kind::Data) == (b.kind == Transfer::Kind::Data));
        FUZZ_CHECK(a.from == b.from && a.known == b.known && a.bytes.size() == b.bytes.size());
        const std::size_t compared = kind == InputKind::Capture ? a.known : a.bytes.size();
        FUZZ_CHECK(ByteView(a.bytes).first(compared) == ByteView(b.bytes).first(compared));
        FUZZ_CHECK(a.text == b.text);
    }
}

// The host that was captured, again: it hears what it has heard.
void play(const Conversation& conversation, std::istream& capture)
{
    const scansim::Model model;
    scansim::Journal journal("fuzzed");
    scansim::Replay replay(model, journal, capture);
    scansim::Piece piece;
    bool isInPieces = false;
    for (const Transfer& transfer : conversation.transfers) {
        if (transfer.kind != Transfer::Kind::Data) {
            continue;
        }
        if (transfer.from == Party::Host) {
            FUZZ_CHECK(replay.write(transfer.bytes) == scansim::TransferResult::Done);
            continue;
        }
        isInPieces = !isInPieces;
        if (isInPieces) {
            const std::size_t half = transfer.bytes.size() / 2;
            scansim::Bytes first;
            FUZZ_CHECK(replay.read(half, first) == scansim::TransferResult::Done);
            FUZZ_CHECK(first.size() == half);
            FUZZ_CHECK(transfer.bytes.empty() ||
                       replay.take(piece) == scansim::TransferResult::Done);
            piece.bytes.insert(piece.bytes.begin(), first.begin(), first.end());
        } else {
            FUZZ_CHECK(replay.take(piece) == scansim::TransferResult::Done);
        }
        FUZZ_CHECK(piece.bytes == transfer.bytes);
        piece = scansim::Piece();
    }
    FUZZ_CHECK(replay.take(piece) == scansim::TransferResult::Nothing);
    replay.finish();
    FUZZ_CHECK(journal.complaints().empty());
}

// Another host, which leaves out commands, says them twice and does not listen to all.
void playToAnother(const Conversation& conversation, std::istream& capture)
{
    const scansim::Model model;
    scansim::Journal journal("fuzzed");
    scansim::Replay replay(model, journal, capture);
    unsigned number = 0;
    scansim::Bytes bytes;
    for (const Transfer& transfer : conversation.transfers) {
        if (transfer.kind == Transfer::Kind::Data && transfer.from == Party::Host) {
            for (unsigned times = ++number % 3; times > 0; --times) {
                replay.write(transfer.bytes);
                replay.read(7, bytes);
                FUZZ_CHECK(bytes.size() <= 7);
                fuzz::touch(bytes.data(), bytes.size());
            }
        }
    }
    replay.finish();
}

// What was saved is what was read, and can be played.
void checkSaving(const Conversations& conversations, InputKind kind)
{
    for (const Conversation& conversation : conversations) {
        const std::string text = saved(conversation);
        std::istringstream in(text);
        const Conversation again = trace::readCapture(in);
        checkSame(conversation, again, kind);
        FUZZ_CHECK(saved(again) == text);
        for (const auto player : {play, playToAnother}) {
            in.clear();
            in.seekg(0);
            player(again, in);
        }
    }
}

// Redaction changes bytes and texts, and there is nothing left to change then.
void checkRedaction(Conversations conversations)
{
    const Conversations before = conversations;
    trace::redact(conversations);
    for (std::size_t i = 0; i < before.size(); ++i) {
        const std::vector<Transfer>& transfers = conversations[i].transfers;
        FUZZ_CHECK(transfers.size() == before[i].transfers.size());
        for (std::size_t j = 0; j < transfers.size(); ++j) {
            FUZZ_CHECK(transfers[j].bytes.size() == before[i].transfers[j].bytes.size());
            FUZZ_CHECK(transfers[j].from == Party::Scanner ||
                       transfers[j].bytes == before[i].transfers[j].bytes);
            FUZZ_CHECK(transfers[j].kind != Transfer::Kind::Remark ||
                       transfers[j].text == "(left out)");
        }
    }
    const std::string text = printed(conversations);
    trace::redact(conversations);
    FUZZ_CHECK(printed(conversations) == text);
}

}  // namespace

// In place of the simulator's own, which prints what it is told.
scansim::Journal::Journal(std::string device, std::FILE* trace)
    : device_(std::move(device)), trace_(trace)
{
}

void scansim::Journal::complain(const std::string& text)
{
    FUZZ_CHECK(isPlain(text));
    complaints_.push_back(text);
}

void scansim::Journal::trace(const std::string& text)
{
    FUZZ_CHECK(isPlain(text));
}

// libpcap has more room than a packet needs. In room of its own, nobody reads behind it unnoticed.
extern "C" int __real_pcap_next_ex(pcap_t*, pcap_pkthdr**, const u_char**);
extern "C" int __wrap_pcap_next_ex(pcap_t* file, pcap_pkthdr** header, const u_char** data)
{
    static std::unique_ptr<u_char[]> packet;
    const int result = __real_pcap_next_ex(file, header, data);
    if (result == 1) {
        packet = std::make_unique<u_char[]>((*header)->caplen);
        std::copy_n(*data, (*header)->caplen, packet.get());
        *data = packet.get();
    }
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView contents(data, size);
    if (contents.empty()) {
        return 0;
    }
    const InputKind kind = trace::kindOfInput(contents);
    const std::optional<Conversations> conversations = read(contents);
    const std::optional<Conversations> again = read(contents);
    FUZZ_CHECK(conversations.has_value() == again.has_value());
    if (!conversations) {
        return 0;
    }
    checkTransfers(*conversations, kind, size);
    if (kind == InputKind::Packets) {
        checkTimes(*conversations);
    }
    const std::string text = printed(*conversations);
    checkLength(*conversations, kind, size, text);
    FUZZ_CHECK(printed(*again) == text);
    checkSaving(*conversations, kind);
    checkRedaction(*conversations);
    return 0;
}
