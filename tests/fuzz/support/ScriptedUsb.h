// SPDX-License-Identifier: LGPL-2.1-or-later
// A USB scanner that follows a script.
#pragma once

#include "FakeUsb.h"
#include "Script.h"

#include <functional>

namespace fuzz {

class ScriptedUsb {
public:
    // isObedient: commands get their good replies by themselves, and the script has what comes
    // besides. Else replies, too, are what the script says.
    ScriptedUsb(const std::vector<FakeDevice>& devices, const Script& script, bool isObedient);

    // What the script's cancels do.
    std::function<void()> onCancel;

    const Script& script() const { return script_; }
    FakeUsb& usb() { return usb_; }

private:
    void play();
    void playScript();

    FakeUsb usb_;
    Script script_;
    bool isObedient_;
    bool isAnswerDue_ = false;
    int command_ = -1;
};

}  // namespace fuzz
