// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <deque>
#include <memory>
#include <optional>

#include "Actor.h"
#include "Command.h"
#include "FaultScript.h"
#include "Journal.h"
#include "PageRecorder.h"
#include "PageStream.h"
#include "PaperTray.h"
#include "Records.h"

namespace scansim {

// The protocol side of one scanner: commands in, replies and image data out. It does no I/O of
// its own and keeps no time but the one it is told; whoever carries the bytes is its host side.
class Scanner : public Actor {
public:
    // All four have to outlive the scanner. Throws InputError when a paper cannot be read.
    Scanner(const Model& model, FaultScript& faults, Journal& journal, PageRecorder& recorder);

    TransferResult write(const Bytes& bytes) override;
    TransferResult read(std::size_t capacity, Bytes& out) override;
    std::size_t bytesTaken() const override { return bytesTaken_; }
    TransferResult take(Piece& piece) override;
    void reset() override;
    void hostLeft() override;
    void setNow(std::uint64_t milliseconds) override { now_ = milliseconds; }
    std::optional<std::uint64_t> nextWake() const override;
    void loadSheets(std::uint32_t count) override { sheets_ = count; }
    std::uint32_t sheets() const override { return sheets_; }
    unsigned pagesStarted() const override { return pagesStarted_; }
    bool isLocked() const override { return isLocked_; }

private:
    struct Transfer {
        Bytes bytes;
        std::size_t sent = 0;
        std::size_t end = 0;     // the transfer ends here first, the rest is another one
        bool joinsNext = false;  // the next transfer follows without a gap
        bool isImage = false;
        bool isPlainBlock = false;  // image data without delay or fault
        bool isZeroFirst = false;
        std::optional<TransferResult> failure;
        bool isNever = false;
        std::uint64_t notBefore = 0;
        std::optional<Fault> carrierFault;
    };

    void handle(const Command& command);
    void wake();
    void answer(CommandId id);
    void answerProperties();
    void lock(const Command& command);
    void start(const Command& command);
    void unlock();
    void cancel();

    SourceKind sourceOf(const ScanRequest& request, bool& isKnown) const;
    bool canScan(const ScanRequest& request, SourceKind source);
    void startPage(const ScanRequest& request, SourceKind kind);
    std::uint32_t linesOf(const ScanRequest& request, SourceKind source) const;
    std::unique_ptr<PageStream> openPage(const ScanRequest& request, SourceKind kind,
                                         std::uint32_t lines, std::uint32_t cut);
    void sendPageMarker(const ScanRequest& request);
    bool sendLateMarker();
    Condition reply(CommandId id, Condition state, const Bytes& data = {});  // as it was sent
    Bytes flipData(bool isFlipped) const;
    Condition condition(CommandId id) const;
    Condition condition() const;

    bool refill();
    void queueBlock();
    void queueEnd(RecordCode code);
    void finishPage(RecordCode code);
    void queueRecord(Bytes record, const std::optional<Fault>& fault);
    void queueTransfer(Bytes bytes, const std::optional<Fault>& fault, std::deque<Transfer>& queue);
    std::deque<Transfer>& replyQueue() { return page_ ? repliesAfterPage_ : queue_; }
    void noteFault(const Fault& fault);
    TransferResult beginTransfer();
    TransferResult takeBytes(std::size_t capacity, Bytes& out);

    const Model& model_;
    FaultScript& faults_;
    Journal& journal_;
    PageRecorder& recorder_;
    PaperTray glass_;
    PaperTray feeder_;

    std::uint64_t now_ = 0;
    std::uint64_t nextBlockTime_ = 0;
    std::uint32_t sheets_;
    std::uint32_t sheetsFed_ = 0;
    unsigned pagesStarted_ = 0;

    bool isAwake_ = false;
    bool isLocked_ = false;
    bool isScanning_ = false;
    bool isHung_ = false;
    bool isDisturbed_ = false;  // a fault has given the host a reason for unusual behaviour
    Bytes lockParameters_;

    std::shared_ptr<const Paper> paper_;
    std::unique_ptr<PageStream> page_;
    std::optional<std::uint32_t> blocksUntilCancelled_;
    std::optional<Bytes> lateMarker_;
    std::uint32_t blocksUntilMarker_ = 0;
    std::size_t bytesTaken_ = 0;
    std::deque<Transfer> queue_;
    std::deque<Transfer> repliesAfterPage_;
};

}  // namespace scansim
