// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <poll.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace scansim {

// A Unix socket on which lines are asked and answered.
class ControlChannel {
public:
    using Handler = std::function<std::string(const std::string& line)>;

    // Throws std::runtime_error when the socket cannot be made.
    ControlChannel(const std::string& path, Handler handler);
    ~ControlChannel();
    ControlChannel(const ControlChannel&) = delete;
    ControlChannel& operator=(const ControlChannel&) = delete;

    // Adds the descriptors to wait for; `handle` takes what poll() found out about them.
    void addTo(std::vector<pollfd>& descriptors) const;
    void handle(const std::vector<pollfd>& descriptors);

    // The other side: sends a line to the channel at `path`, gives the answer.
    static std::string ask(const std::string& path, const std::string& line);

private:
    void serve(int fd);

    int listener_;
    Handler handler_;
    std::map<int, std::string> clients_;  // with the unfinished line of each
};

}  // namespace scansim
