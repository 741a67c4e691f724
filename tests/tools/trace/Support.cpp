// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Support.h"

#include "Dialogue.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace tracetest {

using trace::Bytes;
using trace::Party;
using trace::Transfer;

Bytes bytes(const std::string& hex)
{
    std::string digits;
    for (const char c : hex) {
        digits += c == ' ' || c == '\n' ? "" : std::string(1, c);
    }
    Bytes result;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        result.push_back(
            static_cast<std::uint8_t>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    }
    return result;
}

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes result;
    for (const Bytes& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

Bytes scanCommand(std::uint8_t code, int version)
{
    Bytes command = bytes(
        "1b 53 00 00 18 00 80 00  03 00 00 03  7d 02 00 00  b1 00 00 00"
        "0a 00 00 00  14 00 00 00  4b 00 4b 00");
    command[2] = code;
    if (version == 401) {
        command[4] = 26;
        return joined({command, bytes("04 00")});
    }
    if (version == 402) {
        command[4] = 35;
        return joined({command, bytes("01 00 01 01 01 00 80 00 80 01 02")});
    }
    return command;
}

Bytes inNpaFrame(const Bytes& command)
{
    const std::size_t pad = (4 - (command.size() + 20) % 4) % 4;
    Bytes head = bytes("a5 00 00 10 01 83 aa bb cc dd 02 00");
    head[2] = static_cast<std::uint8_t>(command.size() + 17 + pad);
    head[11] = static_cast<std::uint8_t>(pad);
    return joined({head, Bytes(pad, 0), command, bytes("aa bb cc dd aa bb cc dd")});
}

Bytes frame(const Bytes& payload)
{
    Bytes head = bytes("48 42 4e 33 00 00 00 00 00");
    head[7] = static_cast<std::uint8_t>(payload.size() >> 8);
    head[8] = static_cast<std::uint8_t>(payload.size());
    return joined({head, payload});
}

Bytes properties()
{
    return bytes(
        "1b 53 03 00 1f 00 80 02  01 02 03 04 05 06 01"
        "02 07 01 00 00 00 f8 09 00 00 b4 0d 00 00 01"
        "4b 00 00 00 96 00 00 00 18");
}

Transfer host(std::uint64_t time, const Bytes& data)
{
    return Transfer::data(Party::Host, time, data);
}

Transfer scanner(std::uint64_t time, const Bytes& data)
{
    return Transfer::data(Party::Scanner, time, data);
}

std::string printed(const trace::Conversation& conversation, bool showsBytes)
{
    std::ostringstream out;
    trace::Dialogue(conversation, {showsBytes}, out).print();
    return out.str();
}

std::string printed(std::vector<Transfer> transfers)
{
    trace::Conversation conversation;
    conversation.name = "Test";
    conversation.transfers = std::move(transfers);
    return printed(conversation);
}

TemporaryFile::TemporaryFile(const std::string& contents)
{
    char name[] = "/tmp/trace-test-XXXXXX";
    close(mkstemp(name));
    path_ = name;
    write(contents);
}

TemporaryFile::~TemporaryFile()
{
    unlink(path_.c_str());
}

void TemporaryFile::write(const std::string& contents) const
{
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << contents;
}

}  // namespace tracetest
