// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Scanner.h"

#include <algorithm>
#include <utility>

#include "CompressedPageStream.h"
#include "FieldFault.h"
#include "LimitedPageStream.h"
#include "RawPageStream.h"

namespace scansim {

namespace {

constexpr std::uint8_t kGood = 0x80;
constexpr std::uint8_t kInvalid = 0x81;
constexpr std::uint8_t kRefused = 0x88;

Bytes garbage(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(0xDB + 37 * i);
    }
    return bytes;
}

// The statuses at which a host gives up.
bool refuses(std::uint8_t status)
{
    return status > 0x80 && status <= 0x89 && status != 0x87;
}

bool isAboutTheContent(FaultAction action)
{
    return action == FaultAction::Status || action == FaultAction::Feeder ||
           action == FaultAction::Flip;
}

// What a host sees of a fault in its command.
TransferResult resultOf(FaultAction action)
{
    switch (action) {
    case FaultAction::Stall:
        return TransferResult::Stall;
    case FaultAction::Unplug:
        return TransferResult::Unplug;
    case FaultAction::Replug:
        return TransferResult::Replug;
    case FaultAction::Reset:
        return TransferResult::Reset;
    case FaultAction::HalfClose:
        return TransferResult::HalfClose;
    case FaultAction::Short:
        return TransferResult::Short;
    case FaultAction::Ignore:
        return TransferResult::Done;
    default:
        return TransferResult::Nothing;
    }
}

}  // namespace

Scanner::Scanner(const Model& model, FaultScript& faults, Journal& journal, PageRecorder& recorder)
    : model_(model),
      faults_(faults),
      journal_(journal),
      recorder_(recorder),
      glass_(SourceKind::Flatbed, model.flatbed),
      feeder_(SourceKind::Feeder, model.feeder),
      sheets_(model.sheets)
{
}

TransferResult Scanner::write(const Bytes& bytes)
{
    if (isHung_) {
        return TransferResult::Nothing;
    }
    const std::optional<Command> command = decodeCommand(model_, bytes, journal_);
    if (!command) {
        return TransferResult::Done;
    }
    if (journal_.isTracing()) {
        journal_.trace("<- " + describe(*command) + "  [" + hex(bytes.data(), bytes.size()) + "]");
    }
    if (const std::optional<Fault> fault = faults_.happen(FaultEvent::Command, command->id)) {
        noteFault(*fault);
        if (fault->action != FaultAction::RemovePaper) {
            isHung_ = fault->action == FaultAction::Timeout;
            bytesTaken_ = std::min<std::size_t>(fault->argument, bytes.size());
            return resultOf(fault->action);
        }
        sheets_ = 0;
    }
    handle(*command);
    return TransferResult::Done;
}

void Scanner::handle(const Command& command)
{
    switch (command.id) {
    case CommandId::Cancel:
        return cancel();
    case CommandId::FeederStatus:
        if (!model_.has(SourceKind::Feeder)) {
            journal_.complain("feeder status asked of a scanner without feeder");
        }
        return answer(command.id);
    case CommandId::Properties:
        return answerProperties();
    case CommandId::Lock:
        return lock(command);
    case CommandId::Start:
        return start(command);
    case CommandId::Unlock:
        return unlock();
    case CommandId::Wake:
        return wake();
    }
}

void Scanner::answer(CommandId id)
{
    reply(id, condition(id));
}

void Scanner::wake()
{
    if (model_.protocol != 402) {
        journal_.complain("wake sent to a scanner of protocol " + std::to_string(model_.protocol));
    }
    isAwake_ = true;
    answer(CommandId::Wake);
}

void Scanner::answerProperties()
{
    if (model_.protocol == 402 && !isAwake_) {
        journal_.complain("properties asked without a wake before");
    }
    isAwake_ = false;
    reply(CommandId::Properties, condition(CommandId::Properties), propertiesData(model_));
}

void Scanner::lock(const Command& command)
{
    if (model_.protocol == 402 && !isAwake_) {
        journal_.complain("lock without a wake before");
    }
    if (isScanning_ && !isDisturbed_) {
        journal_.complain("lock while a page is being scanned");
    }
    isAwake_ = false;
    isScanning_ = false;
    page_.reset();
    lateMarker_.reset();
    queue_.clear();
    repliesAfterPage_.clear();

    bool isKnown = false;
    const SourceKind source = sourceOf(command.request, isKnown);
    const bool isGood = isKnown ? isPossible(command.request, model_, source, journal_) : false;
    if (!isKnown) {
        journal_.complain("source code " + std::to_string(command.request.sourceCode) +
                          " is wrong");
    }
    Condition state = condition(CommandId::Lock);
    if (!isGood) {
        state.status = kInvalid;
    }
    lockParameters_ = command.parameters;
    isLocked_ = !refuses(reply(CommandId::Lock, state).status);
}

void Scanner::start(const Command& command)
{
    bool isKnown = false;
    const SourceKind source = sourceOf(command.request, isKnown);
    Condition state = condition(CommandId::Start);
    if (!isLocked_ && !isDisturbed_) {
        journal_.complain("start without a lock before");
    }
    if (isScanning_) {
        journal_.complain("start while a page is being scanned");
    }
    if (command.parameters != lockParameters_) {
        journal_.complain("start has other parameters than the lock: " +
                          hex(command.parameters.data(), command.parameters.size()) +
                          " instead of " + hex(lockParameters_.data(), lockParameters_.size()));
    }
    const bool canStart = !isScanning_ && isKnown && canScan(command.request, source);
    if (!canStart) {
        state.status = source == SourceKind::Feeder && sheets_ == 0 ? kRefused : kInvalid;
    }
    const Condition sent = reply(CommandId::Start, state, flipData(model_.isFlipped));
    if (canStart && !refuses(sent.status)) {
        startPage(command.request, source);
    }
}

bool Scanner::canScan(const ScanRequest& request, SourceKind source)
{
    if (!isPossible(request, model_, source, journal_)) {
        return false;
    }
    if (source == SourceKind::Feeder && sheets_ == 0) {
        journal_.complain("start on an empty feeder");
        return false;
    }
    return true;
}

void Scanner::unlock()
{
    if (!isLocked_ && !isScanning_ && !isDisturbed_) {
        journal_.complain("unlock without a lock before");
    }
    if (page_ && !isDisturbed_) {
        journal_.complain("unlock before the page is over");
    }
    isLocked_ = false;
    isScanning_ = false;
    isAwake_ = false;
    answer(CommandId::Unlock);
}

void Scanner::cancel()
{
    if (!isScanning_ && !isDisturbed_) {
        journal_.complain("cancel while nothing is being scanned");
    }
    queue_.clear();
    if (page_ && model_.blocksAfterCancel > 0) {
        blocksUntilCancelled_ = model_.blocksAfterCancel;
    } else {
        finishPage(RecordCode::Cancelled);
    }
}

// Protocol 326 has no source code: whatever lies in the feeder goes first.
SourceKind Scanner::sourceOf(const ScanRequest& request, bool& isKnown) const
{
    if (model_.protocol == 326) {
        isKnown = true;
        const bool takesFeeder =
            model_.has(SourceKind::Feeder) && (sheets_ > 0 || !model_.has(SourceKind::Flatbed));
        return takesFeeder ? SourceKind::Feeder : SourceKind::Flatbed;
    }
    const SourceKind kind = request.sourceCode == 4 ? SourceKind::Feeder : SourceKind::Flatbed;
    isKnown = (request.sourceCode == 1 || request.sourceCode == 4) && model_.has(kind);
    return kind;
}

void Scanner::startPage(const ScanRequest& request, SourceKind kind)
{
    std::uint32_t lines = request.lines;
    if (kind == SourceKind::Feeder) {
        --sheets_;
        paper_ = feeder_.sheet(++sheetsFed_);
        if (model_.sheetHeight > 0) {
            const std::uint64_t end = std::uint64_t{model_.sheetHeight} * request.dpi / 300;
            lines = std::min(lines, static_cast<std::uint32_t>(
                                        end - std::min<std::uint64_t>(end, request.offsetY)));
        }
    } else {
        paper_ = glass_.sheet(1);
    }
    const Fault fault = faults_.happen(FaultEvent::Page).value_or(Fault{FaultAction::Cut, 0});
    if (fault.action == FaultAction::Lines) {
        lines = fault.argument;
    }
    page_ = openPage(request, kind, lines, fault.action == FaultAction::Cut ? fault.argument : 0);
    isScanning_ = true;
    isDisturbed_ = false;
    ++pagesStarted_;
    nextBlockTime_ = now_ + model_.blockDelayMs;
    journal_.trace("page " + std::to_string(pagesStarted_) + ": " + std::to_string(request.pixels) +
                   " x " + std::to_string(lines) + " at " + std::to_string(request.dpi) + " dpi");
    sendPageMarker(request);
    if (fault.action == FaultAction::Keep && page_) {
        page_ = std::make_unique<LimitedPageStream>(std::move(page_), fault.argument);
    }
}

std::unique_ptr<PageStream> Scanner::openPage(const ScanRequest& request, SourceKind kind,
                                              std::uint32_t lines, std::uint32_t cut)
{
    const Window window{request.dpi, request.offsetX, request.offsetY, request.pixels,
                        request.channels()};
    const LineLayout layout{model_.source(kind).isMirrored, model_.isBgr, model_.isInterleaved,
                            model_.interleaveOffsetX, model_.interleaveTrim};
    if (!model_.isCompressed) {
        return std::make_unique<RawPageStream>(*paper_, window, lines, layout, cut, recorder_);
    }
    const auto nextFault = [this] {
        const std::optional<Fault> chunkFault = faults_.happen(FaultEvent::Chunk);
        if (chunkFault) {
            noteFault(*chunkFault);
        }
        return chunkFault;
    };
    return std::make_unique<CompressedPageStream>(
        *paper_, window, lines, layout, CompressedLayout{model_.bandLines, model_.qualities}, cut,
        nextFault, recorder_);
}

void Scanner::sendPageMarker(const ScanRequest& request)
{
    PageGeometry geometry;
    geometry.width = page_->deviceWidth();
    geometry.height = request.lines;
    geometry.isInterleaved = model_.isInterleaved;
    if (model_.isInterleaved) {
        geometry.offsetX = model_.interleaveOffsetX;
        geometry.trim = model_.interleaveTrim;
    }
    Bytes marker = makePageMarker(geometry, condition());
    const std::optional<Fault> fault = faults_.happen(FaultEvent::Marker);
    if (fault && fault->action == FaultAction::Jam) {
        noteFault(*fault);
        finishPage(RecordCode::Jam);
    } else if (fault && fault->action == FaultAction::Late) {
        noteFault(*fault);
        lateMarker_ = std::move(marker);
        blocksUntilMarker_ = fault->argument;
    } else {
        queueRecord(std::move(marker), fault);
    }
}

// True if it was time for it.
bool Scanner::sendLateMarker()
{
    if (!lateMarker_ || blocksUntilMarker_-- > 0) {
        return false;
    }
    queueRecord(std::move(*lateMarker_), std::nullopt);
    lateMarker_.reset();
    return true;
}

Condition Scanner::condition(CommandId id) const
{
    Condition state = condition();
    state.status = static_cast<std::uint8_t>(model_.statuses[static_cast<std::size_t>(id)]);
    return state;
}

Condition Scanner::condition() const
{
    const bool hasFeeder = model_.has(SourceKind::Feeder);
    return {kGood, static_cast<std::uint8_t>(!hasFeeder ? 0 : sheets_ == 0 ? 1 : 2)};
}

// The flip flag is byte 9 of a reply, behind an empty record response.
Bytes Scanner::flipData(bool isFlipped) const
{
    return isFlipped ? Bytes{0, 1} : Bytes{};
}

Condition Scanner::reply(CommandId id, Condition state, const Bytes& data)
{
    std::optional<Fault> fault = faults_.happen(FaultEvent::Reply, id);
    Bytes contents = data;
    if (fault && isAboutTheContent(fault->action)) {
        noteFault(*fault);
        if (fault->action == FaultAction::Status) {
            state.status = static_cast<std::uint8_t>(fault->argument);
        } else if (fault->action == FaultAction::Feeder) {
            state.feeder = static_cast<std::uint8_t>(fault->argument);
        } else {
            contents = flipData(true);
        }
        fault.reset();
    }
    // A host that is refused something may leave a lock behind, or ask again.
    isDisturbed_ = isDisturbed_ || refuses(state.status);
    Bytes bytes = makeReply(id, state, contents);
    if (fault && fault->action == FaultAction::Precede) {
        Bytes first = makeReply(id, state);
        first[kReplyCodeOffset] = static_cast<std::uint8_t>(fault->argument);
        queueTransfer(std::move(first), std::nullopt, replyQueue());
        noteFault(*fault);
        fault.reset();
    } else if (fault && spoilReply(bytes, *fault)) {
        noteFault(*fault);
        fault.reset();
    }
    if (journal_.isTracing()) {
        journal_.trace(std::string("-> ") + commandName(id) + " replied  [" +
                       hex(bytes.data(), bytes.size()) + "]");
    }
    queueTransfer(std::move(bytes), fault, replyQueue());
    return state;
}

void Scanner::noteFault(const Fault& fault)
{
    isDisturbed_ = true;
    journal_.trace(std::string("fault: ") + faultActionName(fault.action));
}

// A page marker or another scan record.
void Scanner::queueRecord(Bytes record, const std::optional<Fault>& fault)
{
    if (fault && spoilRecord(record, *fault)) {
        noteFault(*fault);
        return queueTransfer(std::move(record), std::nullopt, queue_);
    }
    queueTransfer(std::move(record), fault, queue_);
}

void Scanner::queueTransfer(Bytes bytes, const std::optional<Fault>& fault,
                            std::deque<Transfer>& queue)
{
    Transfer transfer;
    transfer.bytes = std::move(bytes);
    transfer.end = transfer.bytes.size();
    if (fault) {
        noteFault(*fault);
        switch (fault->action) {
        case FaultAction::Stall:
            transfer.failure = TransferResult::Stall;
            break;
        case FaultAction::Unplug:
            transfer.failure = TransferResult::Unplug;
            break;
        case FaultAction::Replug:
            transfer.failure = TransferResult::Replug;
            break;
        case FaultAction::Timeout:
            transfer.isNever = true;
            break;
        case FaultAction::Zero:
            transfer.isZeroFirst = true;
            break;
        case FaultAction::Short:
            transfer.end = std::min<std::size_t>(fault->argument, transfer.bytes.size());
            break;
        case FaultAction::Delay:
            transfer.notBefore = now_ + fault->argument;
            break;
        case FaultAction::Omit:
            return;
        case FaultAction::Twice:
            queue.push_back(transfer);
            break;
        case FaultAction::Stray:
            queueTransfer(garbage(fault->argument), std::nullopt, queue);
            break;
        case FaultAction::Garbage:
            transfer.bytes = garbage(fault->argument);
            transfer.end = transfer.bytes.size();
            break;
        case FaultAction::Truncate:
            transfer.bytes.resize(std::min<std::size_t>(fault->argument, transfer.bytes.size()));
            transfer.end = transfer.bytes.size();
            break;
        default:
            transfer.carrierFault = fault;
            break;
        }
    }
    queue.push_back(std::move(transfer));
}

bool Scanner::refill()
{
    if (!page_) {
        return false;
    }
    // A fault may keep a block, or the end, from coming at all.
    do {
        if (sendLateMarker()) {
            break;
        }
        if (blocksUntilCancelled_ && (*blocksUntilCancelled_)-- == 0) {
            finishPage(RecordCode::Cancelled);
        } else if (page_->isOver()) {
            finishPage(RecordCode::End);
        } else {
            queueBlock();
        }
    } while (queue_.empty() && page_);
    return !queue_.empty();
}

void Scanner::queueBlock()
{
    const std::optional<Fault> fault = faults_.happen(FaultEvent::Block);
    if (fault && fault->action == FaultAction::Jam) {
        noteFault(*fault);
        finishPage(RecordCode::Jam);
        return;
    }
    const std::size_t headerSize = blockFraming(model_.protocol).headerSize;
    Bytes block;
    block.reserve(headerSize + model_.blockSize);
    block.resize(headerSize);
    page_->append(block, model_.blockSize);
    writeBlockHeader(block.data(), model_.protocol, block.size() - headerSize, condition());
    if (fault && fault->action == FaultAction::Record) {
        noteFault(*fault);
        const auto code = static_cast<RecordCode>(fault->argument);
        queueTransfer(makeScanRecord(model_.protocol, code, condition()), std::nullopt, queue_);
        queueTransfer(std::move(block), std::nullopt, queue_);
    } else {
        queueRecord(std::move(block), fault);
    }
    if (queue_.empty()) {
        return;
    }
    Transfer& transfer = queue_.back();
    transfer.isImage = true;
    transfer.joinsNext = model_.packsBlocks && !page_->isOver();
    transfer.isPlainBlock = !fault && model_.blockDelayMs == 0;
    if (model_.blockDelayMs > 0) {
        transfer.notBefore = std::max(transfer.notBefore, nextBlockTime_);
        nextBlockTime_ += model_.blockDelayMs;
    }
}

void Scanner::queueEnd(RecordCode code)
{
    std::optional<Fault> fault;
    if (code == RecordCode::End) {
        fault = faults_.happen(FaultEvent::End);
        if (fault && fault->action == FaultAction::Jam) {
            code = RecordCode::Jam;
        }
    }
    journal_.trace("-> scan record " + std::to_string(static_cast<int>(code)));
    queueRecord(makeScanRecord(model_.protocol, code, condition()), fault);
    if (fault && fault->action == FaultAction::Follow) {
        const Bytes data = garbage(fault->argument);
        Bytes block(blockFraming(model_.protocol).headerSize);
        writeBlockHeader(block.data(), model_.protocol, data.size(), condition());
        block.insert(block.end(), data.begin(), data.end());
        queueTransfer(std::move(block), std::nullopt, queue_);
    }
}

// The page is over; what the host asked for meanwhile can be answered now.
void Scanner::finishPage(RecordCode code)
{
    page_.reset();
    lateMarker_.reset();
    recorder_.endPage();
    blocksUntilCancelled_.reset();
    queueEnd(code);
    std::move(repliesAfterPage_.begin(), repliesAfterPage_.end(), std::back_inserter(queue_));
    repliesAfterPage_.clear();
}

// Done if the bytes of the next transfer can be taken.
TransferResult Scanner::beginTransfer()
{
    if (isHung_ || (queue_.empty() && !refill())) {
        return TransferResult::Nothing;
    }
    Transfer& transfer = queue_.front();
    if (transfer.isNever) {
        isHung_ = true;
        return TransferResult::Nothing;
    }
    if (transfer.notBefore > now_) {
        return TransferResult::Nothing;
    }
    if (transfer.failure) {
        const TransferResult failure = *transfer.failure;
        queue_.pop_front();
        return failure;
    }
    return TransferResult::Done;
}

TransferResult Scanner::read(std::size_t capacity, Bytes& out)
{
    out.clear();
    const TransferResult result = beginTransfer();
    if (result != TransferResult::Done || std::exchange(queue_.front().isZeroFirst, false)) {
        return result;
    }
    return takeBytes(capacity, out);
}

TransferResult Scanner::take(Piece& piece)
{
    piece = Piece();
    const TransferResult result = beginTransfer();
    if (result != TransferResult::Done || std::exchange(queue_.front().isZeroFirst, false)) {
        return result;
    }
    Transfer& transfer = queue_.front();
    piece.isImage = transfer.isImage;
    piece.joinsOthers = transfer.isPlainBlock;
    piece.fault = transfer.carrierFault;
    piece.bytes.assign(transfer.bytes.begin() + static_cast<long>(transfer.sent),
                       transfer.bytes.begin() + static_cast<long>(transfer.end));
    transfer.sent = transfer.end;
    transfer.end = transfer.bytes.size();
    if (transfer.sent == transfer.end) {
        queue_.pop_front();
    }
    return result;
}

TransferResult Scanner::takeBytes(std::size_t capacity, Bytes& out)
{
    for (;;) {
        Transfer& transfer = queue_.front();
        const std::size_t take = std::min(capacity - out.size(), transfer.end - transfer.sent);
        const auto first = transfer.bytes.begin() + static_cast<long>(transfer.sent);
        out.insert(out.end(), first, first + static_cast<long>(take));
        transfer.sent += take;
        if (transfer.sent < transfer.end) {
            return TransferResult::Done;
        }
        if (transfer.end < transfer.bytes.size()) {
            transfer.end = transfer.bytes.size();
            return TransferResult::Done;
        }
        const bool joinsNext = transfer.joinsNext;
        queue_.pop_front();
        if (!joinsNext || out.size() == capacity || !refill() || !queue_.front().isPlainBlock) {
            return TransferResult::Done;
        }
    }
}

std::optional<std::uint64_t> Scanner::nextWake() const
{
    if (isHung_ || queue_.empty() || queue_.front().isNever || queue_.front().notBefore <= now_) {
        return std::nullopt;
    }
    return queue_.front().notBefore;
}

void Scanner::reset()
{
    page_.reset();
    lateMarker_.reset();
    recorder_.endPage();
    blocksUntilCancelled_.reset();
    queue_.clear();
    repliesAfterPage_.clear();
    lockParameters_.clear();
    isAwake_ = false;
    isLocked_ = false;
    isScanning_ = false;
    isHung_ = false;
    isDisturbed_ = false;
}

void Scanner::hostLeft()
{
    if ((isLocked_ || isScanning_) && !isDisturbed_) {
        journal_.complain("the host left the scanner locked");
    }
}

}  // namespace scansim
