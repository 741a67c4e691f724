// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "Bytes.h"
#include "FaultScript.h"

namespace scansim {

// What became of a host's transfer.
enum class TransferResult {
    Done,
    Nothing,  // the device has nothing to say (now, or ever)
    Stall,
    Unplug,
    Replug,
    Reset,
    HalfClose,
    Short  // only a part of what the host sent was taken
};

// One transfer of the scanner, for carriers that cut and wrap what it says in their own way.
struct Piece {
    Bytes bytes;
    bool isImage = false;        // block headers and image data; else a reply or a record
    bool joinsOthers = false;    // image data that nothing sets apart from its neighbours
    std::optional<Fault> fault;  // one that the carrier has to carry out
};

// Who plays the scanner behind a carrier: commands in, replies and image data out.
class Actor {
public:
    virtual ~Actor() = default;

    // The host sends one whole command.
    virtual TransferResult write(const Bytes& bytes) = 0;

    // The host asks for up to `capacity` bytes; `out` gets what there is. A transfer ends where the
    // scanner ends it, so less than `capacity` may come while more waits.
    virtual TransferResult read(std::size_t capacity, Bytes& out) = 0;

    // After TransferResult::Short: how many bytes were taken.
    virtual std::size_t bytesTaken() const = 0;

    // Instead of read(): the next transfer as a whole.
    virtual TransferResult take(Piece& piece) = 0;

    // The host (re)starts the conversation: whatever was queued, locked or hung is forgotten.
    virtual void reset() = 0;

    // The host went away without a further word.
    virtual void hostLeft() = 0;

    // The simulation is over.
    virtual void finish() {}

    virtual void setNow(std::uint64_t milliseconds) = 0;

    // When something that waits for its time can be read.
    virtual std::optional<std::uint64_t> nextWake() const = 0;

    virtual void loadSheets(std::uint32_t count) = 0;
    virtual std::uint32_t sheets() const = 0;
    virtual unsigned pagesStarted() const = 0;
    virtual bool isLocked() const = 0;
};

}  // namespace scansim
