// SPDX-License-Identifier: LGPL-2.1-or-later
// Prints a conversation: who said what, when, and what it means.
#pragma once

#include "BlockReader.h"
#include "Conversation.h"
#include "Messages.h"

#include <iosfwd>
#include <optional>

namespace trace {

struct DialogueOptions {
    bool showsBytes = false;
};

// What is said in the order in which it is said: commands, replies, records, image.
class Dialogue {
public:
    Dialogue(const Conversation& conversation, DialogueOptions options, std::ostream& out);

    void print();
    // How many oddities were pointed out.
    std::size_t oddities() const { return oddities_; }

private:
    struct Image {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::size_t transfers = 0;
        std::size_t bytes = 0;
        std::size_t madeUp = 0;
        std::size_t blocksBefore = 0;
        std::size_t imageBefore = 0;
        std::size_t strayBefore = 0;
    };

    void printHeading();
    void printTransfer(const Transfer& transfer);
    void command(const Transfer& transfer);
    void answer(const Transfer& transfer);
    void reply(const Transfer& transfer);
    void record(const Transfer& transfer);
    void image(const Transfer& transfer);
    void endImage();
    void missAnswer();
    void printHead(std::uint64_t time, const char* who, const std::string& what);
    void printMessage(const Transfer& transfer, const Message& message, const std::string& behind);
    void printRow(const Row& row);
    void oddity(const std::string& what);
    std::string duration(std::uint64_t from, std::uint64_t to) const;

    const Conversation& conversation_;
    DialogueOptions options_;
    std::ostream& out_;
    std::uint64_t start_ = 0;
    std::size_t oddities_ = 0;
    BlockReader blocks_;
    std::optional<Image> image_;
    bool isScanning_ = false;  // an image may come
    const CommandKind* asked_ = nullptr;
    std::uint64_t askedAt_ = 0;
    bool isUnseenAsked_ = false;  // the command is one that the recording does not show
};

// The protocol version that the parameters of the first lock or start tell, or that a wake
// suggests; null where there is neither.
const Version* versionOf(const Conversation& conversation);

}  // namespace trace
