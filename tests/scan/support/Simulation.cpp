// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Simulation.h"

#include "Require.h"

#include <cstdlib>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace scantest {

std::string askSimulation(const std::string& line)
{
    const char* path = std::getenv("SCANNER_SIM_CONTROL");
    require(path != nullptr, "not inside of a simulation");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "the control socket");
    const std::string sent = line + "\n";
    require(send(fd, sent.data(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size()),
            "the control socket");
    char answer[4096];
    const ssize_t size = recv(fd, answer, sizeof answer, 0);
    close(fd);
    require(size > 0, "no answer to " + line);
    const std::string text(answer, static_cast<std::size_t>(size));
    return text.substr(0, text.find('\n'));
}

void tellSimulation(const std::string& line)
{
    const std::string answer = askSimulation(line);
    require(answer == "ok", line + ": " + answer);
}

}  // namespace scantest
