// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Calls.h"

#include <cerrno>
#include <cstddef>
#include <optional>

#include <sys/types.h>

namespace {

std::optional<long> sendResult;
bool hasSockets = true;
std::function<void()> duringSleep;

}  // namespace

extern "C" {
ssize_t __real_send(int fd, const void* data, size_t size, int flags);
int __real_usleep(unsigned microseconds);
int __wrap_usleep(unsigned microseconds);
int __real_socket(int domain, int type, int protocol);
ssize_t __wrap_send(int fd, const void* data, size_t size, int flags);
int __wrap_socket(int domain, int type, int protocol);

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags)
{
    return sendResult ? *sendResult : __real_send(fd, data, size, flags);
}

int __wrap_usleep(unsigned microseconds)
{
    if (duringSleep) {
        duringSleep();
        return 0;
    }
    return __real_usleep(microseconds);
}

int __wrap_socket(int domain, int type, int protocol)
{
    if (!hasSockets) {
        errno = EMFILE;
        return -1;
    }
    return __real_socket(domain, type, protocol);
}
}

SendResult::SendResult(long result)
{
    sendResult = result;
}

SendResult::~SendResult()
{
    sendResult.reset();
}

NoSockets::NoSockets()
{
    hasSockets = false;
}

NoSockets::~NoSockets()
{
    hasSockets = true;
}

DuringSleep::DuringSleep(std::function<void()> action)
{
    duringSleep = std::move(action);
}

DuringSleep::~DuringSleep()
{
    duringSleep = nullptr;
}
