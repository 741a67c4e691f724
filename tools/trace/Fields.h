// SPDX-License-Identifier: LGPL-2.1-or-later
// What the fields of commands, replies and records are called, and their values in words.
#pragma once

#include "ByteView.h"

#include <string>
#include <vector>

namespace trace {

// One field as it is shown. `bytes` is borrowed.
struct Row {
    std::string name;
    std::string value;
    ByteView bytes;
};

// How a number is shown.
using Wording = std::string (*)(std::uint64_t value);

struct Field {
    const char* name;
    std::size_t offset;
    std::size_t size;
    Wording wording;
};

// The fields of a table that are there in bytes, as a whole or in part.
void addRows(const std::vector<Field>& table, ByteView bytes, std::vector<Row>& rows);

extern const std::vector<Field> kParameterFields;   // offsets in the whole command
extern const std::vector<Field> kReplyFields;       // of every reply and record
extern const std::vector<Field> kStartReplyFields;  // behind them, where the page is described
extern const std::vector<Field> kPropertyFields;    // offsets behind byte 7 of the reply
extern const std::vector<Field> kSourceFields;      // offsets in the record of a source
extern const std::vector<Field> kResolutionFields;  // likewise
extern const std::vector<Field> kMarkerFields;

std::string statusWords(std::uint64_t value);
std::string feederWords(std::uint64_t value);
std::string recordWords(std::uint64_t value);

}  // namespace trace
