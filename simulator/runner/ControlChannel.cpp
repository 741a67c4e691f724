// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ControlChannel.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace scansim {

namespace {

constexpr std::size_t kMaxLine = 4096;

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

int makeSocket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fail("control socket");
    }
    return fd;
}

void sendAll(int fd, const std::string& text)
{
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace

ControlChannel::ControlChannel(const std::string& path, Handler handler)
    : listener_(makeSocket()), handler_(std::move(handler))
{
    const sockaddr_un address = addressOf(path);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 8) != 0) {
        fail(path);
    }
}

ControlChannel::~ControlChannel()
{
    for (const auto& client : clients_) {
        close(client.first);
    }
    close(listener_);
}

void ControlChannel::addTo(std::vector<pollfd>& descriptors) const
{
    descriptors.push_back({listener_, POLLIN, 0});
    for (const auto& client : clients_) {
        descriptors.push_back({client.first, POLLIN, 0});
    }
}

void ControlChannel::handle(const std::vector<pollfd>& descriptors)
{
    for (const pollfd& descriptor : descriptors) {
        if (descriptor.revents == 0) {
            continue;
        }
        if (clients_.count(descriptor.fd) > 0) {
            serve(descriptor.fd);
        } else if (descriptor.fd == listener_) {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                clients_[fd];
            }
        }
    }
}

void ControlChannel::serve(int fd)
{
    char buffer[1024];
    const ssize_t count = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
    // The event may be that of another file, which had this number when it was polled.
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    std::string& line = clients_[fd];
    if (count <= 0 || line.size() > kMaxLine) {
        close(fd);
        clients_.erase(fd);
        return;
    }
    line.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end = line.find('\n'); end != std::string::npos; end = line.find('\n')) {
        const std::string question = line.substr(0, end);
        line.erase(0, end + 1);
        sendAll(fd, handler_(question) + "\n");
    }
}

std::string ControlChannel::ask(const std::string& path, const std::string& line)
{
    const int fd = makeSocket();
    const sockaddr_un address = addressOf(path);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail(path);
    }
    sendAll(fd, line + "\n");
    shutdown(fd, SHUT_WR);
    std::string answer;
    char buffer[1024];
    for (ssize_t count = 0; (count = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(count));
    }
    close(fd);
    return answer;
}

}  // namespace scansim
