#include "SimulatedDevice.h"

#include <utility>

#include "Text.h"

namespace scansim {

namespace {

FaultScript makeFaults(const Model& model)
{
    FaultScript script;
    for (const std::string& rule : model.faults) {
        script.add(rule);
    }
    return script;
}

std::string deviceName(unsigned number, const Model& model)
{
    return "dev" + std::to_string(number) + "-" + model.name;
}

}  // namespace

SimulatedDevice::SimulatedDevice(unsigned number, Model model, const std::string& recordFolder,
                                 std::FILE* trace, std::function<unsigned()> nextFileNumber)
    : model_(std::move(model)),
      name_(deviceName(number, model_)),
      faults_(makeFaults(model_)),
      journal_(name_, trace),
      recorder_(recordFolder.empty() ? std::string() : recordFolder + "/" + name_ + "-"),
      scanner_(model_, faults_, journal_, recorder_),
      usb_(model_, scanner_, faults_, journal_, std::move(nextFileNumber))
{
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
        usb_.unplug();
    } else if (verb == "plug") {
        usb_.plug();
    } else if (verb == "replug") {
        usb_.unplug();
        usb_.plug();
    } else if (verb == "load-sheets") {
        scanner_.loadSheets(parseNumber(rest, 0, 1000000));
    } else if (verb == "fault") {
        faults_.add(rest);
    } else {
        throw InputError("unknown control '" + verb + "'");
    }
    return "ok";
}

std::string SimulatedDevice::state()
{
    return std::string(usb_.isPlugged() ? "plugged" : "unplugged") +
           " file=" + std::to_string(usb_.number()) +
           " locked=" + (scanner_.isLocked() ? "yes" : "no") +
           " sheets=" + std::to_string(scanner_.sheets()) +
           " pages=" + std::to_string(scanner_.pagesStarted()) +
           " complaints=" + std::to_string(journal_.complaints().size());
}

}  // namespace scansim
