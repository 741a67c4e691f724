// SPDX-License-Identifier: LGPL-2.1-or-later
// The socket calls that carry a connection of the backend, with the attached scanner at its other
// end: it answers the greeting, and says what it has to say in frames. The sockets themselves are
// genuine, and never connected; the discovery, which makes other calls, is left alone.
#include "StandInUsb.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <dlfcn.h>
#include <sys/socket.h>

#define STANDIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr unsigned char kMagic[] = {'H', 'B', 'N', '3'};
constexpr std::size_t kHeaderSize = 9;
constexpr std::size_t kFrameSize = 8192;

// What has been said and not been received yet: a frame at a time.
class Frames {
public:
    void say(std::size_t payload)
    {
        memset(bytes_, 0, kHeaderSize);
        memcpy(bytes_, kMagic, sizeof kMagic);
        bytes_[kHeaderSize - 2] = static_cast<unsigned char>(payload >> 8);
        bytes_[kHeaderSize - 1] = static_cast<unsigned char>(payload);
        from_ = 0;
        size_ = kHeaderSize + payload;
    }

    std::size_t receive(unsigned char* to, std::size_t capacity)
    {
        if (from_ == size_) {
            fetch();
        }
        const std::size_t count = std::min(capacity, size_ - from_);
        memcpy(to, bytes_ + from_, count);
        from_ += count;
        return count;
    }

    void forget() { from_ = size_; }

private:
    void fetch()
    {
        const int count = standin::attachedScanner()->read(bytes_ + kHeaderSize, kFrameSize);
        if (count > 0) {
            say(static_cast<std::size_t>(count));
        }
    }

    unsigned char bytes_[kHeaderSize + kFrameSize] = {};
    std::size_t from_ = 0;
    std::size_t size_ = 0;
};

Frames frames;

}  // namespace

STANDIN_EXPORT int connect(int, const sockaddr*, socklen_t)
{
    return 0;
}

// The limit of each receive is no system call either.
STANDIN_EXPORT int setsockopt(int fd, int level, int name, const void* value,
                              socklen_t size) noexcept
{
    static const auto genuine =
        reinterpret_cast<decltype(&setsockopt)>(dlsym(RTLD_NEXT, "setsockopt"));
    const bool isLimit = level == SOL_SOCKET && name == SO_RCVTIMEO;
    return isLimit ? 0 : genuine(fd, level, name, value, size);
}

STANDIN_EXPORT ssize_t send(int, const void* bytes, std::size_t size, int)
{
    if (size == kHeaderSize && memcmp(bytes, kMagic, sizeof kMagic) == 0) {
        frames.say(0);
    } else {
        frames.forget();
        standin::attachedScanner()->write(static_cast<const unsigned char*>(bytes),
                                          static_cast<int>(size));
    }
    return static_cast<ssize_t>(size);
}

STANDIN_EXPORT ssize_t recv(int, void* to, std::size_t capacity, int)
{
    const std::size_t count = frames.receive(static_cast<unsigned char*>(to), capacity);
    if (count == 0) {
        errno = EAGAIN;
        return -1;
    }
    return static_cast<ssize_t>(count);
}
