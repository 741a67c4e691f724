// SPDX-License-Identifier: LGPL-2.1-or-later
// Logging to syslog under environment switches, and the trace line format.
#pragma once

#include <cstdarg>

#include <pthread.h>
#include <unistd.h>

// Base of every class that logs. Nothing is written unless a switch is set:
//
//   ENABLE_SL_LOG=1    log_debug, log_error, log_fatal
//   ENABLE_INFO_LOG=1  log_info
//   ENABLE_SL_DUMP=1   hex_dump (its lines also need ENABLE_SL_LOG=1)
//
// The switches are read at every call. Each object formats in buffers of its
// own, so one object must not log from two threads at a time.
class CLogger {
public:
    // The buffers are scratch space: neither cleared nor copied.
    CLogger()
    {
        mbuf[0] = '\0';
        fbuf[0] = '\0';
    }
    CLogger(const CLogger&) : CLogger() {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    CLogger& operator=(const CLogger&) { return *this; }

    void log_debug(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void log_info(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void log_error(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    // Logs, then ends the process with status 1 (also while the switch is off).
    [[noreturn]] void log_fatal(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));

    // Logs size bytes in hexadecimal, 32 to a line.
    void hex_dump(const unsigned char* data, int size) const;

    // Copies fmt to dst (1024 bytes), with "%m" replaced by the text of errno.
    void do_percentm(char* dst, const char* fmt) const;

    // True while log_debug would write.
    static bool debugEnabled();

private:
    void emit(int priority, const char* fmt, va_list args) const;

    mutable char mbuf[1024];
    mutable char fbuf[1024];
};

// ---- trace lines ------------------------------------------------------------
// Every trace line starts with process, thread, source file, line and function.
// The macros test the switch first: while it is off, no argument is evaluated.

#define SL_PREFIX_FORMAT "[P:%d T:%d] %-15.15s : %-4d %-20.20s -- "
#define SL_PREFIX_ARGS \
    static_cast<int>(getpid()), static_cast<int>(pthread_self()), __FILE__, __LINE__, __func__

// Where a transfer writes several lines, the switch is read once for all of them: isOn is what
// debugEnabled() gave.
#define SL_TRACE_TO_IF(isOn, logger, fmt, ...)                                                   \
    do {                                                                                         \
        if (isOn) {                                                                              \
            (logger).log_debug(SL_PREFIX_FORMAT fmt, SL_PREFIX_ARGS __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                        \
    } while (0)

#define SL_TRACE_TO(logger, fmt, ...) \
    SL_TRACE_TO_IF(CLogger::debugEnabled(), logger, fmt __VA_OPT__(, ) __VA_ARGS__)

// Inside a member function of a class derived from CLogger.
#define SL_TRACE(fmt, ...) SL_TRACE_TO(*this, fmt __VA_OPT__(, ) __VA_ARGS__)
#define SL_TRACE_IF(isOn, fmt, ...) SL_TRACE_TO_IF(isOn, *this, fmt __VA_OPT__(, ) __VA_ARGS__)

#define SL_START_TO_IF(isOn, logger) \
    SL_TRACE_TO_IF(isOn, logger, "::::::::::::::: METHOD START ::::::::::::::: ")
#define SL_END_TO(logger) SL_TRACE_TO(logger, "::::::::::::::: METHOD END ::::::::::::::: ")
#define SL_RETURN_TO_IF(isOn, logger, result)                                         \
    do {                                                                              \
        const auto slResult_ = result;                                                \
        SL_TRACE_TO_IF(isOn, logger, "::::::::::::::: METHOD END ::::::::::::::: %d", \
                       static_cast<int>(slResult_));                                  \
        return slResult_;                                                             \
    } while (0)

#define SL_START_TO(logger) SL_START_TO_IF(CLogger::debugEnabled(), logger)
#define SL_START_IF(isOn) SL_START_TO_IF(isOn, *this)
#define SL_START() SL_START_TO(*this)
#define SL_END() SL_END_TO(*this)
#define SL_RETURN_TO(logger, result) SL_RETURN_TO_IF(CLogger::debugEnabled(), logger, result)
#define SL_RETURN_IF(isOn, result) SL_RETURN_TO_IF(isOn, *this, result)
#define SL_RETURN(result) SL_RETURN_TO(*this, result)
