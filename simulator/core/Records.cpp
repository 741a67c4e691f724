// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Records.h"

#include <algorithm>

#include "Command.h"

namespace scansim {

namespace {

constexpr std::size_t kReplyHeaderSize = 8;
constexpr std::size_t kMarkerSize = 31;

void writeHeader(std::uint8_t* p, std::uint8_t commandClass, std::uint8_t code, std::size_t length,
                 Condition condition)
{
    p[0] = 0x1B;
    p[1] = commandClass;
    p[2] = code;
    p[3] = 0;
    putLe16(p + 4, length);
    p[6] = condition.status;
    p[7] = condition.feeder;
}

void appendLe32(Bytes& bytes, std::uint32_t value)
{
    bytes.resize(bytes.size() + 4);
    putLe32(bytes.data() + bytes.size() - 4, value);
}

void appendSource(Bytes& data, const Source& source)
{
    data.push_back(static_cast<std::uint8_t>(source.type));
    data.push_back(static_cast<std::uint8_t>(source.barId));
    appendLe32(data, source.origin);
    appendLe32(data, source.width);
    appendLe32(data, source.height);
    data.push_back(static_cast<std::uint8_t>(source.resolutions.size()));
    for (const Resolution& resolution : source.resolutions) {
        appendLe32(data, resolution.horizontal);
        appendLe32(data, resolution.vertical);
        data.push_back(resolution.depth);
    }
}

}  // namespace

Bytes makeReply(CommandId id, Condition condition, const Bytes& data)
{
    const Bytes command = commandHeader(id, 326);
    Bytes reply(kReplyHeaderSize + data.size());
    writeHeader(reply.data(), command[1], command[2], data.size(), condition);
    std::copy(data.begin(), data.end(), reply.begin() + kReplyHeaderSize);
    return reply;
}

Bytes makePageMarker(const PageGeometry& geometry, Condition condition)
{
    Bytes marker(kMarkerSize);
    writeHeader(marker.data(), 0x53, 0x02, kMarkerSize - kReplyHeaderSize, condition);
    marker[8] = static_cast<std::uint8_t>(RecordCode::Page);
    marker[10] = geometry.isInterleaved ? 1 : 0;
    putLe32(&marker[11], geometry.width);
    putLe32(&marker[15], geometry.height);
    putLe32(&marker[19], geometry.offsetX);
    putLe32(&marker[23], geometry.offsetY);
    putLe32(&marker[27], geometry.trim);
    return marker;
}

Bytes makeScanRecord(std::uint32_t protocol, RecordCode code, Condition condition)
{
    Bytes record(blockFraming(protocol).headerSize);
    writeBlockHeader(record.data(), protocol, 0, condition);
    record[8] = static_cast<std::uint8_t>(code);
    return record;
}

void writeBlockHeader(std::uint8_t* block, std::uint32_t protocol, std::size_t dataSize,
                      Condition condition)
{
    const BlockFraming framing = blockFraming(protocol);
    std::fill(block, block + framing.headerSize, std::uint8_t{0});
    writeHeader(block, 0x53, 0x02, dataSize + framing.lengthSurplus, condition);
}

Bytes propertiesData(const Model& model)
{
    Bytes data = {
        static_cast<std::uint8_t>(model.majorVersion),
        static_cast<std::uint8_t>(model.minorVersion),
        static_cast<std::uint8_t>(model.codeset),
        static_cast<std::uint8_t>(model.compressionTechnique),
        static_cast<std::uint8_t>(model.colourAlignment),
        static_cast<std::uint8_t>(model.greyAlignment),
        static_cast<std::uint8_t>(model.sources.size()),
    };
    for (SourceKind kind : model.sources) {
        appendSource(data, model.source(kind));
    }
    return data;
}

}  // namespace scansim
