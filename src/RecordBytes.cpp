// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RecordBytes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

int RecordBytes::int16(const unsigned char* data)
{
    return data[0] | data[1] << 8;
}

int RecordBytes::int32(const unsigned char* data)
{
    return static_cast<int>(
        static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
        static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24);
}

int RecordBytes::byteAt(const unsigned char* data, int size, int offset)
{
    return data != nullptr && offset < size ? data[offset] : -1;
}

int RecordBytes::int32At(const unsigned char* data, int size, int offset, int* value)
{
    if (data == nullptr || offset + 4 > size) {
        return -1;
    }
    *value = int32(data + offset);
    return 0;
}

std::unique_ptr<unsigned char[]> RecordBytes::copyPadded(const unsigned char* data, int size,
                                                         int wanted)
{
    const size_t total = static_cast<size_t>(std::max(wanted, 1));
    std::unique_ptr<unsigned char[]> copy(new (std::nothrow) unsigned char[total]());
    const int present = std::min(size, wanted);
    if (copy && data != nullptr && present > 0) {
        memcpy(copy.get(), data, static_cast<size_t>(present));
    }
    return copy;
}
