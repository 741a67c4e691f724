// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Bytes.h"
#include "Model.h"

namespace scansim {

// Status and feeder status, as bytes 6 and 7 of everything the scanner says.
struct Condition {
    std::uint8_t status = 0x80;
    std::uint8_t feeder = 0;
};

struct PageGeometry {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    std::uint32_t trim = 0;
    bool isInterleaved = false;
};

// What byte 8 of a scan record tells.
enum class RecordCode : std::uint8_t { Data = 0, End = 1, Cancelled = 3, Jam = 5, Page = 9 };

Bytes makeReply(CommandId id, Condition condition, const Bytes& data = {});
Bytes makePageMarker(const PageGeometry& geometry, Condition condition);

// A record without data, of the version's block header size.
Bytes makeScanRecord(std::uint32_t protocol, RecordCode code, Condition condition);

// The header of a block of `dataSize` image bytes, put in front of `block`'s reserved room.
void writeBlockHeader(std::uint8_t* block, std::uint32_t protocol, std::size_t dataSize,
                      Condition condition);

// The data of the properties reply.
Bytes propertiesData(const Model& model);

}  // namespace scansim
