// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SocketWrapper.h"

#include "CLogger.h"
#include "CancelToken.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// The token is looked at this often.
constexpr std::chrono::milliseconds kSlice{100};
constexpr std::chrono::seconds kDrainSilence{2};
// Limits beyond it come to the same as none, and would not fit the clock.
constexpr std::chrono::hours kLongestLimit{100L * 365 * 24};

bool isLimited(long seconds, long microseconds)
{
    return seconds >= 0 && microseconds >= 0;
}

template <typename Duration>
Duration atMost(Duration limit)
{
    return std::min<Duration>(limit, kLongestLimit);
}

// The time left for a wait, and the reasons to end it early.
class Patience {
public:
    Patience(long seconds, long microseconds, const CancelToken* cancel)
        : deadline_(Clock::time_point::max()), lastHeard_(Clock::now()), cancel_(cancel)
    {
        if (isLimited(seconds, microseconds)) {
            deadline_ = lastHeard_ + atMost(std::chrono::seconds(seconds)) +
                        atMost(std::chrono::microseconds(microseconds));
        }
    }

    void hear() { lastHeard_ = Clock::now(); }

    // Like poll for one descriptor, and -1 for a cancelled wait and a bad descriptor.
    int wait(int fd, short events) const
    {
        for (;;) {
            const Clock::time_point now = Clock::now();
            const bool isLast = isCancelled(now);
            pollfd waited = {fd, events, 0};
            const int ready = poll(&waited, 1, isLast ? 0 : slice(now));
            if (ready > 0 && (waited.revents & POLLNVAL) != 0) {
                errno = EBADF;
                return -1;
            }
            if (ready > 0 || (ready < 0 && errno != EINTR)) {
                return ready;
            }
            if (isLast) {
                errno = ECANCELED;
                return -1;
            }
            if (Clock::now() >= deadline_) {
                return 0;
            }
        }
    }

private:
    bool isCancelled(Clock::time_point now) const
    {
        return cancel_ != nullptr && (cancel_->shouldStop() ||
                                      (cancel_->isDraining() && now - lastHeard_ >= kDrainSilence));
    }

    int slice(Clock::time_point now) const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now);
        return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kSlice).count());
    }

    Clock::time_point deadline_;
    Clock::time_point lastHeard_;
    const CancelToken* cancel_;
};

void traceLimit(const CLogger& log, bool isTracing, long seconds, long microseconds)
{
    if (isLimited(seconds, microseconds)) {
        SL_TRACE_TO_IF(isTracing, log, "polling timeout: %ld seconds  %ld microseconds", seconds,
                       microseconds);
    } else {
        SL_TRACE_TO_IF(isTracing, log, "polling timeout: none");
    }
}

void report(int* errOut, int error)
{
    if (errOut != nullptr) {
        *errOut = error;
    }
}

bool isUsable(int fd, const void* buf, unsigned long len)
{
    return fd >= 0 && buf != nullptr && len > 0 &&
           len <= static_cast<unsigned long>(std::numeric_limits<int>::max());
}

// recv with its flag MSG_WAITALL and its time limit, but open to a cancel.
ssize_t receiveBytes(int fd, unsigned char* buf, unsigned long wanted, bool waitAll,
                     Patience& patience)
{
    unsigned long got = 0;
    ssize_t result = 0;
    do {
        result = recv(fd, buf + got, wanted - got, MSG_DONTWAIT);
        if (result > 0) {
            got += static_cast<unsigned long>(result);
            patience.hear();
            continue;
        }
        if (result == 0 || errno != EAGAIN) {
            break;
        }
        const int ready = patience.wait(fd, POLLIN);
        if (ready == 0) {
            errno = EAGAIN;
        }
        if (ready <= 0) {
            result = -1;
            break;
        }
    } while (got == 0 || (waitAll && got < wanted));
    return got > 0 ? static_cast<ssize_t>(got) : result;
}

// The same limit for the socket itself.
void limitReceiving(int fd, long seconds, long microseconds)
{
    timeval limit = {};
    if (isLimited(seconds, microseconds)) {
        limit.tv_sec = seconds;
        limit.tv_usec = microseconds;
    }
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

// What remains of a failed recv or send. errOut gets the -1, not errno.
int failure(const CLogger& log, const char* call, int* errOut)
{
    const int error = errno;
    SL_TRACE_TO(log, "[ERROR] failed to %s. errno: %d. errno string: %s", call, error,
                strerror(error));
    report(errOut, -1);
    return SOCKET_FAILED;
}

int disconnected(const CLogger& log, int fd)
{
    SL_TRACE_TO(log, "[ERROR] peer has/was disconnected");
    SocketWrapper::close(fd);
    return SOCKET_LOST;
}

// A number of bytes, or a SocketStatus.
int sendOnce(const CLogger& log, int fd, const unsigned char* buf, unsigned long len, int* errOut)
{
    SL_TRACE_TO(log, "data to be sent");
    log.hex_dump(buf, static_cast<int>(len));
    SL_TRACE_TO(log, "before send(). ");
    const ssize_t sent = ::send(fd, buf, len, MSG_NOSIGNAL);
    const int error = errno;
    SL_TRACE_TO(log, "after send(). ret: %d", static_cast<int>(sent));
    if (sent == 0) {
        return disconnected(log, fd);
    }
    if (sent < 0) {
        errno = error;
        return failure(log, "send", errOut);
    }
    if (static_cast<unsigned long>(sent) < len) {
        SL_TRACE_TO(log, "data length required has not been sent yet;");
        SL_TRACE_TO(log, "total needed: %d; total sent: %d", static_cast<int>(len),
                    static_cast<int>(sent));
    }
    return static_cast<int>(sent);
}

}  // namespace

int SocketWrapper::wait(int fd, short events, long seconds, long microseconds,
                        const CancelToken* cancel)
{
    return Patience(seconds, microseconds, cancel).wait(fd, events);
}

int SocketWrapper::send(int fd, const unsigned char* buf, unsigned long len, long seconds,
                        long microseconds, int* errOut, const CancelToken* cancel)
{
    const CLogger log;
    SL_START_TO(log);
    if (!isUsable(fd, buf, len)) {
        SL_TRACE_TO(log, "Invalid parameter passed");
        SL_RETURN_TO(log, SOCKET_BAD_ARGUMENT);
    }
    SL_TRACE_TO(log, "Monitoring fd:%d for writing", fd);
    traceLimit(log, CLogger::debugEnabled(), seconds, microseconds);
    SL_TRACE_TO(log, "before send pselect(). ");
    const int ready = wait(fd, POLLOUT, seconds, microseconds, cancel);
    const int error = errno;
    SL_TRACE_TO(log, "after send pselect(). ret :%d", ready);

    int result = SOCKET_FAILED;
    if (ready < 0) {
        SL_TRACE_TO(log, "[ERROR] failed to pselect. errno: %d. errno string: %s", error,
                    strerror(error));
        report(errOut, error);
    } else if (ready == 0) {
        SL_TRACE_TO(log, "[ERROR] timeout elapsed. bytes written in previous send()'s: %d", 0);
        result = 0;
    } else {
        result = sendOnce(log, fd, buf, len, errOut);
    }
    SL_RETURN_TO(log, result < 0 ? result : static_cast<int>(len));
}

int SocketWrapper::receive(int fd, unsigned char* buf, unsigned long* len, bool waitAll,
                           long seconds, long microseconds, int* errOut, const CancelToken* cancel)
{
    const CLogger log;
    bool isTracing = CLogger::debugEnabled();
    SL_START_TO_IF(isTracing, log);
    if (len == nullptr || !isUsable(fd, buf, *len)) {
        SL_TRACE_TO_IF(isTracing, log, "Invalid parameter passed");
        SL_RETURN_TO_IF(isTracing, log, SOCKET_BAD_ARGUMENT);
    }
    const unsigned long wanted = *len;
    *len = 0;
    SL_TRACE_TO_IF(isTracing, log, "Monitoring fd:%d for reading", fd);
    traceLimit(log, isTracing, seconds, microseconds);
    limitReceiving(fd, seconds, microseconds);

    // The limit of a socket means none when it is zero.
    const bool isZero = seconds == 0 && microseconds == 0;
    Patience patience(isZero ? -1 : seconds, microseconds, cancel);
    const ssize_t received = receiveBytes(fd, buf, wanted, waitAll, patience);
    const int error = errno;
    // The switch may have been turned during a long wait.
    isTracing = CLogger::debugEnabled();
    SL_TRACE_TO_IF(isTracing, log, "after recv:. %d", static_cast<int>(received));
    int result = static_cast<int>(received);
    if (received == 0) {
        result = disconnected(log, fd);
    } else if (received < 0) {
        errno = error;
        result = failure(log, "recv", errOut);
    } else {
        *len = static_cast<unsigned long>(received);
    }
    SL_RETURN_TO_IF(isTracing, log, result);
}

int SocketWrapper::close(int fd)
{
    const CLogger log;
    SL_START_TO(log);
    SL_TRACE_TO(log, "closing socket: %d", fd);
    SL_RETURN_TO(log, ::close(fd));
}
