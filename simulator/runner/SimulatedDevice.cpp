// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SimulatedDevice.h"

#include <utility>

#include "Replay.h"
#include "Scanner.h"
#include "Text.h"

namespace scansim {

namespace {

FaultScript makeFaults(const Model& model, Transport transport)
{
    FaultScript script(transport);
    for (const std::string& rule : model.faults) {
        script.add(rule);
    }
    return script;
}

std::unique_ptr<Actor> makeActor(const Model& model, FaultScript& faults, Journal& journal,
                                 PageRecorder& recorder)
{
    if (model.replay.empty()) {
        return std::make_unique<Scanner>(model, faults, journal, recorder);
    }
    return std::make_unique<Replay>(model, journal);
}

std::string deviceName(unsigned number, const Model& model)
{
    return "dev" + std::to_string(number) + "-" + model.name;
}

}  // namespace

SimulatedDevice::SimulatedDevice(unsigned number, Transport transport, Model model,
                                 const std::string& recordFolder, std::FILE* trace,
                                 std::function<unsigned()> nextFileNumber)
    : model_(std::move(model)),
      name_(deviceName(number, model_)),
      faults_(makeFaults(model_, transport)),
      journal_(name_, trace),
      recorder_(recordFolder.empty() ? std::string() : recordFolder + "/" + name_ + "-"),
      scanner_(makeActor(model_, faults_, journal_, recorder_))
{
    if (transport == Transport::Usb) {
        usb_ = std::make_unique<UsbDevice>(model_, *scanner_, faults_, journal_,
                                           std::move(nextFileNumber));
    } else {
        net_ = std::make_unique<NetDevice>(model_, *scanner_, faults_, journal_);
    }
}

Carrier& SimulatedDevice::carrier()
{
    if (usb_) {
        return *usb_;
    }
    return *net_;
}

NetDevice& SimulatedDevice::netDevice()
{
    if (!net_) {
        throw InputError("a scanner on USB has no port");
    }
    return *net_;
}

std::string SimulatedDevice::control(const std::string& line)
{
    const std::size_t blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string rest =
        blank == std::string::npos ? std::string() : trimmed(line.substr(blank));
    if (verb == "state?") {
        return state();
    }
    if (verb == "unplug") {
        carrier().unplug();
    } else if (verb == "plug") {
        carrier().plug();
    } else if (verb == "replug") {
        carrier().unplug();
        carrier().plug();
    } else if (verb == "open-port" || verb == "close-port") {
        netDevice().setPortOpen(verb == "open-port");
    } else if (verb == "load-sheets") {
        scanner_->loadSheets(parseNumber(rest, 0, 1000000));
    } else if (verb == "fault") {
        faults_.add(rest);
    } else if (verb == "forget-faults") {
        faults_.forget();
    } else {
        throw InputError("unknown control '" + verb + "'");
    }
    return "ok";
}

std::string SimulatedDevice::state()
{
    return std::string(carrier().isPlugged() ? "plugged " : "unplugged ") + carrier().place() +
           " locked=" + (scanner_->isLocked() ? "yes" : "no") +
           " sheets=" + std::to_string(scanner_->sheets()) +
           " pages=" + std::to_string(scanner_->pagesStarted()) +
           " complaints=" + std::to_string(journal_.complaints().size());
}

}  // namespace scansim
