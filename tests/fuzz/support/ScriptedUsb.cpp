// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScriptedUsb.h"

#include "Surroundings.h"

#include "ICommand.h"

#include <cerrno>

namespace {

constexpr std::chrono::seconds kTimeout{30};

}  // namespace

fuzz::ScriptedUsb::ScriptedUsb(const std::vector<FakeDevice>& devices, const Script& script,
                               bool isObedient)
    : usb_(devices), script_(script), isObedient_(isObedient)
{
    usb_.onBulkRead = [this] { play(); };
}

void fuzz::ScriptedUsb::play()
{
    usb_.calls.clear();
    if (!usb_.lastWritten.empty()) {
        command_ = Script::commandOf(usb_.lastWritten);
        isAnswerDue_ = isObedient_ && ICommand::isAnswered(command_);
        usb_.lastWritten.clear();
    }
    if (isAnswerDue_) {
        isAnswerDue_ = false;
        usb_.deliver(Script::goodReply(command_));
    } else {
        playScript();
    }
}

void fuzz::ScriptedUsb::playScript()
{
    Event event = script_.next(command_);
    while (event.kind == Event::cancel) {
        if (onCancel) {
            onCancel();
        }
        event = script_.next(command_);
    }
    switch (event.kind) {
    case Event::raw:
    case Event::message:
        usb_.deliver(event.bytes);
        break;
    case Event::failure:
        usb_.deliverResult(-EPIPE);
        break;
    case Event::end:
        usb_.unplugAll();
        usb_.deliverResult(-ENODEV);
        break;
    default:
        passTime(kTimeout);
        usb_.deliverResult(-ETIMEDOUT);
        break;
    }
}
