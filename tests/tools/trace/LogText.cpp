// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LogText.h"

#include <cstdio>

namespace tracetest {

using trace::Bytes;

std::string marked(const std::string& prefix, int process, const char* function,
                   const std::string& message)
{
    char mark[128];
    std::snprintf(mark, sizeof mark, "[P:%d T:-77] %-15.15s : %-4d %-20.20s -- ", process,
                  "src/IOComm.cpp", 340, function);
    return prefix + mark + message + "\n";
}

namespace {

std::string byteLines(const std::string& prefix, int process, const char* function,
                      const Bytes& bytes, std::size_t count)
{
    std::string result;
    char line[32];
    for (std::size_t i = 0; i < count; ++i) {
        std::snprintf(line, sizeof line, "%2X %zu", i < bytes.size() ? unsigned{bytes[i]} : 0U, i);
        result += marked(prefix, process, function, line);
    }
    return result;
}

std::string dump(const std::string& prefix, const Bytes& bytes)
{
    std::string result = prefix + "(size: " + std::to_string(bytes.size()) + ")\n" + prefix;
    char digits[4];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(digits, sizeof digits, "%.2x ", unsigned{bytes[i]});
        result += digits;
        if (i % 32 == 31 && i + 1 < bytes.size()) {
            result += "\n" + prefix;
        }
    }
    return result + "\n";
}

}  // namespace

std::string usbCommand(const std::string& prefix, int process, const Bytes& command,
                       const Bytes& reply, std::size_t room)
{
    return byteLines(prefix, process, "sendCommand", command, command.size()) +
           marked(prefix, process, "Write", "writing data on USB") + dump(prefix, command) +
           marked(prefix, process, "Write", "::::::::::::::: METHOD END ::::::::::::::: 0") +
           byteLines(prefix, process, "readReply", reply, room) +
           marked(prefix, process, "writeCommand", "::::::::::::::: METHOD END ::::::::::::::: 5");
}

std::string networkDump(int process, const char* function, const char* message, const Bytes& bytes,
                        const std::string& prefix)
{
    return marked(prefix, process, function, message) + dump(prefix, bytes) +
           marked(prefix, process, function, "before send(). ");
}

std::string usbRead(std::size_t size, int result, const std::string& between)
{
    return marked("", 5, "ReadImage", "::::::::::::::: METHOD START ::::::::::::::: ") +
           marked("", 5, "ReadImage", " -> size is " + std::to_string(size)) + between +
           marked("", 5, "ReadImage",
                  "::::::::::::::: METHOD END ::::::::::::::: " + std::to_string(result));
}

std::string pageMarker(int process)
{
    std::string lines;
    for (const char* message : {" -> width = 637", " -> height = 177", " -> offsetx = 1",
                                " -> offsety = 2", " -> trim = 3", "interleaving is needed"}) {
        lines += marked("", process, "processPageMarker", message);
    }
    return lines;
}

}  // namespace tracetest
