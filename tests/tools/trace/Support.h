// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "Conversation.h"

#include <initializer_list>

namespace tracetest {

// "1b 53 04", blanks wherever they are.
trace::Bytes bytes(const std::string& hex);

trace::Bytes joined(std::initializer_list<trace::Bytes> parts);

// Lock or start of a protocol version: 637 x 177 pixels at 75 dpi.
trace::Bytes scanCommand(std::uint8_t code, int version);
trace::Bytes inNpaFrame(const trace::Bytes& command);
trace::Bytes frame(const trace::Bytes& payload);
trace::Bytes properties();

trace::Transfer host(std::uint64_t time, const trace::Bytes& bytes);
trace::Transfer scanner(std::uint64_t time, const trace::Bytes& bytes);

// The conversation as it is printed.
std::string printed(const trace::Conversation& conversation, bool showsBytes = false);
std::string printed(std::vector<trace::Transfer> transfers);

// A file of its own that goes with it.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& contents);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }
    void write(const std::string& contents) const;

private:
    std::string path_;
};

}  // namespace tracetest
