// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NetDevice.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "FrameFault.h"

namespace scansim {

NetDevice::NetDevice(const Model& model, Actor& scanner, FaultScript& faults, Journal& journal)
    : model_(model), scanner_(scanner), faults_(faults), journal_(journal)
{
}

in_addr NetDevice::address() const
{
    return parseAddress(model_.network.ip);
}

void NetDevice::appear(SetVisible setVisible)
{
    setVisible_ = std::move(setVisible);
    setVisible_(address(), true);
    responder_.emplace(model_, journal_);
    setPortOpen(!model_.network.isPortClosed);
}

void NetDevice::setPortOpen(bool isOpen)
{
    if (isOpen != listener_.isOpen()) {
        listener_ = isOpen ? listenOn(address(), kScannerPort) : Descriptor();
    }
}

void NetDevice::plug()
{
    if (!isPlugged_) {
        isPlugged_ = true;
        setVisible_(address(), true);
        journal_.trace("back on the network");
    }
}

void NetDevice::unplug()
{
    if (!isPlugged_) {
        return;
    }
    isPlugged_ = false;
    setVisible_(address(), false);
    if (connection_) {
        connection_->forget();
        drop();
    }
    journal_.trace("vanished from the network");
}

bool NetDevice::wantsHosts() const
{
    return listener_.isOpen() && (!connection_ || model_.network.refusesSecondHost);
}

void NetDevice::addTo(std::vector<pollfd>& descriptors, std::uint64_t now) const
{
    responder_->addTo(descriptors);
    if (wantsHosts()) {
        descriptors.push_back({listener_.get(), POLLIN, 0});
    }
    if (connection_) {
        const short writing = connection_->wantsToWrite(now) ? POLLOUT : 0;
        descriptors.push_back({connection_->fd(), static_cast<short>(POLLIN | writing), 0});
    }
}

void NetDevice::handle(const std::vector<pollfd>& descriptors, std::uint64_t now)
{
    responder_->handle(descriptors, now);
    if (connection_ && isReady(descriptors, connection_->fd())) {
        listenToHost(now);
    }
    if (wantsHosts() && isReady(descriptors, listener_.get())) {
        acceptHosts();
    }
    if (connection_) {
        speak(now);
    }
}

void NetDevice::acceptHosts()
{
    while (wantsHosts()) {
        Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.isOpen()) {
            return;
        }
        HostConnection connection(std::move(socket), model_.network);
        if (!isPlugged_) {
            connection.forget();
        } else if (connection_) {
            journal_.trace("a second host is refused");
            connection.reset();
        } else {
            begin(std::move(connection));
        }
    }
}

void NetDevice::begin(HostConnection connection)
{
    journal_.trace("a host connects");
    connection_.emplace(std::move(connection));
    commands_.emplace(journal_);
    framer_.emplace(model_.network);
    isTickled_ = false;
    if (const std::optional<Fault> fault = faults_.happen(FaultEvent::Connect)) {
        carryOut(fault->action);
    }
}

void NetDevice::drop()
{
    connection_.reset();
    commands_.reset();
    framer_.reset();
    phase_ = Phase::Talking;
    scanner_.reset();
}

void NetDevice::listenToHost(std::uint64_t now)
{
    Bytes bytes;
    const bool isThere = connection_->receive(bytes);
    if (phase_ == Phase::Talking) {
        commands_->add(bytes);
    }
    while (phase_ == Phase::Talking) {
        const std::optional<Bytes> command = commands_->next();
        if (commands_->isTickled() && !isTickled_) {
            answerTickle(now);
        }
        if (!command) {
            break;
        }
        carryOut(scanner_.write(*command));
    }
    if (!isThere) {
        journal_.trace("the host leaves");
        commands_->end();
        scanner_.hostLeft();
        drop();
    }
}

void NetDevice::answerTickle(std::uint64_t now)
{
    isTickled_ = true;
    journal_.trace("<- tickle");
    Bytes answer = makeFrame({});
    const std::optional<Fault> fault = faults_.happen(FaultEvent::Tickle);
    if (!fault) {
        connection_->send(answer);
        return;
    }
    journal_.trace(std::string("fault: ") + faultActionName(fault->action));
    switch (fault->action) {
    case FaultAction::Delay:
        connection_->send(answer, now + fault->argument);
        break;
    case FaultAction::Garbage:
        connection_->send(Bytes(fault->argument, 0xDB));
        break;
    case FaultAction::Truncate:
        answer.resize(std::min<std::size_t>(fault->argument, answer.size()));
        connection_->send(answer);
        break;
    case FaultAction::Timeout:
    case FaultAction::Unplug:
    case FaultAction::Replug:
        carryOut(fault->action);
        break;
    default:
        queueSpoilt({answer}, *fault);
    }
}

void NetDevice::carryOut(TransferResult result)
{
    switch (result) {
    case TransferResult::Unplug:
        return endWith(Ending::Vanish);
    case TransferResult::Replug:
        return endWith(Ending::Return);
    case TransferResult::Reset:
    case TransferResult::Stall:
        return endWith(Ending::Reset);
    case TransferResult::HalfClose:
        return endWith(Ending::HalfClose);
    case TransferResult::Done:
    case TransferResult::Nothing:
    case TransferResult::Short:
        return;
    }
}

void NetDevice::carryOut(FaultAction action)
{
    switch (action) {
    case FaultAction::Unplug:
    case FaultAction::Vanish:
        return endWith(Ending::Vanish);
    case FaultAction::Replug:
        return endWith(Ending::Return);
    case FaultAction::Reset:
        return endWith(Ending::Reset);
    case FaultAction::HalfClose:
        return endWith(Ending::HalfClose);
    default:
        phase_ = Phase::Mute;
    }
}

void NetDevice::endWith(Ending ending)
{
    phase_ = Phase::Ending;
    ending_ = ending;
}

void NetDevice::finishEnding()
{
    phase_ = Phase::Mute;
    switch (ending_) {
    case Ending::HalfClose:
        connection_->halfClose();
        break;
    case Ending::Reset:
        connection_->reset();
        drop();
        break;
    case Ending::Vanish:
        unplug();
        break;
    case Ending::Return:
        unplug();
        plug();
        break;
    }
}

// Takes what the scanner has to say, as much as is worth queuing; false if that was all.
bool NetDevice::fetch()
{
    while (phase_ == Phase::Talking && connection_->hasRoom()) {
        Piece piece;
        const TransferResult result = scanner_.take(piece);
        if (result != TransferResult::Done) {
            queue(framer_->flush());
            carryOut(result);
            return false;
        }
        say(piece);
    }
    return phase_ == Phase::Talking;
}

// Says as much as the host takes.
void NetDevice::speak(std::uint64_t now)
{
    bool hasMore = true;
    while (hasMore) {
        hasMore = fetch();
        if (!connection_->pump(now)) {
            return;  // that the host has left is to be read, too
        }
        hasMore = hasMore && connection_->hasRoom();
    }
    if (phase_ == Phase::Ending && connection_->isDelivered()) {
        finishEnding();
    }
}

void NetDevice::say(const Piece& piece)
{
    if (piece.joinsOthers) {
        return queue(framer_->addImage(piece.bytes));
    }
    queue(framer_->flush());
    std::vector<Bytes> frames;
    if (piece.isImage) {
        frames = framer_->addImage(piece.bytes);
        const std::vector<Bytes> rest = framer_->flush();
        frames.insert(frames.end(), rest.begin(), rest.end());
    } else {
        frames.push_back(makeFrame(piece.bytes));
    }
    if (piece.fault && !frames.empty()) {
        queueSpoilt(frames, *piece.fault);
    } else {
        queue(frames);
    }
}

void NetDevice::queue(const std::vector<Bytes>& frames)
{
    for (const Bytes& frame : frames) {
        connection_->send(frame);
    }
}

// The fault strikes the first of the frames.
void NetDevice::queueSpoilt(const std::vector<Bytes>& frames, const Fault& fault)
{
    const SpoiltFrame first = spoil(frames.front(), fault);
    connection_->send(first.bytes);
    if (first.isLast) {
        carryOut(fault.action);
    } else {
        queue({frames.begin() + 1, frames.end()});
    }
}

std::optional<std::uint64_t> NetDevice::nextWake(std::uint64_t now) const
{
    std::optional<std::uint64_t> wake = responder_->nextWake(now);
    const auto add = [&](std::optional<std::uint64_t> time) {
        wake = !wake ? time : time ? std::min(*wake, *time) : wake;
    };
    if (connection_) {
        add(connection_->nextWake(now));
        if (phase_ == Phase::Ending && !connection_->wantsToWrite(now)) {
            add(now + 1);  // to see whether everything has arrived
        }
    }
    return wake;
}

}  // namespace scansim
