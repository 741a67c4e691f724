// SPDX-License-Identifier: LGPL-2.1-or-later
// Answers to the discovery.
#pragma once

#include "Samples.h"

#include <string>
#include <vector>

inline Bytes text(const std::string& value)
{
    return Bytes(value.begin(), value.end());
}

inline Bytes bigEndian(unsigned value, int size)
{
    Bytes bytes;
    for (int i = size - 1; i >= 0; i--) {
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
    return bytes;
}

inline Bytes label(const std::string& value)
{
    return Bytes{static_cast<unsigned char>(value.size())} + text(value);
}

inline Bytes dnsName(const std::vector<std::string>& labels)
{
    Bytes bytes;
    for (const std::string& one : labels) {
        bytes = bytes + label(one);
    }
    return bytes + Bytes{0};
}

// ID, flags, counts.
inline Bytes dnsHeader(unsigned questions, unsigned answers, unsigned flags = 0x8400)
{
    return bigEndian(0, 2) + bigEndian(flags, 2) + bigEndian(questions, 2) + bigEndian(answers, 2) +
           Bytes(4);
}

inline Bytes dnsStrings(const std::vector<std::string>& strings)
{
    Bytes bytes;
    for (const std::string& one : strings) {
        bytes = bytes + label(one);
    }
    return bytes;
}

// type, class, time to live, length and data.
inline Bytes dnsRecord(const Bytes& name, unsigned type, const Bytes& data)
{
    return name + bigEndian(type, 2) + bigEndian(1, 2) + bigEndian(120, 4) +
           bigEndian(static_cast<unsigned>(data.size()), 2) + data;
}

inline Bytes serviceName()
{
    return dnsName({"Scanner", "_host-config", "_udp", "local"});
}

inline Bytes answerWith(const std::vector<std::string>& strings)
{
    return dnsHeader(0, 1) + dnsRecord(serviceName(), 16, dnsStrings(strings));
}

// The strings of the n-th scanner.
inline std::vector<std::string> scannerStrings(int n = 0)
{
    char mac[13];
    snprintf(mac, sizeof mac, "0010%08X", static_cast<unsigned>(n));
    return {"IPADDRESS \"127.0.0.1\"", std::string("MACUAA \"") + mac + "\"",
            "ADAPTERNAME \"Model " + std::to_string(n) + "\"", "PRINTERVIDPID \"12343260\""};
}
