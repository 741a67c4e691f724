// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "ControlChannel.h"
#include "NetworkCapture.h"
#include "Options.h"
#include "PrivateNetwork.h"
#include "SaneConfig.h"
#include "SimulatedDevice.h"
#include "UsbFs.h"

namespace scansim {

// Simulated scanners, the sandbox that shows them, and the command that runs in it.
class Simulation {
public:
    // Reads everything that is read from outside the sandbox. Throws InputError.
    explicit Simulation(const Options& options);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // The exit status. Throws SandboxError, std::runtime_error.
    int run();

    // Path of the model file that an option names. Throws InputError.
    static std::string modelPath(const std::string& name, const std::string& modelsFolder);
    static std::vector<std::string> modelNames(const std::string& modelsFolder);

private:
    void openLog();
    std::string openRecordFolder();
    void openCapture();
    void startNetworkCapture();
    unsigned nextFileNumber();
    void writeConfiguration(const std::map<std::string, std::string>& files) const;
    std::string modulesFolder() const;
    void setEnvironment() const;
    void assignAddress(Model& model, unsigned number) const;
    NetworkKind networkKind() const;
    void showDevices(int fuse);
    pid_t startCommand(const void* oldSignals) const;
    int loop(pid_t child, int signals);
    void writeCapture();
    bool handleSignals(pid_t child, int signals, int& status) const;
    int timeout();
    std::string control(const std::string& line);
    std::string controlDevice(const std::string& line);
    std::size_t complaintCount() const;

    Options options_;
    std::FILE* log_ = nullptr;
    int recordFd_ = -1;
    unsigned lastFileNumber_ = 1;
    SaneConfig saneConfig_;
    std::FILE* captureFile_ = nullptr;  // until somebody writes to it
    std::unique_ptr<UsbMonitor> usbMonitor_;
    std::unique_ptr<NetworkCapture> networkCapture_;
    std::vector<std::unique_ptr<SimulatedDevice>> devices_;
    std::unique_ptr<PrivateNetwork> network_;
    std::unique_ptr<UsbFs> fs_;
    std::unique_ptr<ControlChannel> control_;
};

}  // namespace scansim
