// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Simulation.h"

#include <fcntl.h>
#include <sched.h>
#include <csignal>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "Folders.h"
#include "ModelFile.h"
#include "Sandbox.h"
#include "Text.h"

namespace scansim {

namespace {

namespace fs = std::filesystem;

constexpr int kComplained = 99;
constexpr unsigned kFirstHost = 10;        // the address of network scanner 1 ends in 11
constexpr unsigned kLastFileNumber = 127;  // of a USB bus
constexpr const char* kModelSuffix = ".model";

std::string orElse(const std::string& value, const std::string& otherwise)
{
    return value.empty() ? otherwise : value;
}

std::string modelsFolderOr(const std::string& given)
{
    if (!given.empty()) {
        return given;
    }
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "models";
    return fs::is_directory(kFolders.models, error) ? kFolders.models : beside.string();
}

std::uint64_t nowMs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

sigset_t handledSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) {
        sigaddset(&set, signal);
    }
    return set;
}

int exitStatus(int waitStatus)
{
    return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

// Every transfer makes the command and this process wait for each other. On one CPU that is a
// switch between two processes; on two it is a wake-up, which costs several times as much.
void stayOnThisCpu()
{
    const int cpu = sched_getcpu();
    cpu_set_t set;
    CPU_ZERO(&set);
    if (cpu >= 0) {
        CPU_SET(static_cast<unsigned>(cpu), &set);
        sched_setaffinity(0, sizeof set, &set);
    }
}

// Fetches every child that has ended; true if `child` is among them.
bool reapChildren(pid_t child, int& status)
{
    bool isOver = false;
    int waitStatus = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &waitStatus, WNOHANG)) > 0;) {
        if (pid == child) {
            status = exitStatus(waitStatus);
            isOver = true;
        }
    }
    return isOver;
}

}  // namespace

Simulation::Simulation(const Options& options)
    : options_(options), saneConfig_(orElse(options.configFolder, kFolders.config))
{
    openLog();
    const std::string recordFolder = openRecordFolder();
    for (const DeviceOptions& device : options_.devices) {
        Model model =
            ModelFile::load(modelPath(device.model, options_.modelsFolder), device.settings);
        saneConfig_.addDevice(model, device.features);
        const auto number = static_cast<unsigned>(devices_.size() + 1);
        if (device.transport == Transport::Network) {
            assignAddress(model, number);
        }
        devices_.push_back(std::make_unique<SimulatedDevice>(number, device.transport,
                                                             std::move(model), recordFolder, log_,
                                                             [this] { return nextFileNumber(); }));
    }
    if (!options_.backends.empty()) {
        saneConfig_.setBackends(options_.backends);
    }
    openCapture();
}

// As the kernel does it: counted up, and from the beginning again behind the last.
unsigned Simulation::nextFileNumber()
{
    const auto isInUse = [this] {
        return std::any_of(devices_.begin(), devices_.end(), [this](const auto& device) {
            const UsbDevice* usb = device->usb();
            return usb != nullptr && usb->isPlugged() && usb->number() == lastFileNumber_;
        });
    };
    for (unsigned tries = 0; tries == 0 || (isInUse() && tries < kLastFileNumber); ++tries) {
        lastFileNumber_ = lastFileNumber_ < kLastFileNumber ? lastFileNumber_ + 1 : 2;
    }
    return lastFileNumber_;
}

Simulation::~Simulation()
{
    fs_.reset();
    devices_.clear();
    if (log_ != nullptr && log_ != stderr) {
        std::fclose(log_);
    }
    if (recordFd_ >= 0) {
        close(recordFd_);
    }
}

void Simulation::openLog()
{
    if (options_.logFile == "-") {
        log_ = stderr;
    } else if (!options_.logFile.empty()) {
        log_ = std::fopen(options_.logFile.c_str(), "we");
        if (log_ == nullptr) {
            throw InputError(options_.logFile + ": " + std::strerror(errno));
        }
    }
}

// One file has packets of one kind: those of USB or those of the network.
void Simulation::openCapture()
{
    if (options_.captureFile.empty()) {
        return;
    }
    const bool isUsb = networkKind() == NetworkKind::Loopback;
    for (const auto& device : devices_) {
        if ((device->usb() != nullptr) != isUsb) {
            throw InputError("--capture records either USB or the network");
        }
    }
    captureFile_ = std::fopen(options_.captureFile.c_str(), "wbe");
    if (captureFile_ == nullptr) {
        throw InputError(options_.captureFile + ": " + std::strerror(errno));
    }
    if (isUsb) {
        usbMonitor_ = std::make_unique<UsbMonitor>(std::exchange(captureFile_, nullptr));
    }
    for (const auto& device : devices_) {
        if (isUsb) {
            device->usb()->setMonitor(usbMonitor_.get());
        }
    }
}

void Simulation::startNetworkCapture()
{
    if (captureFile_ != nullptr) {
        networkCapture_ = std::make_unique<NetworkCapture>(network_->scannersInterface(),
                                                           std::exchange(captureFile_, nullptr));
    }
}

void Simulation::writeCapture()
{
    if (networkCapture_) {
        networkCapture_->write();
    }
}

// The folder is kept by descriptor: inside the sandbox its name may mean another one.
std::string Simulation::openRecordFolder()
{
    if (options_.recordFolder.empty()) {
        return {};
    }
    std::error_code error;
    fs::create_directories(options_.recordFolder, error);
    recordFd_ = open(options_.recordFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (recordFd_ < 0) {
        throw InputError(options_.recordFolder + ": " + std::strerror(errno));
    }
    return "/proc/self/fd/" + std::to_string(recordFd_);
}

// What the options have left open; no two scanners may have the same address.
void Simulation::assignAddress(Model& model, unsigned number) const
{
    NetworkTraits& traits = model.network;
    if (traits.ip.empty()) {
        const unsigned host = number + kFirstHost;
        traits.ip = "10.83." + std::to_string(host / 256) + "." + std::to_string(host % 256);
    }
    if (traits.mac.empty()) {
        char mac[16];
        std::snprintf(mac, sizeof mac, "02000000%04X", number & 0xFFFF);
        traits.mac = mac;
    }
    if (traits.hostName.empty()) {
        traits.hostName = model.name;
    }
    for (const auto& other : devices_) {
        if (other->net() != nullptr && other->model().network.ip == traits.ip) {
            throw InputError(model.name + ": two scanners have the address " + traits.ip);
        }
    }
}

NetworkKind Simulation::networkKind() const
{
    if (options_.hasLink) {
        return NetworkKind::Link;
    }
    const bool hasNetwork = std::any_of(devices_.begin(), devices_.end(),
                                        [](const auto& each) { return each->net() != nullptr; });
    return hasNetwork ? NetworkKind::Scanners : NetworkKind::Loopback;
}

std::vector<std::string> Simulation::modelNames(const std::string& modelsFolder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(modelsFolderOr(modelsFolder), error)) {
        if (entry.path().extension() == kModelSuffix) {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string Simulation::modelPath(const std::string& name, const std::string& modelsFolder)
{
    if (name.find('/') != std::string::npos || fs::path(name).extension() == kModelSuffix) {
        return name;
    }
    std::string path = (fs::path(modelsFolderOr(modelsFolder)) / (name + kModelSuffix)).string();
    if (!fs::exists(path)) {
        throw InputError("no model '" + name + "' in " + modelsFolderOr(modelsFolder) +
                         "; see --list-models");
    }
    return path;
}

void Simulation::writeConfiguration(const std::map<std::string, std::string>& files) const
{
    for (const auto& [name, text] : files) {
        const std::string path = Sandbox::saneFolder() + "/" + name;
        std::ofstream file(path, std::ios::binary);
        file << text;
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + path);
        }
    }
}

std::string Simulation::modulesFolder() const
{
    return orElse(options_.modulesFolder, kFolders.modules);
}

void Simulation::setEnvironment() const
{
    const std::string modules = modulesFolder();
    if (!fs::is_directory(modules)) {
        std::fprintf(stderr,
                     "scanner-sim: no folder %s with backend libraries is to be seen inside\n",
                     modules.c_str());
    }
    const char* others = std::getenv("LD_LIBRARY_PATH");
    const std::string path =
        fs::absolute(modules).string() + (others != nullptr ? std::string(":") + others : "");
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    setenv("SANE_CONFIG_DIR", Sandbox::saneFolder().c_str(), 1);
    setenv("USB_DEVFS_PATH", Sandbox::usbFolder().c_str(), 1);
    setenv("SCANNER_SIM_CONTROL", (Sandbox::privateFolder() + "/control").c_str(), 1);
}

int Simulation::run()
{
    const std::map<std::string, std::string> files = saneConfig_.files(Sandbox::saneFolder());
    Sandbox sandbox;
    network_ = std::make_unique<PrivateNetwork>(networkKind());
    writeConfiguration(files);
    const int fuse = sandbox.mountUsbFs();
    if (options_.hasPrivateTmp) {
        const fs::path folder = fs::current_path();
        sandbox.makePrivateTmp({folder.string(), fs::absolute(modulesFolder()).string(),
                                fs::absolute(kFolders.models).string()});
        fs::current_path(folder);
    }
    showDevices(fuse);
    startNetworkCapture();
    control_ =
        std::make_unique<ControlChannel>(Sandbox::privateFolder() + "/control",
                                         [this](const std::string& line) { return control(line); });
    setEnvironment();
    if (!options_.mayUseAllCpus) {
        stayOnThisCpu();
    }

    // Orphans of the command stay below this process, whose memory it may reach into only so.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const sigset_t handled = handledSignals();
    sigset_t old;
    sigprocmask(SIG_BLOCK, &handled, &old);
    const int signals = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
    const int status = loop(startCommand(&old), signals);
    close(signals);
    for (const auto& device : devices_) {
        device->scanner().finish();
    }
    return complaintCount() > 0 && !options_.isTolerant ? kComplained : status;
}

void Simulation::showDevices(int fuse)
{
    std::vector<UsbDevice*> usbDevices;
    for (const auto& device : devices_) {
        if (device->usb() != nullptr) {
            usbDevices.push_back(device->usb());
        } else {
            device->net()->appear([this](in_addr address, bool isVisible) {
                isVisible ? network_->show(address) : network_->hide(address);
            });
        }
    }
    fs_ = std::make_unique<UsbFs>(usbDevices);
    fs_->serve(fuse);
}

pid_t Simulation::startCommand(const void* oldSignals) const
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    if (child > 0) {
        return child;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1);
    }
    sigprocmask(SIG_SETMASK, static_cast<const sigset_t*>(oldSignals), nullptr);
    if (!network_->enterCommandSide()) {
        std::perror("scanner-sim: cannot enter the command's network namespace");
        _exit(1);
    }
    std::vector<char*> arguments;
    for (const std::string& argument : options_.command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    std::fprintf(stderr, "scanner-sim: %s: %s\n", arguments[0], std::strerror(error));
    _exit(error == ENOENT ? 127 : 126);
}

int Simulation::loop(pid_t child, int signals)
{
    int status = 0;
    for (;;) {
        std::vector<pollfd> descriptors = {{fs_->fd(), POLLIN, 0}, {signals, POLLIN, 0}};
        control_->addTo(descriptors);
        const std::uint64_t before = nowMs();
        for (const auto& device : devices_) {
            if (device->net() != nullptr) {
                device->net()->addTo(descriptors, before);
            }
        }
        if (networkCapture_) {
            descriptors.push_back({networkCapture_->fd(), POLLIN, 0});
        }
        const int ready = poll(descriptors.data(), descriptors.size(), timeout());
        const std::uint64_t now = nowMs();
        writeCapture();
        for (const auto& device : devices_) {
            device->scanner().setNow(now);
            if (device->net() != nullptr) {
                device->net()->handle(descriptors, now);
            }
        }
        if (ready <= 0) {
            fs_->devicesChanged();
            continue;
        }
        if (descriptors[1].revents != 0 && handleSignals(child, signals, status)) {
            return status;
        }
        if (descriptors[0].revents != 0 && !fs_->handleRequest()) {
            throw std::runtime_error("the simulated usbfs was unmounted");
        }
        control_->handle(descriptors);
    }
}

// Until a delayed transfer is due; -1 if none is waiting.
int Simulation::timeout()
{
    const std::uint64_t now = nowMs();
    int timeout = -1;
    const auto add = [&](std::optional<std::uint64_t> wake) {
        if (wake) {
            const int left = static_cast<int>(*wake > now ? *wake - now : 0);
            timeout = timeout < 0 ? left : std::min(timeout, left);
        }
    };
    for (const auto& device : devices_) {
        add(device->scanner().nextWake());
        if (device->net() != nullptr) {
            add(device->net()->nextWake(now));
        }
    }
    return timeout;
}

// True when the command is over. A signal typed at the terminal has reached the command already.
bool Simulation::handleSignals(pid_t child, int signals, int& status) const
{
    signalfd_siginfo info;
    while (read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGCHLD) {
            if (reapChildren(child, status)) {
                return true;
            }
        } else if (info.ssi_code != SI_KERNEL) {
            kill(child, static_cast<int>(info.ssi_signo));
        }
    }
    return false;
}

std::string Simulation::control(const std::string& line)
{
    try {
        if (line == "complaints?") {
            std::string answer = std::to_string(complaintCount());
            for (const auto& device : devices_) {
                for (const std::string& complaint : device->journal().complaints()) {
                    answer += "\n" + complaint;
                }
            }
            return answer;
        }
        if (line == "forget-complaints") {
            for (const auto& device : devices_) {
                device->journal().forgetComplaints();
            }
            return "ok";
        }
        return controlDevice(line);
    } catch (const InputError& error) {
        return std::string("error: ") + error.what();
    }
}

// "device N: WHAT"
std::string Simulation::controlDevice(const std::string& line)
{
    const std::size_t colon = line.find(':');
    const std::vector<std::string> left = words(line.substr(0, colon));
    if (colon == std::string::npos || left.size() != 2 || left[0] != "device") {
        throw InputError("'" + line + "' is no control line; see --help");
    }
    const std::size_t number = parseNumber(left[1], 1, static_cast<std::uint32_t>(devices_.size()));
    std::string answer = devices_[number - 1]->control(trimmed(line.substr(colon + 1)));
    fs_->devicesChanged();
    return answer;
}

std::size_t Simulation::complaintCount() const
{
    std::size_t count = 0;
    for (const auto& device : devices_) {
        count += device->journal().complaints().size();
    }
    return count;
}

}  // namespace scansim
