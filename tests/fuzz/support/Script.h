// SPDX-License-Identifier: LGPL-2.1-or-later
// What a scanner does, as the input says.
#pragma once

#include "Input.h"

namespace fuzz {

// One thing that happens at the scanner's end.
struct Event {
    enum Kind {
        over,     // of the script
        raw,      // bytes
        message,  // bytes, in a frame where the transport has some
        silence,  // for as long as size says
        failure,
        cancel,  // by the front end, meanwhile
        end,     // of the connection
    };
    Kind kind;
    Bytes bytes;
    unsigned size;
};

// An item of the script is a little-endian word, the kind of the item in its upper four bits
// and a size below, and bytes that belong to it, if any.
class Script {
public:
    // version: of the command protocol, for the headers of image blocks.
    Script(const Input& input, int version) : input_(input), version_(version) {}

    bool isOver() const { return input_.isEmpty(); }
    // command: the last one that the scanner got, for replies to it.
    Event next(int command);
    // The number of a command by its bytes, framed or not; -1: it is none.
    static int commandOf(const Bytes& bytes);
    // What a scanner without whims answers.
    static Bytes goodReply(int command);

    // True once something else than data has come.
    bool isDisturbed() const { return isDisturbed_; }

private:
    Event disturb(Event::Kind kind, unsigned size);
    Bytes marker();

    Input input_;
    int version_;
    bool isDisturbed_ = false;
};

}  // namespace fuzz
