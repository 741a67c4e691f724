// SPDX-License-Identifier: LGPL-2.1-or-later
// Frames as the network scanner sends them.
#pragma once

#include "Samples.h"

inline Bytes frameHeader(unsigned length, int flag = 0)
{
    Bytes bytes = {'H', 'B', 'N', '3', static_cast<unsigned char>(flag)};
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<unsigned char>(length >> shift));
    }
    return bytes;
}

inline Bytes frame(const Bytes& payload, int flag = 0)
{
    return frameHeader(static_cast<unsigned>(payload.size()), flag) + payload;
}
