// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbDevice.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "UsbDescriptors.h"

namespace scansim {

namespace {

constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kGetConfiguration = 8;
constexpr unsigned kDeviceDescriptorType = 1;
constexpr unsigned kConfigurationDescriptorType = 2;
constexpr unsigned kStringDescriptorType = 3;
constexpr std::size_t kDeviceDescriptorSize = 18;

bool isIn(std::uint8_t endpoint)
{
    return (endpoint & 0x80) != 0;
}

}  // namespace

UsbDevice::UsbDevice(const Model& model, Actor& scanner, FaultScript& faults, Journal& journal,
                     std::function<unsigned()> nextNumber)
    : model_(model),
      scanner_(scanner),
      faults_(faults),
      journal_(journal),
      nextNumber_(std::move(nextNumber)),
      hasDriver_(model.hasKernelDriver)
{
    UsbDevice::plug();
}

void UsbDevice::plug()
{
    if (!isPlugged_) {
        isPlugged_ = true;
        number_ = nextNumber_();
        hasDriver_ = model_.hasKernelDriver;
        halted_.clear();
        scanner_.reset();
        journal_.trace("plugged in as device " + std::to_string(number_));
    }
}

void UsbDevice::unplug()
{
    isPlugged_ = false;
    journal_.trace("unplugged");
    for (UsbClient* client : clients_) {
        while (!client->pending.empty()) {
            Urb urb = std::move(client->pending.front());
            client->pending.pop_front();
            complete(*client, std::move(urb), -ENODEV);
        }
        client->claims.clear();
        client->isGone = true;
    }
    clients_.clear();
}

Bytes UsbDevice::descriptors() const
{
    return usbDescriptors(model_);
}

int UsbDevice::carryOut(FaultEvent event)
{
    return carryOut(faults_.happen(event));
}

// The errno of a fault in a call; 0 if the call goes on.
int UsbDevice::carryOut(const std::optional<Fault>& fault)
{
    if (!fault) {
        return 0;
    }
    switch (fault->action) {
    case FaultAction::Refuse:
        return static_cast<int>(fault->argument);
    case FaultAction::Busy:
        hasDriver_ = true;
        return 0;
    case FaultAction::Held:
        return EBUSY;
    case FaultAction::Stall:
        return EPIPE;
    case FaultAction::Timeout:
        return ETIMEDOUT;
    default:
        unplug();
        if (fault->action == FaultAction::Replug) {
            plug();
        }
        return ENODEV;
    }
}

int UsbDevice::open(UsbClient& client, bool forWriting)
{
    if (forWriting && model_.isReadOnly) {
        return EACCES;
    }
    const std::optional<Fault> fault = faults_.happen(FaultEvent::Open);
    if (fault && fault->action == FaultAction::ReadOnly) {
        if (forWriting) {
            return EACCES;
        }
    } else if (const int error = carryOut(fault)) {
        return error;
    }
    clients_.insert(&client);
    return 0;
}

void UsbDevice::close(UsbClient& client)
{
    while (!client.claims.empty() && !client.isGone) {
        client.claims.erase(client.claims.begin());
        scanner_.hostLeft();
    }
    clients_.erase(&client);
    carryOut(FaultEvent::Close);
}

bool UsbDevice::isClaimedByOther(const UsbClient& client, unsigned interface) const
{
    return std::any_of(clients_.begin(), clients_.end(), [&](const UsbClient* other) {
        return other != &client && other->claims.count(interface) > 0;
    });
}

bool UsbDevice::isAnyClaimed() const
{
    return std::any_of(clients_.begin(), clients_.end(),
                       [](const UsbClient* client) { return !client->claims.empty(); });
}

int UsbDevice::claim(UsbClient& client, unsigned interface)
{
    if (interface >= model_.interfaces.size()) {
        return ENOENT;
    }
    if (const int error = carryOut(FaultEvent::Claim)) {
        return error;
    }
    if (hasDriver_ || isClaimedByOther(client, interface)) {
        return EBUSY;
    }
    client.claims.insert(interface);
    return 0;
}

int UsbDevice::release(UsbClient& client, unsigned interface)
{
    if (const int error = carryOut(FaultEvent::Release)) {
        return error;
    }
    if (client.claims.erase(interface) == 0) {
        return EINVAL;
    }
    if (interface == model_.scannerInterface) {
        scanner_.hostLeft();
    }
    return 0;
}

int UsbDevice::detachDriver(unsigned interface)
{
    if (interface >= model_.interfaces.size()) {
        return EINVAL;
    }
    if (const int error = carryOut(FaultEvent::Detach)) {
        return error;
    }
    if (!hasDriver_) {
        return ENODATA;
    }
    hasDriver_ = false;
    return 0;
}

int UsbDevice::setConfiguration(unsigned value)
{
    if (const int error = carryOut(FaultEvent::SetConfiguration)) {
        return error;
    }
    if (hasDriver_ || isAnyClaimed()) {
        return EBUSY;
    }
    if (value != kConfigurationValue) {
        return EINVAL;
    }
    halted_.clear();
    scanner_.reset();
    return 0;
}

int UsbDevice::clearHalt(std::uint8_t endpoint)
{
    halted_.erase(endpoint);
    return interfaceOf(endpoint) ? 0 : EINVAL;
}

int UsbDevice::reset()
{
    halted_.clear();
    scanner_.reset();
    return 0;
}

int UsbDevice::string(std::uint8_t index, Bytes& answer)
{
    if (index == 0) {
        answer = languageDescriptor();
        return 0;
    }
    if (const int error = carryOut(FaultEvent::String)) {
        return error;
    }
    const UsbString& string = index == kVendorStringIndex ? model_.vendor : model_.product;
    if (index > kProductStringIndex || string.kind != UsbString::Kind::Text) {
        return EPIPE;
    }
    answer = stringDescriptor(string.text);
    return 0;
}

int UsbDevice::control(const ControlRequest& request, Bytes& answer)
{
    const int error = answerControl(request, answer);
    if (monitor_ != nullptr) {
        monitor_->control(number_, request, answer, error);
    }
    return error;
}

int UsbDevice::answerControl(const ControlRequest& request, Bytes& answer)
{
    if (request.requestType != 0x80) {
        return EPIPE;
    }
    if (request.request == kGetConfiguration) {
        answer = {kConfigurationValue};
        return 0;
    }
    if (request.request != kGetDescriptor) {
        return EPIPE;
    }
    const Bytes all = descriptors();
    switch (request.value >> 8) {
    case kDeviceDescriptorType:
        answer.assign(all.begin(), all.begin() + kDeviceDescriptorSize);
        return 0;
    case kConfigurationDescriptorType:
        answer.assign(all.begin() + kDeviceDescriptorSize, all.end());
        return 0;
    case kStringDescriptorType:
        return string(static_cast<std::uint8_t>(request.value & 0xFF), answer);
    default:
        return EPIPE;
    }
}

std::optional<unsigned> UsbDevice::interfaceOf(std::uint8_t endpoint) const
{
    for (std::size_t i = 0; i < model_.interfaces.size(); ++i) {
        const Bytes& endpoints = model_.interfaces[i].endpoints;
        if (std::find(endpoints.begin(), endpoints.end(), endpoint) != endpoints.end()) {
            return static_cast<unsigned>(i);
        }
    }
    return std::nullopt;
}

// The last endpoint of each direction is the one that the scanner listens and speaks on.
std::uint8_t UsbDevice::scannerEndpoint(bool in) const
{
    const Bytes& endpoints = model_.interfaces[model_.scannerInterface].endpoints;
    return *std::find_if(endpoints.rbegin(), endpoints.rend(),
                         [in](std::uint8_t endpoint) { return isIn(endpoint) == in; });
}

// As the kernel does, lets a transfer on an unclaimed interface claim it, but not in silence.
int UsbDevice::checkInterface(UsbClient& client, unsigned interface)
{
    if (client.claims.count(interface) > 0) {
        return 0;
    }
    journal_.complain("a transfer on interface " + std::to_string(interface) +
                      ", which is not claimed");
    return claim(client, interface);
}

int UsbDevice::submit(UsbClient& client, Urb urb)
{
    const std::optional<unsigned> interface = interfaceOf(urb.endpoint);
    if (!interface) {
        return ENOENT;
    }
    if (const int error = checkInterface(client, *interface)) {
        return error;
    }
    if (monitor_ != nullptr) {
        monitor_->submitted(number_, urb);
    }
    if (isHalted(urb.endpoint)) {
        complete(client, std::move(urb), -EPIPE);
    } else if (urb.endpoint != scannerEndpoint(isIn(urb.endpoint))) {
        journal_.complain("a transfer on endpoint " + std::to_string(urb.endpoint) +
                          ", where no scanner is");
        client.pending.push_back(std::move(urb));
    } else if (isIn(urb.endpoint)) {
        client.pending.push_back(std::move(urb));
        pump();
    } else {
        write(client, std::move(urb));
        pump();
    }
    return 0;
}

void UsbDevice::complete(UsbClient& client, Urb urb, int status)
{
    urb.status = status;
    if (monitor_ != nullptr) {
        monitor_->completed(number_, urb);
    }
    client.completed.push_back(std::move(urb));
}

void UsbDevice::write(UsbClient& client, Urb urb)
{
    const TransferResult result = scanner_.write(urb.data);
    if (result == TransferResult::Done) {
        urb.actual = urb.data.size();
        complete(client, std::move(urb), 0);
    } else if (result == TransferResult::Stall) {
        halted_.insert(urb.endpoint);
        complete(client, std::move(urb), -EPIPE);
    } else if (result == TransferResult::Short) {
        urb.actual = scanner_.bytesTaken();
        complete(client, std::move(urb), 0);
    } else {
        client.pending.push_back(std::move(urb));
        vanish(result);
    }
}

// The device goes away in the middle of a transfer; those that wait fail.
void UsbDevice::vanish(TransferResult result)
{
    if (result == TransferResult::Unplug || result == TransferResult::Replug) {
        unplug();
    }
    if (result == TransferResult::Replug) {
        plug();
    }
}

void UsbDevice::pump()
{
    const std::set<UsbClient*> clients = clients_;
    for (UsbClient* client : clients) {
        while (isPlugged_ && !client->isGone && read(*client)) {
        }
    }
}

// Serves the client's oldest waiting IN transfer; false if there is none, or nothing for it.
bool UsbDevice::read(UsbClient& client)
{
    const std::uint8_t endpoint = scannerEndpoint(true);
    const auto waiting =
        std::find_if(client.pending.begin(), client.pending.end(),
                     [endpoint](const Urb& urb) { return urb.endpoint == endpoint; });
    if (waiting == client.pending.end()) {
        return false;
    }
    const TransferResult result = scanner_.read(waiting->length, waiting->data);
    if (result == TransferResult::Unplug || result == TransferResult::Replug) {
        vanish(result);
        return false;
    }
    if (result == TransferResult::Nothing) {
        return false;
    }
    Urb urb = std::move(*waiting);
    client.pending.erase(waiting);
    urb.actual = urb.data.size();
    if (result == TransferResult::Stall) {
        halted_.insert(endpoint);
    }
    complete(client, std::move(urb), result == TransferResult::Stall ? -EPIPE : 0);
    return result == TransferResult::Done;
}

int UsbDevice::discard(UsbClient& client, std::uint64_t tag)
{
    const auto found = std::find_if(client.pending.begin(), client.pending.end(),
                                    [tag](const Urb& urb) { return urb.tag == tag; });
    if (found == client.pending.end()) {
        return EINVAL;
    }
    Urb urb = std::move(*found);
    client.pending.erase(found);
    complete(client, std::move(urb), -ENOENT);
    return 0;
}

}  // namespace scansim
