// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FrameFault.h"

#include <algorithm>

#include "Framer.h"

namespace scansim {

bool endsConnection(FaultAction action)
{
    return action == FaultAction::Reset || action == FaultAction::HalfClose ||
           action == FaultAction::Vanish || action == FaultAction::Silence;
}

SpoiltFrame spoil(Bytes frame, const Fault& fault)
{
    const std::size_t payload = frame.size() - kFrameHeaderSize;
    if (endsConnection(fault.action)) {
        frame.resize(std::min<std::size_t>(fault.argument, frame.size()));
        return {std::move(frame), true};
    }
    switch (fault.action) {
    case FaultAction::Magic:
        frame[0] = 'X';
        break;
    case FaultAction::Length:
        putBe32(frame.data() + 5, fault.argument);
        break;
    case FaultAction::Extra:
        frame.resize(frame.size() + fault.argument, 0xA5);
        break;
    case FaultAction::Lose:
        frame.resize(frame.size() - std::min<std::size_t>(fault.argument, payload));
        break;
    default:
        break;
    }
    return {std::move(frame), false};
}

}  // namespace scansim
