// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Replay.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "../../tools/trace/CaptureFile.h"
#include "../../tools/trace/CommandKinds.h"
#include "../../tools/trace/Messages.h"
#include "Records.h"
#include "Text.h"

namespace scansim {

namespace {

const trace::CommandKind* kindOfCommand(const Bytes& bytes)
{
    return trace::kindOf(trace::unframe(bytes).command);
}

std::string nameOf(const Bytes& bytes)
{
    return trace::decodeCommand(bytes).title;
}

}  // namespace

Replay::Replay(const Model& model, Journal& journal) : model_(model), journal_(journal)
{
    std::ifstream file(model.replay, std::ios::binary);
    if (!file) {
        throw InputError(model.replay + ": " + std::strerror(errno));
    }
    try {
        load(file);
    } catch (const trace::CaptureError& error) {
        throw InputError(model.replay + ": " + error.what());
    }
}

Replay::Replay(const Model& model, Journal& journal, std::istream& capture)
    : model_(model), journal_(journal)
{
    load(capture);
}

Replay::~Replay() = default;

void Replay::load(std::istream& capture)
{
    for (trace::Transfer& transfer : trace::readCapture(capture).transfers) {
        if (transfer.kind == trace::Transfer::Kind::Data) {
            steps_.push_back({transfer.from == trace::Party::Host, std::move(transfer.bytes)});
        }
    }
}

bool Replay::hasTransfer() const
{
    return next_ < steps_.size() && !steps_[next_].isHost;
}

// What the captured host has read before it went on.
void Replay::skipUnread(const std::string& command)
{
    std::size_t count = 0;
    for (; hasTransfer(); ++next_) {
        count += steps_[next_].bytes.empty() ? 0 : 1;
    }
    sent_ = 0;
    madeUp_.clear();
    if (count > 0) {
        journal_.complain("replay: " + command + " comes before " + std::to_string(count) +
                          " transfers of the capture were read");
    }
}

// The same command in what is still to come, or else one of its kind.
std::size_t Replay::findCommand(const Bytes& bytes) const
{
    const auto first = steps_.begin() + static_cast<long>(next_);
    auto found = std::find_if(first, steps_.end(), [&bytes](const Step& step) {
        return step.isHost && step.bytes == bytes;
    });
    if (found == steps_.end()) {
        found = std::find_if(first, steps_.end(), [&bytes](const Step& step) {
            return step.isHost && kindOfCommand(step.bytes) == kindOfCommand(bytes);
        });
    }
    return static_cast<std::size_t>(found - steps_.begin());
}

TransferResult Replay::write(const Bytes& bytes)
{
    const std::string name = nameOf(bytes);
    journal_.trace("<- " + name + "  [" + hex(bytes.data(), bytes.size()) + "]");
    skipUnread(name);
    const trace::CommandKind* kind = kindOfCommand(bytes);
    pagesStarted_ += kind != nullptr && kind->code == 0x01 ? 1 : 0;
    follow(bytes);
    return TransferResult::Done;
}

void Replay::follow(const Bytes& bytes)
{
    if (next_ < steps_.size() && kindOfCommand(steps_[next_].bytes) == kindOfCommand(bytes)) {
        for (const std::string& difference : trace::differences(bytes, steps_[next_].bytes)) {
            journal_.complain("replay: " + nameOf(bytes) + ": " + difference);
        }
        ++next_;
        return;
    }
    const std::string expected =
        next_ < steps_.size() ? nameOf(steps_[next_].bytes) : "nothing more";
    journal_.complain("replay: " + nameOf(bytes) + " comes where the capture has " + expected);
    const std::size_t found = findCommand(bytes);
    if (found == steps_.size()) {
        makeUp(bytes);
    } else {
        next_ = found + 1;
    }
}

// So that the host can go on: a good reply, or the end of the page that it has cancelled.
void Replay::makeUp(const Bytes& bytes)
{
    const trace::CommandKind* kind = kindOfCommand(bytes);
    if (kind == nullptr) {
        return;
    }
    const Condition good{0x80, 0};
    madeUp_ = kind->isAnswered ? makeReply(static_cast<CommandId>(kind->id), good)
                               : makeScanRecord(model_.protocol, RecordCode::Cancelled, good);
}

TransferResult Replay::take(Piece& piece)
{
    piece = Piece();
    if (!madeUp_.empty()) {
        piece.bytes = std::move(madeUp_);
        madeUp_.clear();
        return TransferResult::Done;
    }
    if (!hasTransfer()) {
        return TransferResult::Nothing;
    }
    const Bytes& bytes = steps_[next_++].bytes;
    piece.bytes.assign(bytes.begin() + static_cast<long>(sent_), bytes.end());
    sent_ = 0;
    return TransferResult::Done;
}

TransferResult Replay::read(std::size_t capacity, Bytes& out)
{
    out.clear();
    if (!madeUp_.empty()) {
        const auto end = madeUp_.begin() + static_cast<long>(std::min(capacity, madeUp_.size()));
        out.assign(madeUp_.begin(), end);
        madeUp_.erase(madeUp_.begin(), end);
        return TransferResult::Done;
    }
    if (!hasTransfer()) {
        return TransferResult::Nothing;
    }
    const Bytes& bytes = steps_[next_].bytes;
    const auto first = bytes.begin() + static_cast<long>(sent_);
    sent_ += std::min(capacity, bytes.size() - sent_);
    out.assign(first, bytes.begin() + static_cast<long>(sent_));
    if (sent_ == bytes.size()) {
        ++next_;
        sent_ = 0;
    }
    return TransferResult::Done;
}

void Replay::finish()
{
    const auto left = std::count_if(steps_.begin() + static_cast<long>(next_), steps_.end(),
                                    [](const Step& step) { return step.isHost; });
    if (left > 0) {
        journal_.complain("replay: the host has stopped, " + std::to_string(left) +
                          " commands of the capture before its end");
    }
}

}  // namespace scansim
