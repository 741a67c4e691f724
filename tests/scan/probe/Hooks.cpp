// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Hooks.h"

#include "Next.h"

#include <atomic>
#include <cstdarg>
#include <utility>

#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

namespace hooks {

namespace {

constexpr std::size_t kLongestTrace = 1 << 20;
constexpr unsigned char kCancelCode = 0x0F;
constexpr unsigned char kUnlockCode = 0x06;
constexpr long long kNanoseconds = 1000000000LL;

Next<int(int, unsigned long, void*)> realIoctl("ioctl");
Next<ssize_t(int, void*, size_t, int)> realRecv("recv");
Next<ssize_t(int, const void*, size_t, int)> realSend("send");
Next<int(int, const sockaddr*, socklen_t)> realConnect("connect");
Next<int(pollfd*, nfds_t, int)> realPoll("poll");

struct State {
    bool isOn = false;
    std::string trace;
    int place = -1;
    bool alsoLater = false;
    int stuckAfter = 0;
    int waits = 0;
    int actedAt = -1;
    void (*action)() = nullptr;
};
State state;
// Transfers of other threads, which carry out a cancel by themselves, are not of interest.
thread_local bool isWatched = false;

void act()
{
    if (state.actedAt < 0) {
        state.actedAt = static_cast<int>(state.trace.size()) - 1;
    }
    state.action();
}

void note(char letter)
{
    if (!isWatched || !state.isOn) {
        return;
    }
    const bool isSameWait = letter == 'w' && !state.trace.empty() && state.trace.back() == 'w';
    state.waits = isSameWait ? state.waits + 1 : 1;
    if (letter == 'w' && state.stuckAfter > 0 && state.waits == state.stuckAfter &&
        state.actedAt < 0) {
        act();
    }
    if (isSameWait || state.trace.size() == kLongestTrace) {
        return;
    }
    state.trace += letter;
    const int place = static_cast<int>(state.trace.size()) - 1;
    if (state.place >= 0 && (place == state.place || (place > state.place && state.alsoLater))) {
        act();
    }
}

// Commands stop a job, or not. They may have a frame around them.
char letterOf(const void* bytes, std::size_t size)
{
    const unsigned char* command = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i + 2 < size; ++i) {
        if (command[i] == 0x1B && command[i + 1] == 'S') {
            return command[i + 2] == kCancelCode ? 'X' : command[i + 2] == kUnlockCode ? 'U' : 'W';
        }
    }
    return 'W';
}

thread_local bool isUnsafeCounted = false;
thread_local int unsafeCalls = 0;
thread_local const char* firstUnsafe = "";

// The process's clocks are the kernel's times a factor, from the last change of it on.
struct Clock {
    std::atomic<int> speed{1};
    std::atomic<long long> realOrigin{0};
    std::atomic<long long> origin{0};
};
Clock clocks[2];  // of the time of day, and of all that only run on

long long realTime(clockid_t id)
{
    timespec time = {};
    syscall(SYS_clock_gettime, id, &time);
    return time.tv_sec * kNanoseconds + time.tv_nsec;
}

Clock& clockOf(clockid_t id)
{
    return clocks[id == CLOCK_REALTIME ? 0 : 1];
}

long long ownTime(clockid_t id)
{
    const Clock& clock = clockOf(id);
    return clock.origin + (realTime(id) - clock.realOrigin) * clock.speed;
}

}  // namespace

void Transfers::start()
{
    std::string trace = std::move(state.trace);
    trace.clear();
    trace.reserve(kLongestTrace);
    state = State();
    state.trace = std::move(trace);
    state.isOn = true;
    isWatched = true;
}

void Transfers::stop()
{
    state.isOn = false;
}

const std::string& Transfers::trace()
{
    return state.trace;
}

void Transfers::actAt(int place, void (*action)(), bool alsoLater)
{
    state.place = place;
    state.action = action;
    state.alsoLater = alsoLater;
}

void Transfers::actWhenStuck(int waits, void (*action)())
{
    state.stuckAfter = waits;
    state.action = action;
}

int Transfers::actedAt()
{
    return state.actedAt;
}

Unsafe::Unsafe()
{
    unsafeCalls = 0;
    firstUnsafe = "";
    isUnsafeCounted = true;
}

Unsafe::~Unsafe()
{
    isUnsafeCounted = false;
}

int Unsafe::count()
{
    return unsafeCalls;
}

const char* Unsafe::firstName()
{
    return firstUnsafe;
}

void noteUnsafe(const char* name)
{
    if (isUnsafeCounted && unsafeCalls++ == 0) {
        firstUnsafe = name;
    }
}

void setClockSpeed(int times)
{
    for (const clockid_t id : {CLOCK_REALTIME, CLOCK_MONOTONIC}) {
        Clock& clock = clockOf(id);
        const long long own = ownTime(id);
        clock.realOrigin = realTime(id);
        clock.origin = own;
        clock.speed = times;
    }
}

double now()
{
    return static_cast<double>(ownTime(CLOCK_MONOTONIC)) / static_cast<double>(kNanoseconds);
}

}  // namespace hooks

using hooks::note;
using hooks::noteUnsafe;

extern "C" {

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == USBDEVFS_SUBMITURB) {
        const usbdevfs_urb* urb = static_cast<const usbdevfs_urb*>(argument);
        const std::size_t size = static_cast<std::size_t>(urb->buffer_length);
        note((urb->endpoint & 0x80) != 0 ? 'R' : hooks::letterOf(urb->buffer, size));
    } else if (request == USBDEVFS_REAPURBNDELAY) {
        note('w');
    }
    return hooks::realIoctl(fd, request, argument);
}

ssize_t recv(int fd, void* buffer, size_t size, int flags)
{
    note('R');
    return hooks::realRecv(fd, buffer, size, flags);
}

ssize_t send(int fd, const void* buffer, size_t size, int flags)
{
    note(hooks::letterOf(buffer, size));
    return hooks::realSend(fd, buffer, size, flags);
}

int connect(int fd, const sockaddr* address, socklen_t size)
{
    note('C');
    return hooks::realConnect(fd, address, size);
}

int poll(pollfd* descriptors, nfds_t count, int timeout)
{
    note('w');
    return hooks::realPoll(descriptors, count, timeout);
}

int clock_gettime(clockid_t id, timespec* time) noexcept
{
    const long long own = hooks::ownTime(id);
    time->tv_sec = own / hooks::kNanoseconds;
    time->tv_nsec = own % hooks::kNanoseconds;
    return 0;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    const long long own = hooks::ownTime(CLOCK_REALTIME);
    time->tv_sec = own / hooks::kNanoseconds;
    time->tv_usec = own % hooks::kNanoseconds / 1000;
    return 0;
}

// Nothing is logged in earnest: whether something would be is all that counts.
void syslog(int /*priority*/, const char* /*format*/, ...)
{
    noteUnsafe("syslog");
}

void __syslog_chk(int /*priority*/, int /*flag*/, const char* /*format*/, ...);
void __syslog_chk(int /*priority*/, int /*flag*/, const char* /*format*/, ...)
{
    noteUnsafe("syslog");
}
}
