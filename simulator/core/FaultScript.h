// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Model.h"

namespace scansim {

// Moments of a device's life at which a fault can be asked for.
enum class FaultEvent {
    Connect,
    Tickle,
    Open,
    SetConfiguration,
    Claim,
    Detach,
    Release,
    Close,
    String,
    Command,
    Reply,
    Page,
    Marker,
    Block,
    Chunk,
    End
};

enum class FaultAction {
    Stall,
    Timeout,
    Unplug,
    Replug,
    Refuse,
    Busy,
    Held,
    Zero,
    Short,
    Delay,
    Stray,
    Garbage,
    Truncate,
    Status,
    Feeder,
    Flip,
    Jam,
    Cut,
    Keep,
    FlipBits,
    Shorten,
    Size,
    Oversize,
    Undersize,
    Lines,
    Pixels,
    Quality,
    Reset,
    HalfClose,
    Vanish,
    Silence,
    Magic,
    Length,
    Extra,
    Lose,
    ReadOnly,
    Ignore,
    RemovePaper,
    Code,
    Precede,
    DataLength,
    Sources,
    Resolutions,
    Omit,
    Twice,
    Late,
    Offset,
    Trim,
    Interleave,
    Record,
    Follow
};

struct Fault {
    FaultAction action;
    std::uint32_t argument;
};

// As it is written in a rule.
const char* faultActionName(FaultAction action);

// The rules "EVENT [COMMAND] [N|always]: ACTION [ARGUMENT]" of one device.
class FaultScript {
public:
    // Rules of other transports are refused if one is given.
    explicit FaultScript(std::optional<Transport> transport = std::nullopt) : transport_(transport)
    {
    }

    // Throws InputError for text that is not a rule, or an action that the event cannot have.
    void add(const std::string& text);

    // Nothing goes wrong any more.
    void forget() { rules_.clear(); }

    // An event happens; the answer is what goes wrong with it, if anything.
    std::optional<Fault> happen(FaultEvent event);
    std::optional<Fault> happen(FaultEvent event, CommandId command);

    // The grammar, for --help.
    static std::string help();

private:
    struct Rule {
        FaultEvent event;
        std::optional<CommandId> command;
        std::uint32_t occurrence;  // 0: always
        std::uint32_t seen;
        Fault fault;
    };

    std::optional<Fault> match(FaultEvent event, std::optional<CommandId> command);

    std::optional<Transport> transport_;
    std::vector<Rule> rules_;
};

}  // namespace scansim
