// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Dialogue.h"

#include "../../src/ICommand.h"

#include <cstdio>
#include <ostream>

namespace trace {

namespace {

constexpr std::size_t kMostBytesShown = 4096;
constexpr std::size_t kBytesALine = 16;
constexpr const char* kIndent = "                           ";

std::string text(const char* format, double value)
{
    char result[64];
    std::snprintf(result, sizeof result, format, value);
    return result;
}

std::string counted(std::size_t count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string milliseconds(std::uint64_t time)
{
    return text("%.3f ms", static_cast<double>(time) / 1000);
}

std::string rate(std::size_t bytes, std::uint64_t time)
{
    return text("%.2f MB/s", static_cast<double>(bytes) / static_cast<double>(time));
}

ByteView recorded(const Transfer& transfer)
{
    return ByteView(transfer.bytes).first(transfer.known);
}

bool isCut(const Transfer& transfer)
{
    return transfer.known < transfer.bytes.size();
}

const Version& orDefault(const Version* version)
{
    return version != nullptr ? *version : versionOfNumber(326);
}

}  // namespace

const Version* versionOf(const Conversation& conversation)
{
    bool isWoken = false;
    for (const Transfer& transfer : conversation.transfers) {
        if (transfer.from != Party::Host || transfer.bytes.empty()) {
            continue;
        }
        const ByteView command = unframe(transfer.bytes).command;
        const CommandKind* kind = kindOf(command);
        isWoken = isWoken || (kind != nullptr && kind->id == COMMAND_WAKE);
        if (kind != nullptr && kind->hasParameters && command.size() > kHeaderSize) {
            return versionOfParameters(command.size() - kHeaderSize);
        }
    }
    return isWoken ? &versionOfNumber(402) : nullptr;
}

Dialogue::Dialogue(const Conversation& conversation, DialogueOptions options, std::ostream& out)
    : conversation_(conversation),
      options_(options),
      out_(out),
      blocks_(orDefault(versionOf(conversation)))
{
    if (!conversation.transfers.empty()) {
        start_ = conversation.transfers.front().time;
    }
}

void Dialogue::printHeading()
{
    out_ << conversation_.name;
    if (conversation_.hasCommands()) {
        const Version* version = versionOf(conversation_);
        out_ << (version != nullptr ? ", protocol " + std::to_string(version->number)
                                    : std::string(", protocol unknown, read as 326"))
             << (conversation_.hasTimes ? "" : ", without times");
    }
    out_ << '\n';
}

void Dialogue::print()
{
    printHeading();
    for (const Transfer& transfer : conversation_.transfers) {
        printTransfer(transfer);
    }
    endImage();
    missAnswer();
}

void Dialogue::printTransfer(const Transfer& transfer)
{
    if (transfer.kind == Transfer::Kind::Remark) {
        endImage();
        printHead(transfer.time, "", transfer.text);
    } else if (transfer.kind == Transfer::Kind::Oddity) {
        endImage();
        ++oddities_;
        printHead(transfer.time, "", "ODD: " + transfer.text);
    } else if (transfer.from == Party::Host) {
        command(transfer);
    } else {
        answer(transfer);
    }
}

void Dialogue::command(const Transfer& transfer)
{
    endImage();
    missAnswer();
    const CommandKind* kind = kindOf(unframe(transfer.bytes).command);
    printMessage(transfer, decodeCommand(transfer.bytes, transfer.known), "");
    isUnseenAsked_ = kind == nullptr && isCut(transfer);
    if (kind != nullptr && kind->isAnswered) {
        asked_ = kind;
        askedAt_ = transfer.time;
    }
}

void Dialogue::missAnswer()
{
    if (asked_ != nullptr) {
        out_ << kIndent;
        oddity(std::string("no reply to ") + asked_->name);
        asked_ = nullptr;
    }
}

void Dialogue::answer(const Transfer& transfer)
{
    const ByteView bytes = transfer.bytes;
    const bool isInBlock = isScanning_ && blocks_.pending() > 0;
    if (isReply(bytes) && !isInBlock) {
        reply(transfer);
    } else if (transfer.known > kRecordOffset &&
               isRecord(bytes, isScanning_ ? blocks_.pending() : 0)) {
        record(transfer);
    } else if (isScanning_) {
        image(transfer);
    } else if (asked_ != nullptr || isUnseenAsked_ || kindOf(bytes) != nullptr) {
        reply(transfer);
    } else if (transfer.bytes.empty()) {
        printHead(transfer.time, "scanner", "nothing");
    } else {
        image(transfer);
    }
}

void Dialogue::reply(const Transfer& transfer)
{
    endImage();
    const ByteView bytes = recorded(transfer);
    // Where the recording does not show what was asked or answered, it was what it should be.
    const CommandKind* kind = isCut(transfer) && bytes.size() < 3 ? asked_ : kindOf(bytes);
    const bool isWaiting = asked_ != nullptr && conversation_.hasTimes;
    printMessage(transfer, decodeReply(bytes, isUnseenAsked_ ? kind : asked_),
                 isWaiting ? " after " + duration(askedAt_, transfer.time) : "");
    if (kind != nullptr && kind == asked_) {
        isScanning_ = isScanning_ || kind->id == COMMAND_START;
        isScanning_ = isScanning_ && kind->id != COMMAND_UNLOCK;
        asked_ = nullptr;
    }
    isUnseenAsked_ = false;
}

void Dialogue::record(const Transfer& transfer)
{
    endImage();
    const ByteView bytes = recorded(transfer);
    printMessage(transfer, transfer.isRebuilt ? decodeRebuiltRecord(bytes) : decodeRecord(bytes),
                 "");
    isScanning_ = isScanning_ && !endsPage(transfer.bytes);
}

void Dialogue::image(const Transfer& transfer)
{
    if (!image_) {
        image_ = Image{transfer.time,        transfer.time,       0, 0, 0, blocks_.blocks(),
                       blocks_.imageBytes(), blocks_.strayBytes()};
    }
    blocks_.add(transfer.bytes, transfer.known);
    image_->last = transfer.time;
    image_->bytes += transfer.bytes.size();
    image_->madeUp += transfer.bytes.size() - transfer.known;
    ++image_->transfers;
}

void Dialogue::endImage()
{
    if (!image_) {
        return;
    }
    const Image image = *image_;
    image_.reset();
    const std::size_t blocks = blocks_.blocks() - image.blocksBefore;
    const std::size_t bytes = blocks_.imageBytes() - image.imageBefore;
    const std::size_t stray = blocks_.strayBytes() - image.strayBefore;
    std::string what = "image: " + counted(bytes, "byte") + " in " + counted(blocks, "block") +
                       ", " + counted(image.transfers, "transfer") + " of " +
                       counted(image.bytes, "byte");
    if (conversation_.hasTimes && image.last > image.first) {
        what += ", " + milliseconds(image.last - image.first) + ", " +
                rate(image.bytes, image.last - image.first);
    }
    printHead(image.first, "scanner", what);
    if (image.madeUp > 0) {
        out_ << kIndent << counted(image.madeUp, "byte") << " of it not recorded\n";
    }
    if (!isScanning_) {
        out_ << kIndent;
        oddity("no scan was started");
    }
    if (stray > 0) {
        out_ << kIndent;
        oddity(counted(stray, "byte") + " without a block header, taken for image");
    }
}

void Dialogue::printHead(std::uint64_t time, const char* who, const std::string& what)
{
    char head[64];
    if (conversation_.hasTimes) {
        std::snprintf(head, sizeof head, "%14.6f  %-8s ",
                      static_cast<double>(time - std::min(start_, time)) / 1e6, who);
    } else {
        std::snprintf(head, sizeof head, "%14s  %-8s ", "", who);
    }
    out_ << head << what << '\n';
}

void Dialogue::printMessage(const Transfer& transfer, const Message& message,
                            const std::string& behind)
{
    printHead(transfer.time, transfer.from == Party::Host ? "host" : "scanner",
              message.title + behind);
    if (options_.showsBytes && !transfer.isRebuilt) {
        const ByteView bytes = recorded(transfer).first(kMostBytesShown);
        for (std::size_t at = 0; at < bytes.size(); at += kBytesALine) {
            out_ << kIndent << "| " << hex(bytes.part(at, kBytesALine), kBytesALine) << '\n';
        }
    }
    for (const Row& row : message.rows) {
        printRow(row);
    }
    if (transfer.isRebuilt) {
        out_ << kIndent << "the rest of it is not in the log\n";
        return;
    }
    if (isCut(transfer)) {
        // Whether something is odd cannot be told then: what seems to be too short is not.
        out_ << kIndent << counted(transfer.bytes.size() - transfer.known, "byte")
             << " of it not recorded\n";
        return;
    }
    for (const std::string& what : message.oddities) {
        out_ << kIndent;
        oddity(what);
    }
}

void Dialogue::printRow(const Row& row)
{
    char name[64];
    std::snprintf(name, sizeof name, "%-24s", row.name.c_str());
    out_ << kIndent << name << ' ' << row.value;
    if (options_.showsBytes && !row.bytes.empty()) {
        out_ << "  [" << hex(row.bytes, kBytesALine) << ']';
    }
    out_ << '\n';
}

void Dialogue::oddity(const std::string& what)
{
    ++oddities_;
    out_ << "ODD: " << what << '\n';
}

std::string Dialogue::duration(std::uint64_t from, std::uint64_t to) const
{
    return milliseconds(to - std::min(from, to));
}

}  // namespace trace
