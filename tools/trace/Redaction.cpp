// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Redaction.h"

#include "BlockReader.h"
#include "Dialogue.h"
#include "Messages.h"

#include <algorithm>

namespace trace {

namespace {

bool isShownAsItIs(const Transfer& transfer, const BlockReader& blocks)
{
    const ByteView bytes = transfer.bytes;
    return (isReply(bytes) && blocks.pending() == 0) || isRecord(bytes, blocks.pending());
}

void blankImage(Conversation& conversation)
{
    const Version* version = versionOf(conversation);
    BlockReader blocks(version != nullptr ? *version : versionOfNumber(326));
    for (Transfer& transfer : conversation.transfers) {
        if (transfer.from == Party::Host || isShownAsItIs(transfer, blocks)) {
            continue;
        }
        for (const BlockReader::Range& range : blocks.add(transfer.bytes, transfer.known)) {
            std::fill(transfer.bytes.begin() + static_cast<long>(range.from),
                      transfer.bytes.begin() + static_cast<long>(range.to), kMadeUp);
        }
    }
}

// Remarks are what the host's log or a search said; both have addresses and names.
void dropTexts(Conversation& conversation)
{
    const bool isSearch = !conversation.hasCommands();
    for (Transfer& transfer : conversation.transfers) {
        const bool isRemark = transfer.kind == Transfer::Kind::Remark;
        if (isRemark || (isSearch && transfer.kind == Transfer::Kind::Oddity)) {
            transfer.text = "(left out)";
        }
    }
}

}  // namespace

void redact(std::vector<Conversation>& conversations)
{
    for (std::size_t i = 0; i < conversations.size(); ++i) {
        Conversation& conversation = conversations[i];
        conversation.name = "Conversation " + std::to_string(i + 1);
        blankImage(conversation);
        dropTexts(conversation);
    }
}

}  // namespace trace
