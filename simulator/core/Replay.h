// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <iosfwd>
#include <vector>

#include "Actor.h"
#include "Journal.h"
#include "Model.h"

namespace scansim {

// Plays a capture: to each command of the host it gives what the captured scanner gave, transfer by
// transfer, but at once. Where the host says something else than the captured one it complains, and
// goes on where the capture has the command that came.
class Replay : public Actor {
public:
    // Both have to outlive it. Throws InputError when the capture cannot be read.
    Replay(const Model& model, Journal& journal);
    // Of a capture that is no file. Throws trace::CaptureError.
    Replay(const Model& model, Journal& journal, std::istream& capture);
    ~Replay() override;

    TransferResult write(const Bytes& bytes) override;
    TransferResult read(std::size_t capacity, Bytes& out) override;
    std::size_t bytesTaken() const override { return 0; }
    TransferResult take(Piece& piece) override;
    void reset() override {}
    void hostLeft() override {}
    void finish() override;
    void setNow(std::uint64_t) override {}
    std::optional<std::uint64_t> nextWake() const override { return std::nullopt; }
    void loadSheets(std::uint32_t) override {}
    std::uint32_t sheets() const override { return 0; }
    unsigned pagesStarted() const override { return pagesStarted_; }
    bool isLocked() const override { return false; }

private:
    struct Step {
        bool isHost;
        Bytes bytes;
    };

    void load(std::istream& capture);
    void skipUnread(const std::string& command);
    std::size_t findCommand(const Bytes& bytes) const;
    void follow(const Bytes& bytes);
    void makeUp(const Bytes& bytes);
    bool hasTransfer() const;

    const Model& model_;
    Journal& journal_;
    std::vector<Step> steps_;
    std::size_t next_ = 0;
    std::size_t sent_ = 0;  // of the transfer that is next
    Bytes madeUp_;          // a transfer that the capture does not have, before all others
    unsigned pagesStarted_ = 0;
};

}  // namespace scansim
