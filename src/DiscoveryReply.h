// SPDX-License-Identifier: LGPL-2.1-or-later
// The answers of scanners to the discovery, DNS messages with TXT records.
#pragma once

#include "NValueObjects.h"

#include <cstdint>
#include <string>

// Lengths and counts of an answer are not trusted: bytes past its end are zero.
class DiscoveryReply {
public:
    // Reads the strings of the first TXT record of the service into record. 1, or 0 when
    // the packet is no answer.
    //
    // Names are read as two labels and the bytes up to the next zero; compressed names are
    // not understood. An answer that is not a TXT record of the service is not stepped over
    // as a whole: the next one is looked for where the reading stopped.
    static int parsePacket(const unsigned char* buf, int len, NValueObjects* record);

    // The text of the length-prefixed string at ptr, up to a zero byte. *len: the length
    // that it claims.
    static std::string extractString(const unsigned char* ptr, const unsigned char* end, int* len);

    // Takes over one "<key> <value>" string.
    static void parseText(const std::string& text, NValueObjects* record);

    // What stands between the first and the last double quote, or behind the only one.
    static std::string removeQuotes(const std::string& text);
    // A hexadecimal number; other characters count as the digit 0.
    static std::uint64_t hexStringLong(const std::string& text);
    // The byte with its bits in reverse order.
    static unsigned char reverse(unsigned char byte);
};
