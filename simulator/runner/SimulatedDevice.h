// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "FaultScript.h"
#include "Journal.h"
#include "Model.h"
#include "NetDevice.h"
#include "PageRecorder.h"
#include "Actor.h"
#include "UsbDevice.h"

namespace scansim {

// One scanner of the simulation with everything that belongs to it.
class SimulatedDevice {
public:
    // `number` counts from 1. Throws InputError.
    SimulatedDevice(unsigned number, Transport transport, Model model,
                    const std::string& recordFolder, std::FILE* trace,
                    std::function<unsigned()> nextFileNumber);

    const Model& model() const { return model_; }
    // The one that connects the scanner; the other is null.
    UsbDevice* usb() { return usb_.get(); }
    NetDevice* net() { return net_.get(); }
    Actor& scanner() { return *scanner_; }
    Journal& journal() { return journal_; }

    // Carries out what follows "device N: " in a control line; the answer is a line of text.
    std::string control(const std::string& line);

private:
    std::string state();
    Carrier& carrier();
    NetDevice& netDevice();

    Model model_;
    std::string name_;
    FaultScript faults_;
    Journal journal_;
    PageRecorder recorder_;
    std::unique_ptr<Actor> scanner_;
    std::unique_ptr<UsbDevice> usb_;
    std::unique_ptr<NetDevice> net_;
};

}  // namespace scansim
