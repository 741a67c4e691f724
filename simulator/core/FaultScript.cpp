// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FaultScript.h"

#include <algorithm>
#include <cerrno>

#include "Text.h"

namespace scansim {

namespace {

struct EventName {
    const char* name;
    FaultEvent event;
    std::vector<FaultAction> actions;
    std::optional<Transport> transport = std::nullopt;
};

struct ActionName {
    const char* name;
    FaultAction action;
    bool takesArgument;
    std::uint32_t byDefault;
    std::uint32_t highest = 0x7FFFFFFF;
    std::optional<Transport> transport = std::nullopt;
};

using A = FaultAction;

constexpr std::uint32_t kAnySize = 0x7FFFFFFF;
constexpr std::uint32_t kByte = 0xFF;

// What can happen to everything that the scanner says.
std::vector<FaultAction> transferActions(const std::vector<FaultAction>& more)
{
    std::vector<FaultAction> actions = {A::Stall,  A::Timeout,   A::Unplug, A::Replug,  A::Zero,
                                        A::Short,  A::Delay,     A::Stray,  A::Garbage, A::Truncate,
                                        A::Reset,  A::HalfClose, A::Vanish, A::Silence, A::Magic,
                                        A::Length, A::Extra,     A::Lose};
    actions.insert(actions.end(), more.begin(), more.end());
    return actions;
}

const std::vector<EventName>& events()
{
    constexpr Transport usb = Transport::Usb;
    constexpr Transport network = Transport::Network;
    static const std::vector<EventName> table = {
        {"open", FaultEvent::Open, {A::Refuse, A::ReadOnly, A::Unplug, A::Replug}, usb},
        {"set-configuration", FaultEvent::SetConfiguration, {A::Refuse, A::Unplug, A::Replug}, usb},
        {"claim", FaultEvent::Claim, {A::Busy, A::Held, A::Refuse, A::Unplug, A::Replug}, usb},
        {"detach", FaultEvent::Detach, {A::Refuse, A::Unplug, A::Replug}, usb},
        {"release", FaultEvent::Release, {A::Refuse, A::Unplug, A::Replug}, usb},
        {"close", FaultEvent::Close, {A::Unplug, A::Replug}, usb},
        {"string", FaultEvent::String, {A::Stall, A::Timeout, A::Unplug, A::Replug}, usb},
        {"connect",
         FaultEvent::Connect,
         {A::Timeout, A::Unplug, A::Replug, A::Reset, A::HalfClose},
         network},
        {"tickle",
         FaultEvent::Tickle,
         {A::Timeout, A::Unplug, A::Replug, A::Delay, A::Garbage, A::Truncate, A::Reset,
          A::HalfClose, A::Vanish, A::Silence, A::Magic, A::Length, A::Extra, A::Lose},
         network},
        {"command",
         FaultEvent::Command,
         {A::Stall, A::Timeout, A::Unplug, A::Replug, A::Reset, A::HalfClose, A::Short, A::Ignore,
          A::RemovePaper}},
        {"reply", FaultEvent::Reply,
         transferActions({A::Status, A::Feeder, A::Flip, A::Code, A::Precede, A::DataLength,
                          A::Sources, A::Resolutions, A::Omit, A::Twice})},
        {"page", FaultEvent::Page, {A::Cut, A::Keep, A::Lines}},
        {"marker", FaultEvent::Marker,
         transferActions({A::Jam, A::Code, A::DataLength, A::Omit, A::Twice, A::Late, A::Pixels,
                          A::Lines, A::Offset, A::Trim, A::Interleave})},
        {"block", FaultEvent::Block,
         transferActions({A::Jam, A::Code, A::DataLength, A::Omit, A::Twice, A::Record})},
        {"chunk",
         FaultEvent::Chunk,
         {A::FlipBits, A::Truncate, A::Shorten, A::Size, A::Oversize, A::Undersize, A::Lines,
          A::Pixels, A::Quality}},
        {"end", FaultEvent::End,
         transferActions({A::Jam, A::Code, A::DataLength, A::Omit, A::Twice, A::Follow})},
    };
    return table;
}

const std::vector<ActionName>& actions()
{
    constexpr Transport usb = Transport::Usb;
    constexpr Transport network = Transport::Network;
    static const std::vector<ActionName> table = {
        {"stall", A::Stall, false, 0, 0, usb},
        {"timeout", A::Timeout, false, 0},
        {"unplug", A::Unplug, false, 0},
        {"replug", A::Replug, false, 0},
        {"refuse", A::Refuse, true, EPERM},
        {"busy", A::Busy, false, 0},
        {"held", A::Held, false, 0},
        {"zero", A::Zero, false, 0},
        {"short", A::Short, true, 1},
        {"delay", A::Delay, true, 1000},
        {"stray", A::Stray, true, 8},
        {"garbage", A::Garbage, true, 8},
        {"truncate", A::Truncate, true, 5},
        {"status", A::Status, true, 136},
        {"feeder", A::Feeder, true, 0},
        {"flip", A::Flip, false, 0},
        {"jam", A::Jam, false, 0},
        {"cut", A::Cut, true, 1},
        {"keep", A::Keep, true, 0},
        {"flip-bits", A::FlipBits, true, 1},
        {"shorten", A::Shorten, true, 3},
        {"size", A::Size, true, 0, 0xFFFFFFFF},
        {"oversize", A::Oversize, true, 1},
        {"undersize", A::Undersize, true, 1},
        {"lines", A::Lines, true, 0, 0xFFFFFFFF},
        {"pixels", A::Pixels, true, 0, 0xFFFFFFFF},
        {"quality", A::Quality, true, 0, 0xFFFFFFFF},
        {"reset", A::Reset, true, 0, kAnySize, network},
        {"half-close", A::HalfClose, true, 0, kAnySize, network},
        {"vanish", A::Vanish, true, 0, kAnySize, network},
        {"silence", A::Silence, true, 0, kAnySize, network},
        {"magic", A::Magic, false, 0, 0, network},
        {"length", A::Length, true, 0, 0xFFFFFFFF, network},
        {"extra", A::Extra, true, 1, kAnySize, network},
        {"lose", A::Lose, true, 1, kAnySize, network},
        {"read-only", A::ReadOnly, false, 0},
        {"ignore", A::Ignore, false, 0},
        {"remove-paper", A::RemovePaper, false, 0},
        {"code", A::Code, true, 0, kByte},
        {"precede", A::Precede, true, 0, kByte},
        {"data-length", A::DataLength, true, 0, 0xFFFF},
        {"sources", A::Sources, true, 255, kByte},
        {"resolutions", A::Resolutions, true, 255, kByte},
        {"omit", A::Omit, false, 0},
        {"twice", A::Twice, false, 0},
        {"late", A::Late, true, 1},
        {"offset", A::Offset, true, 0, 0xFFFFFFFF},
        {"trim", A::Trim, true, 0, 0xFFFFFFFF},
        {"interleave", A::Interleave, true, 1, kByte},
        {"record", A::Record, true, 0, kByte},
        {"follow", A::Follow, true, 1000, 0xFF00},
    };
    return table;
}

const EventName& findEvent(const std::string& name)
{
    for (const EventName& entry : events()) {
        if (name == entry.name) {
            return entry;
        }
    }
    throw InputError("unknown event '" + name + "'");
}

const ActionName& findAction(const std::string& name)
{
    for (const ActionName& entry : actions()) {
        if (name == entry.name) {
            return entry;
        }
    }
    throw InputError("unknown action '" + name + "'");
}

std::optional<CommandId> findCommand(const std::string& name)
{
    for (std::size_t id = 0; id < kCommandCount; ++id) {
        if (name == commandName(static_cast<CommandId>(id)) || name == std::to_string(id)) {
            return static_cast<CommandId>(id);
        }
    }
    return std::nullopt;
}

bool isAboutCommand(FaultEvent event)
{
    return event == FaultEvent::Command || event == FaultEvent::Reply;
}

void checkTransport(const std::string& name, std::optional<Transport> named,
                    std::optional<Transport> ours)
{
    if (named && ours && named != ours) {
        throw InputError("'" + name + "' is about scanners on " +
                         (named == Transport::Usb ? "USB" : "the network"));
    }
}

Fault parseFault(const EventName& event, const std::vector<std::string>& fields,
                 std::optional<Transport> transport)
{
    if (fields.empty()) {
        throw InputError("no action after ':'");
    }
    const ActionName& name = findAction(fields[0]);
    if (std::find(event.actions.begin(), event.actions.end(), name.action) == event.actions.end()) {
        throw InputError(std::string("'") + event.name + "' cannot have the action '" + name.name +
                         "'");
    }
    checkTransport(name.name, name.transport, transport);
    if (fields.size() > (name.takesArgument ? 2U : 1U)) {
        throw InputError("too many words after '" + fields[0] + "'");
    }
    return {name.action,
            fields.size() == 2 ? parseNumber(fields[1], 0, name.highest) : name.byDefault};
}

std::uint32_t parseOccurrence(const std::vector<std::string>& fields, std::size_t index)
{
    if (index + 1 < fields.size()) {
        throw InputError("too many words before ':'");
    }
    if (index >= fields.size()) {
        return 1;
    }
    return fields[index] == "always" ? 0 : parseNumber(fields[index], 1, 0x7FFFFFFF);
}

}  // namespace

const char* faultActionName(FaultAction action)
{
    const auto found =
        std::find_if(actions().begin(), actions().end(),
                     [action](const ActionName& entry) { return entry.action == action; });
    return found->name;
}

void FaultScript::add(const std::string& text)
{
    try {
        const std::size_t colon = text.find(':');
        const std::vector<std::string> left = words(text.substr(0, colon));
        if (colon == std::string::npos || left.empty()) {
            throw InputError("not of the form EVENT: ACTION");
        }
        const EventName& event = findEvent(left[0]);
        checkTransport(left[0], event.transport, transport_);
        std::size_t next = 1;
        std::optional<CommandId> command;
        if (isAboutCommand(event.event)) {
            command = left.size() > 1 ? findCommand(left[next++]) : std::nullopt;
            if (!command) {
                throw InputError(std::string("'") + event.name + "' needs the name of a command");
            }
        }
        rules_.push_back({event.event, command, parseOccurrence(left, next), 0,
                          parseFault(event, words(text.substr(colon + 1)), transport_)});
    } catch (const InputError& error) {
        throw InputError("fault '" + text + "': " + error.what());
    }
}

std::optional<Fault> FaultScript::happen(FaultEvent event)
{
    return match(event, std::nullopt);
}

std::optional<Fault> FaultScript::happen(FaultEvent event, CommandId command)
{
    return match(event, command);
}

std::optional<Fault> FaultScript::match(FaultEvent event, std::optional<CommandId> command)
{
    std::optional<Fault> fault;
    for (Rule& rule : rules_) {
        if (rule.event == event && rule.command == command) {
            ++rule.seen;
            if (!fault && (rule.occurrence == 0 || rule.occurrence == rule.seen)) {
                fault = rule.fault;
            }
        }
    }
    return fault;
}

std::string FaultScript::help()
{
    return R"(A fault is "EVENT [N|always]: ACTION [NUMBER]"; N counts from 1, the default.

Events                            Actions
  on USB
  open                            refuse [ERRNO]  read-only  unplug  replug
  set-configuration, release      refuse [ERRNO]  unplug  replug
  detach                          refuse [ERRNO]  unplug  replug
  claim                           busy  held  refuse [ERRNO]  unplug  replug
  close                           unplug  replug
  string                          stall  timeout  unplug  replug
  on the network
  connect                         timeout  unplug  replug  reset  half-close
  tickle (the answer to it)       timeout  unplug  replug  delay MS  garbage N  truncate N
                                  reset N  half-close N  vanish N  silence N
                                  magic  length N  extra N  lose N
  on both
  command NAME                    stall  timeout  unplug  replug  reset  half-close
                                  ignore  short N  remove-paper
  reply NAME, marker, block, end  stall  timeout  unplug  replug  zero  short N  delay MS
                                  stray N  garbage N  truncate N  omit  twice
                                  code N  data-length N
                                  reset N  half-close N  vanish N  silence N
                                  magic  length N  extra N  lose N
    reply, too                    status N  feeder N  flip  precede N
                                  sources N  resolutions N
    marker, too                   jam  late N  pixels N  lines N  offset N  trim N
                                  interleave N
    block, too                    jam  record N
    end, too                      jam  follow N
  page                            cut N  keep N  lines N
  chunk                           flip-bits N  truncate N  shorten N  size N  oversize N
                                  undersize N  lines N  pixels N  quality N
NAME: cancel feeder-status properties lock start unlock wake

  stall     the transfer fails; the endpoint stays halted until the device is configured anew;
            only on USB
  timeout   this and every later transfer is never answered until the device is configured anew,
            or until the next connection
  unplug    the device disappears; on the network without a word, its connection just ends
  replug    the device disappears, and comes back at once under another file number; on the
            network it knows nothing of the connection any more
  refuse    the call fails with ERRNO (1, not permitted, if none is given)
  read-only the device file can only be opened for reading (EACCES)
  busy      a kernel driver holds the interface until it is detached
  held      the interface is busy, detached or not
  zero      a transfer (frame) of no bytes comes first
  short     the transfer (frame) ends after N bytes (1); the rest follows as one of its own
  delay     it comes MS milliseconds late (1000)
  stray     N bytes of garbage (8) come first
  garbage   N bytes of garbage (8) come instead
  truncate  only the first N bytes (5) come
  omit      it does not come; what follows does
  twice     it comes twice
  ignore    the command is taken, and nothing comes of it
  short     (of a command) only N bytes (1) of it are taken, and nothing comes of it
  remove-paper
            the feeder is empty from now on, before the command is carried out
  code      the code of the reply or the record is N (0)
  precede   a reply with the code N (0) and nothing else comes first
  data-length
            its own length field says N (0)
  sources   the properties' number of sources is N (255)
  resolutions
            the number of resolutions of the first source is N (255)
  late      the marker comes after N blocks (1), if the page has so many
  pixels    the width in the marker is N (0)
  lines     the height in the marker is N (0)
  offset    the horizontal offset in the marker is N (0)
  trim      the trim in the marker is N (0)
  interleave
            the interleave flag in the marker is N (1)
  record    a record of its own with the code N (0) comes first
  follow    a block of N bytes of garbage (1000) follows
  status    the reply has status N (136)
  feeder    the reply has feeder status N (0)
  flip      the reply has the flip flag set
  jam       a paper jam is reported instead, and the page is over
  cut       the page ends N bytes (1) early
  keep      the page ends after N bytes (0)
  lines     (of a page) the page has N lines (0), whatever is asked for

Only on the network, about the frame (or first frame) of what is sent:
  reset       N of its bytes (0) are sent, then the connection is reset
  half-close  N of its bytes (0) are sent, then the scanner closes its end and still listens
  vanish      N of its bytes (0) are sent, then the scanner disappears without a word
  silence     N of its bytes (0) are sent, and nothing any more on this connection
  magic       its header does not begin with the magic bytes
  length      the length in its header is N (0)
  extra       N bytes of garbage (1) follow the frame
  lose        its last N bytes (1) are missing
N of more than the frame has means all of it.

Chunks are those of compressed pages, header included; they are counted on from page to page.
  flip-bits N bits (1) behind the header are wrong, evenly spread
  shorten   it ends N bytes (3) early, and its size field says so
  size      its size field says N (0)
  oversize  its size field says N bytes (1) more than it has
  undersize its size field says N bytes (1) less than it has
  lines     its lines field says N (0)
  pixels    its pixels field says N (0)
  quality   its quality field says N (0)
)";
}

}  // namespace scansim
