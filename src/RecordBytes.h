// SPDX-License-Identifier: LGPL-2.1-or-later
// Fields of received records, read byte by byte and never past their end.
#pragma once

#include <memory>

namespace RecordBytes {

// Little-endian fields at data; the caller has checked that they are there.
int int16(const unsigned char* data);
int int32(const unsigned char* data);

// The byte at offset, or -1 when size ends before it.
int byteAt(const unsigned char* data, int size, int offset);
// Writes the 32-bit field at offset and returns 0, or returns -1 when size ends
// before its last byte.
int int32At(const unsigned char* data, int size, int offset, int* value);

// A copy of wanted bytes; those behind the first size ones are zero. Null without
// memory.
std::unique_ptr<unsigned char[]> copyPadded(const unsigned char* data, int size, int wanted);

}  // namespace RecordBytes
