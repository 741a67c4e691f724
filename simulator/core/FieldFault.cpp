// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FieldFault.h"

#include <optional>

namespace scansim {

namespace {

struct Field {
    std::size_t offset;
    std::size_t size;
};

std::optional<Field> replyField(FaultAction action)
{
    switch (action) {
    case FaultAction::Code:
        return Field{kReplyCodeOffset, 1};
    case FaultAction::DataLength:
        return Field{4, 2};
    case FaultAction::Sources:
        return Field{14, 1};
    case FaultAction::Resolutions:
        return Field{29, 1};
    default:
        return std::nullopt;
    }
}

std::optional<Field> recordField(FaultAction action)
{
    switch (action) {
    case FaultAction::Code:
        return Field{8, 1};
    case FaultAction::DataLength:
        return Field{4, 2};
    case FaultAction::Interleave:
        return Field{10, 1};
    case FaultAction::Pixels:
        return Field{11, 4};
    case FaultAction::Lines:
        return Field{15, 4};
    case FaultAction::Offset:
        return Field{19, 4};
    case FaultAction::Trim:
        return Field{27, 4};
    default:
        return std::nullopt;
    }
}

// Little-endian; a field behind the end is not there to be spoilt.
bool put(Bytes& bytes, const std::optional<Field>& field, std::uint32_t value)
{
    if (!field) {
        return false;
    }
    for (std::size_t i = 0; i < field->size && field->offset + i < bytes.size(); ++i) {
        bytes[field->offset + i] = static_cast<std::uint8_t>(value >> (8 * i) & 0xFF);
    }
    return true;
}

}  // namespace

bool spoilReply(Bytes& reply, const Fault& fault)
{
    return put(reply, replyField(fault.action), fault.argument);
}

bool spoilRecord(Bytes& record, const Fault& fault)
{
    return put(record, recordField(fault.action), fault.argument);
}

}  // namespace scansim
