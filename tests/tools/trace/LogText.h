// SPDX-License-Identifier: LGPL-2.1-or-later
// What the backend writes into the system log.
#pragma once

#include "Conversation.h"

namespace tracetest {

// A line with the backend's mark. The prefix is that of the system log.
std::string marked(const std::string& prefix, int process, const char* function,
                   const std::string& message);

// What a command on USB leaves in the log; the host logs its whole buffer of replies.
std::string usbCommand(const std::string& prefix, int process, const trace::Bytes& command,
                       const trace::Bytes& reply, std::size_t room = 512);
// A dump behind a line with a message.
std::string networkDump(int process, const char* function, const char* message,
                        const trace::Bytes& bytes, const std::string& prefix = "");
// A read of the image with that result, and the lines that it leaves in between.
std::string usbRead(std::size_t size, int result, const std::string& between);
// What the marker of a page of half-lines, 637 x 177, leaves there.
std::string pageMarker(int process);

}  // namespace tracetest
