// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <set>

#include "Carrier.h"
#include "FaultScript.h"
#include "Journal.h"
#include "Model.h"
#include "UsbMonitor.h"
#include "UsbTransfers.h"
#include "Actor.h"

namespace scansim {

// One open device file: what its program has claimed, handed in and not yet fetched.
struct UsbClient {
    std::set<unsigned> claims;
    std::deque<Urb> pending;
    std::deque<Urb> completed;
    bool isGone = false;  // the device was unplugged under it
};

// A scanner on the bus, as the kernel's usbfs would show it. Operations return 0 or an errno.
class UsbDevice : public Carrier {
public:
    // All but `nextNumber`, which gives a fresh device file number, have to outlive the device.
    UsbDevice(const Model& model, Actor& scanner, FaultScript& faults, Journal& journal,
              std::function<unsigned()> nextNumber);

    const Model& model() const { return model_; }
    Actor& scanner() { return scanner_; }
    Journal& journal() { return journal_; }
    FaultScript& faults() { return faults_; }

    bool isPlugged() const override { return isPlugged_; }
    unsigned number() const { return number_; }
    void unplug() override;
    void plug() override;
    std::string place() const override { return "file=" + std::to_string(number_); }

    Bytes descriptors() const;

    // Records all transfers from now on; has to outlive the device.
    void setMonitor(UsbMonitor* monitor) { monitor_ = monitor; }

    int open(UsbClient& client, bool forWriting);
    void close(UsbClient& client);
    int claim(UsbClient& client, unsigned interface);
    int release(UsbClient& client, unsigned interface);
    int detachDriver(unsigned interface);
    int setConfiguration(unsigned value);
    int clearHalt(std::uint8_t endpoint);
    int reset();
    int control(const ControlRequest& request, Bytes& answer);
    int submit(UsbClient& client, Urb urb);
    int discard(UsbClient& client, std::uint64_t tag);

    // Moves what the scanner has ready into waiting transfers.
    void pump();

private:
    int answerControl(const ControlRequest& request, Bytes& answer);
    int carryOut(FaultEvent event);
    int carryOut(const std::optional<Fault>& fault);
    void vanish(TransferResult result);
    bool isHalted(std::uint8_t endpoint) const { return halted_.count(endpoint) > 0; }
    int string(std::uint8_t index, Bytes& answer);
    std::optional<unsigned> interfaceOf(std::uint8_t endpoint) const;
    std::uint8_t scannerEndpoint(bool isIn) const;
    bool isClaimedByOther(const UsbClient& client, unsigned interface) const;
    bool isAnyClaimed() const;
    int checkInterface(UsbClient& client, unsigned interface);
    void write(UsbClient& client, Urb urb);
    bool read(UsbClient& client);
    void complete(UsbClient& client, Urb urb, int status);

    const Model& model_;
    Actor& scanner_;
    FaultScript& faults_;
    Journal& journal_;
    std::function<unsigned()> nextNumber_;
    UsbMonitor* monitor_ = nullptr;
    bool isPlugged_ = false;
    unsigned number_ = 0;
    bool hasDriver_;
    std::set<std::uint8_t> halted_;
    std::set<UsbClient*> clients_;
};

}  // namespace scansim
