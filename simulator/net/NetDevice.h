// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <optional>

#include "Carrier.h"
#include "CommandSplitter.h"
#include "FaultScript.h"
#include "Framer.h"
#include "HostConnection.h"
#include "Journal.h"
#include "Responder.h"
#include "Actor.h"

namespace scansim {

// A scanner on the network: found by a search, and used over one TCP connection at a time.
class NetDevice : public Carrier {
public:
    // Makes the scanner's address reachable, or not.
    using SetVisible = std::function<void(in_addr address, bool isVisible)>;

    // All have to outlive the device.
    NetDevice(const Model& model, Actor& scanner, FaultScript& faults, Journal& journal);

    // Appears on the network that this process is in. Throws std::runtime_error.
    void appear(SetVisible setVisible);

    bool isPlugged() const override { return isPlugged_; }
    void plug() override;
    void unplug() override;
    std::string place() const override { return "address=" + model_.network.ip; }

    // Whether anybody listens on the scanner's port.
    void setPortOpen(bool isOpen);

    void addTo(std::vector<pollfd>& descriptors, std::uint64_t now) const;
    void handle(const std::vector<pollfd>& descriptors, std::uint64_t now);
    std::optional<std::uint64_t> nextWake(std::uint64_t now) const;

private:
    enum class Phase {
        Talking,
        Ending,  // what is queued is sent, then the connection ends as `ending_` says
        Mute     // the scanner neither speaks nor hears
    };
    enum class Ending { Reset, HalfClose, Vanish, Return };

    in_addr address() const;
    bool wantsHosts() const;
    void acceptHosts();
    void begin(HostConnection connection);
    void drop();
    void listenToHost(std::uint64_t now);
    void answerTickle(std::uint64_t now);
    void carryOut(TransferResult result);
    void endWith(Ending ending);
    void carryOut(FaultAction action);
    void finishEnding();
    bool fetch();
    void speak(std::uint64_t now);
    void say(const Piece& piece);
    void queue(const std::vector<Bytes>& frames);
    void queueSpoilt(const std::vector<Bytes>& frames, const Fault& fault);

    const Model& model_;
    Actor& scanner_;
    FaultScript& faults_;
    Journal& journal_;
    SetVisible setVisible_;
    std::optional<Responder> responder_;
    Descriptor listener_;
    bool isPlugged_ = true;

    std::optional<HostConnection> connection_;
    std::optional<CommandSplitter> commands_;
    std::optional<Framer> framer_;
    Phase phase_ = Phase::Talking;
    Ending ending_ = Ending::Reset;
    bool isTickled_ = false;
};

}  // namespace scansim
