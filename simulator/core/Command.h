// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <string>

#include "Bytes.h"
#include "Journal.h"
#include "Model.h"

namespace scansim {

// The scan parameters that lock and start carry.
struct ScanRequest {
    std::uint32_t colourCode = 0;
    std::uint32_t compression = 0;
    std::uint32_t compressionLevel = 0;
    std::uint32_t filter = 0;
    std::uint32_t pixels = 0;
    std::uint32_t lines = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    std::uint32_t dpi = 0;
    std::uint32_t verticalDpi = 0;
    std::uint32_t sourceCode = 0;

    std::uint32_t channels() const { return colourCode == 3 ? 3 : 1; }
};

struct Command {
    CommandId id = CommandId::Cancel;
    Bytes parameters;  // everything after the 8-byte header
    ScanRequest request;
};

// "lock: 2549 x 3299 pixels at 0,0, 300 dpi, colour 3, ..."; for traces.
std::string describe(const Command& command);

// The eight bytes that open a command of a protocol version.
Bytes commandHeader(CommandId id, std::uint32_t protocol);

// Takes a command out of what the host wrote. Whatever is not exactly as the model expects it is
// complained about; a command that cannot be recognised at all gives nothing.
std::optional<Command> decodeCommand(const Model& model, const Bytes& written, Journal& journal);

// Whether the parameters make sense for the source; each one that does not is complained about.
bool isPossible(const ScanRequest& request, const Model& model, SourceKind kind, Journal& journal);

}  // namespace scansim
