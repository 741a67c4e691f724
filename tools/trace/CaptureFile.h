// SPDX-License-Identifier: LGPL-2.1-or-later
// A conversation as a text file that scanner-sim plays again.
//
//     # scanlib capture 1
//     transport usb
//     > 0 1b5303000000 80*2
//     < 213 1b530300640080 02 00*100
//
// A line is a command (>) or a transfer of the scanner (<): microseconds since the beginning, then
// bytes in hexadecimal, XX*N for a byte N times, XX?N for N bytes that were not recorded and are
// made up. "# " starts a comment, "! " a remark with its time.
#pragma once

#include "Conversation.h"

#include <iosfwd>
#include <stdexcept>

namespace trace {

class CaptureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern const char* const kCaptureHeading;

void writeCapture(const Conversation& conversation, std::ostream& out);

// Throws CaptureError, which names the line.
Conversation readCapture(std::istream& in);

}  // namespace trace
