// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Options.h"

#include <functional>
#include <map>

#include "FaultScript.h"
#include "Text.h"

namespace scansim {

namespace {

// Parser of one command line. What is said before the first device goes for every device.
class Parser {
public:
    explicit Parser(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}

    Options parse()
    {
        while (next_ < arguments_.size() && !isCommand()) {
            parseOption(arguments_[next_++]);
        }
        options_.command.assign(arguments_.begin() + static_cast<long>(next_), arguments_.end());
        return options_;
    }

private:
    bool isCommand()
    {
        if (arguments_[next_] == "--") {
            ++next_;
            return true;
        }
        return arguments_[next_].rfind("--", 0) != 0;
    }

    std::string value(const std::string& option)
    {
        if (next_ >= arguments_.size()) {
            throw InputError(option + " needs a value");
        }
        return arguments_[next_++];
    }

    void parseOption(const std::string& option)
    {
        const std::map<std::string, bool Options::*> flags = {
            {"--help", &Options::wantsHelp},         {"--list-models", &Options::wantsModelList},
            {"--veth", &Options::hasLink},           {"--private-tmp", &Options::hasPrivateTmp},
            {"--all-cpus", &Options::mayUseAllCpus}, {"--tolerate", &Options::isTolerant}};
        const std::map<std::string, std::string Options::*> texts = {
            {"--models", &Options::modelsFolder}, {"--modules", &Options::modulesFolder},
            {"--config", &Options::configFolder}, {"--record", &Options::recordFolder},
            {"--log", &Options::logFile},         {"--control", &Options::controlLine},
            {"--capture", &Options::captureFile}};
        const auto flag = flags.find(option);
        const auto text = texts.find(option);
        if (flag != flags.end()) {
            options_.*(flag->second) = true;
        } else if (text != texts.end()) {
            options_.*(text->second) = value(option);
        } else if (option == "--backend") {
            options_.backends.push_back(value(option));
        } else {
            parseDeviceOption(option);
        }
    }

    void parseDeviceOption(const std::string& option)
    {
        if (option == "--usb") {
            addDevice(option, Transport::Usb);
        } else if (option == "--net") {
            addDevice(option, Transport::Network);
        } else if (option == "--set") {
            addSetting(ModelFile::parseSetting(value(option), option, "."));
        } else if (option == "--fault") {
            addSetting({"fault", value(option), option, "."});
        } else if (option == "--feature") {
            addFeature(value(option));
        } else {
            throw InputError("unknown option " + option + "; see --help");
        }
    }

    // "NAME,key=value,key=value"
    void addDevice(const std::string& option, Transport transport)
    {
        const std::vector<std::string> parts = split(value(option), ',');
        if (parts.empty() || parts[0].empty()) {
            throw InputError(option + " needs the name of a model");
        }
        DeviceOptions device = common_;
        device.transport = transport;
        device.model = parts[0];
        for (std::size_t i = 1; i < parts.size(); ++i) {
            device.settings.push_back(
                ModelFile::parseSetting(parts[i], option + " " + parts[0], "."));
        }
        options_.devices.push_back(device);
    }

    DeviceOptions& current()
    {
        return options_.devices.empty() ? common_ : options_.devices.back();
    }

    void addSetting(const ModelSetting& setting) { current().settings.push_back(setting); }

    void addFeature(const std::string& text)
    {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos) {
            throw InputError("--feature " + text + ": not of the form KEY=VALUE");
        }
        current().features.emplace_back(text.substr(0, equals), text.substr(equals + 1));
    }

    std::vector<std::string> arguments_;
    std::size_t next_ = 0;
    DeviceOptions common_;
    Options options_;
};

}  // namespace

Options Options::parse(const std::vector<std::string>& arguments)
{
    return Parser(arguments).parse();
}

std::string Options::help()
{
    return R"(Usage: scanner-sim [OPTIONS] {--usb|--net} MODEL [OPTIONS] ... -- COMMAND [ARGUMENTS]

Runs COMMAND where the only USB devices are simulated scanners, where the only network is that of
simulated scanners, and where SANE knows the backends for them. Needs no real scanner, and leaves
nothing behind. Example:

  scanner-sim --usb flatbed-326 --net adf-402,feeder.sheets=3 -- scanimage -L

Devices
  --usb MODEL[,KEY=VALUE]...   plug in a scanner: the name of a model (see --list-models) or the
                               path of a model file, with some of its keys changed
  --net MODEL[,KEY=VALUE]...   put a scanner on the network; keys only for such ones:
                                 ip mac frame-size segment-size segments second-host port
                                 host-name, and answer. with adapter-name id-string vid-pid
                                 quotes leave-out string records question pointers count
                                 delay-ms garbage foreign flood-ms
  --set KEY=VALUE              change a key of the model (for values with commas)
  --fault FAULT                let something go wrong, see below
  --feature KEY=VALUE          change a key in a copy of the scanner's feature file; without a
                               value the key is taken out
                               These three are about the device before them, or about all devices
                               if they stand before the first one.
Recording
  --record FOLDER              write each page that a scanner plays as FOLDER/devN-MODEL-NNN.pnm,
                               in the way the front end should see it
  --log FILE                   write a trace of the protocol (- for standard error)
  --capture FILE               write all transfers of the USB scanners, or all packets of the
                               network with its scanners, as a pcap file
Surroundings
  --models FOLDER              look for models here instead of the source tree
  --modules FOLDER             the backend's libraries, instead of the build tree's
  --config FOLDER              the backend's configuration files, instead of the build tree's
  --backend NAME               name this backend in dll.conf, instead of those of the vendors of
                               the devices; repeatable
  --veth                       keep the scanners of --net at the other end of a network link, in
                               a network namespace of their own
  --private-tmp                give COMMAND an empty /tmp of its own
  --all-cpus                   do not keep COMMAND and scanners on one CPU, where they talk fastest
Result
  --tolerate                   the scanners' complaints do not change the exit status
Otherwise
  --control LINE               inside a running simulation: send LINE to it, print the answer
  --list-models                list the models
  --help                       this text

The exit status is COMMAND's (128 + N if signal N ended it); 99 if a scanner has complained about
what it was sent; 77 if this machine or user cannot simulate devices; 2 for a wrong command line.

Control lines (COMMAND finds the socket for them in SCANNER_SIM_CONTROL)
  device N: unplug             device N: plug               device N: replug
  device N: open-port          device N: close-port
  device N: load-sheets K      device N: fault FAULT        device N: forget-faults
  device N: state?             complaints?                  forget-complaints

)" + FaultScript::help();
}

}  // namespace scansim
