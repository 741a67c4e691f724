// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ScriptedNet.h"

#include "Check.h"
#include "Frames.h"
#include "Surroundings.h"

#include "ICommand.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr int kFirstSocket = 1 << 20;  // no number of a real descriptor
constexpr int kSilenceUnit = 10;       // milliseconds

Bytes greeting()
{
    Bytes bytes = frameHeader(0);
    bytes.back() = 2;
    return bytes;
}

}  // namespace

fuzz::ScriptedNet* fuzz::ScriptedNet::current = nullptr;

fuzz::ScriptedNet::ScriptedNet(const Script& script, bool isObedient, std::size_t segment)
    : script_(script), isObedient_(isObedient), segment_(segment), next_(kFirstSocket)
{
    current = this;
}

fuzz::ScriptedNet::~ScriptedNet()
{
    FUZZ_CHECK(sockets_.empty());
    current = nullptr;
}

int fuzz::ScriptedNet::open(bool isStream)
{
    sockets_.insert(++next_);
    datagramSocket_ = isStream ? datagramSocket_ : next_;
    return next_;
}

void fuzz::ScriptedNet::close(int fd)
{
    FUZZ_CHECK(isOpen(fd));
    sockets_.erase(fd);
}

// The connection is there when it is asked for again.
int fuzz::ScriptedNet::connect(int fd)
{
    FUZZ_CHECK(isOpen(fd));
    if (script_.isOver()) {
        errno = ECONNREFUSED;
        return -1;
    }
    if (askedToConnect_ != fd) {
        askedToConnect_ = fd;
        errno = EINPROGRESS;
        return -1;
    }
    arrived_.clear();
    isEnded_ = false;
    isReset_ = false;
    silence_ = 0;
    command_ = -1;
    return 0;
}

void fuzz::ScriptedNet::play()
{
    const Event event = script_.next(command_);
    switch (event.kind) {
    case Event::raw:
        append(event.bytes);
        break;
    case Event::message:
        append(frame(event.bytes));
        break;
    case Event::silence:
        silence_ = static_cast<int>(event.size) * kSilenceUnit;
        break;
    case Event::failure:
        isReset_ = true;
        break;
    case Event::cancel:
        if (onCancel) {
            onCancel();
        }
        break;
    default:
        isEnded_ = true;
        break;
    }
}

bool fuzz::ScriptedNet::isReadable(int timeout)
{
    const auto hasNews = [this] { return !arrived_.empty() || isEnded_ || isReset_; };
    if (!hasNews() && silence_ <= 0) {
        play();
    }
    if (hasNews()) {
        return true;
    }
    silence_ -= timeout;
    passTime(std::chrono::milliseconds(timeout));
    return false;
}

short fuzz::ScriptedNet::poll(int fd, short events, int timeout)
{
    if (!isOpen(fd)) {
        return POLLNVAL;
    }
    if ((events & POLLOUT) != 0) {
        return POLLOUT;
    }
    if (fd != datagramSocket_) {
        return isReadable(timeout) ? POLLIN : 0;
    }
    if (!datagrams.empty()) {
        return POLLIN;
    }
    passTime(std::chrono::milliseconds(timeout));
    return 0;
}

ssize_t fuzz::ScriptedNet::send(const Bytes& bytes)
{
    touch(bytes.data(), bytes.size());
    if (isEnded_ || isReset_) {
        errno = EPIPE;
        return -1;
    }
    if (bytes == greeting()) {
        command_ = -1;
        append(isObedient_ ? frameHeader(0) : Bytes());
    } else {
        command_ = Script::commandOf(bytes);
        append(isObedient_ && ICommand::isAnswered(command_) ? frame(Script::goodReply(command_))
                                                             : Bytes());
    }
    return static_cast<ssize_t>(bytes.size());
}

ssize_t fuzz::ScriptedNet::receive(unsigned char* to, std::size_t room)
{
    if (arrived_.empty()) {
        errno = isReset_ ? ECONNRESET : EAGAIN;
        return isEnded_ && !isReset_ ? 0 : -1;
    }
    const std::size_t piece = segment_ > 0 ? std::min(room, segment_) : room;
    const auto size = static_cast<std::ptrdiff_t>(std::min(piece, arrived_.size()));
    std::copy(arrived_.begin(), arrived_.begin() + size, to);
    arrived_.erase(arrived_.begin(), arrived_.begin() + size);
    return size;
}

ssize_t fuzz::ScriptedNet::receiveDatagram(unsigned char* to, std::size_t room)
{
    if (datagrams.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const Bytes packet = datagrams.front();
    datagrams.pop_front();
    const std::size_t size = std::min(room, packet.size());
    std::copy(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size), to);
    return static_cast<ssize_t>(size);
}

// ---- in place of the functions of the C library ---------------------------------------------

namespace {

fuzz::ScriptedNet& net(int fd)
{
    FUZZ_CHECK(fuzz::ScriptedNet::current != nullptr && fuzz::ScriptedNet::current->isOpen(fd));
    return *fuzz::ScriptedNet::current;
}

}  // namespace

extern "C" {
int fuzz_socket(int domain, int type, int protocol);
int fuzz_connect(int fd, const struct sockaddr* address, socklen_t size);
int fuzz_bind(int fd, const struct sockaddr* address, socklen_t size);
int fuzz_setsockopt(int fd, int level, int name, const void* value, socklen_t size);
int fuzz_fcntl(int fd, int command, ...);
int fuzz_shutdown(int fd, int how);
int fuzz_close(int fd);
int fuzz_poll(struct pollfd* fds, nfds_t count, int timeout);
ssize_t fuzz_send(int fd, const void* data, size_t size, int flags);
ssize_t fuzz_recv(int fd, void* data, size_t size, int flags);
ssize_t fuzz_sendto(int fd, const void* data, size_t size, int flags,
                    const struct sockaddr* address, socklen_t addressSize);
ssize_t fuzz_recvfrom(int fd, void* data, size_t size, int flags, struct sockaddr* address,
                      socklen_t* addressSize);
int fuzz_usleep(unsigned microseconds);

int fuzz_socket(int, int type, int)
{
    if (fuzz::ScriptedNet::current == nullptr) {
        errno = EMFILE;
        return -1;
    }
    return fuzz::ScriptedNet::current->open((type & SOCK_STREAM) != 0);
}

int fuzz_connect(int fd, const struct sockaddr*, socklen_t)
{
    return net(fd).connect(fd);
}

int fuzz_bind(int fd, const struct sockaddr*, socklen_t)
{
    errno = EBADF;
    return fd < 0 ? -1 : 0;
}

int fuzz_setsockopt(int, int, int, const void* value, socklen_t size)
{
    fuzz::touch(value, size);
    return 0;
}

int fuzz_fcntl(int, int command, ...)
{
    return command == F_GETFL ? O_NONBLOCK : 0;
}

int fuzz_shutdown(int fd, int)
{
    net(fd).shutdown();
    return 0;
}

int fuzz_close(int fd)
{
    net(fd).close(fd);
    return 0;
}

int fuzz_poll(struct pollfd* fds, nfds_t count, int timeout)
{
    FUZZ_CHECK(count == 1 && timeout >= 0 && fuzz::ScriptedNet::current != nullptr);
    fds->revents = fuzz::ScriptedNet::current->poll(fds->fd, fds->events, timeout);
    return fds->revents != 0 ? 1 : 0;
}

ssize_t fuzz_send(int fd, const void* data, size_t size, int flags)
{
    FUZZ_CHECK((flags & MSG_NOSIGNAL) != 0);
    const auto* bytes = static_cast<const unsigned char*>(data);
    return net(fd).send(fuzz::Bytes(bytes, bytes + size));
}

ssize_t fuzz_recv(int fd, void* data, size_t size, int)
{
    return net(fd).receive(static_cast<unsigned char*>(data), size);
}

ssize_t fuzz_sendto(int, const void* data, size_t size, int, const struct sockaddr*, socklen_t)
{
    fuzz::touch(data, size);
    return static_cast<ssize_t>(size);
}

ssize_t fuzz_recvfrom(int fd, void* data, size_t size, int, struct sockaddr* address,
                      socklen_t* addressSize)
{
    sockaddr_in sender = {};
    sender.sin_family = AF_INET;
    sender.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::memcpy(address, &sender, std::min<std::size_t>(sizeof sender, *addressSize));
    return net(fd).receiveDatagram(static_cast<unsigned char*>(data), size);
}

int fuzz_usleep(unsigned microseconds)
{
    fuzz::passTime(std::chrono::milliseconds(microseconds / 1000));
    return 0;
}
}
