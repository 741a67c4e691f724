// SPDX-License-Identifier: LGPL-2.1-or-later
#include "HostConnection.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace scansim {

namespace {

// A scanner has little memory: it does not run far ahead of its host.
constexpr int kSendBuffer = 32768;
constexpr std::size_t kMuch = 65536;
constexpr int kOn = 1;

}  // namespace

HostConnection::HostConnection(Descriptor socket, const NetworkTraits& traits)
    : socket_(std::move(socket)), traits_(traits)
{
    setsockopt(fd(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
    setsockopt(fd(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
}

void HostConnection::send(const Bytes& frame, std::uint64_t notBefore)
{
    if (!frame.empty()) {
        bytes_.insert(bytes_.end(), frame.begin(), frame.end());
        frames_.push_back({frame.size(), notBefore});
    }
}

bool HostConnection::hasRoom() const
{
    return bytes_.size() - sent_ < kMuch;
}

bool HostConnection::isDue(std::uint64_t now) const
{
    return !frames_.empty() && frames_.front().notBefore <= now;
}

std::size_t HostConnection::nextWrite(std::uint64_t now) const
{
    if (traits_.segmentSize == 0 && !traits_.packsSegments) {
        return frames_.front().size;
    }
    const std::size_t limit = traits_.segmentSize > 0 ? traits_.segmentSize : kMuch;
    std::size_t due = 0;
    for (auto frame = frames_.begin();
         frame != frames_.end() && frame->notBefore <= now && due < limit; ++frame) {
        due += frame->size;
    }
    return std::min(due, limit);
}

void HostConnection::noteSent(std::size_t count)
{
    sent_ += count;
    while (count > 0) {
        const std::size_t part = std::min(count, frames_.front().size);
        frames_.front().size -= part;
        count -= part;
        if (frames_.front().size == 0) {
            frames_.pop_front();
        }
    }
    if (sent_ == bytes_.size() || sent_ > kMuch) {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<long>(sent_));
        sent_ = 0;
    }
}

bool HostConnection::pump(std::uint64_t now)
{
    isFull_ = false;
    while (isDue(now)) {
        // The mark keeps the kernel from joining what waits in its queue.
        const ssize_t count = ::send(fd(), bytes_.data() + sent_, nextWrite(now),
                                     MSG_NOSIGNAL | MSG_DONTWAIT | MSG_EOR);
        if (count < 0) {
            isFull_ = errno == EAGAIN || errno == ENOBUFS;
            return isFull_;
        }
        noteSent(static_cast<std::size_t>(count));
    }
    return true;
}

std::optional<std::uint64_t> HostConnection::nextWake(std::uint64_t now) const
{
    if (frames_.empty() || isDue(now)) {
        return std::nullopt;
    }
    return frames_.front().notBefore;
}

bool HostConnection::isDelivered() const
{
    int waiting = 0;
    return frames_.empty() && (ioctl(fd(), SIOCOUTQ, &waiting) != 0 || waiting == 0);
}

bool HostConnection::receive(Bytes& bytes)
{
    std::uint8_t buffer[4096];
    for (;;) {
        const ssize_t count = recv(fd(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (count <= 0) {
            return count < 0 && errno == EAGAIN;
        }
        bytes.insert(bytes.end(), buffer, buffer + count);
    }
}

void HostConnection::reset()
{
    const linger now{1, 0};
    setsockopt(fd(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    socket_.reset();
}

void HostConnection::halfClose()
{
    shutdown(fd(), SHUT_WR);
}

// The kernel says nothing for a connection that is under repair.
void HostConnection::forget()
{
    setsockopt(fd(), IPPROTO_TCP, TCP_REPAIR, &kOn, sizeof kOn);
    socket_.reset();
}

}  // namespace scansim
