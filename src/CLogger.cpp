// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CLogger.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <syslog.h>

namespace {

constexpr size_t kBufferSize = 1024;
constexpr int kDumpBytesPerLine = 32;

bool isSwitchedOn(const char* variable)
{
    const char* value = getenv(variable);
    return value != nullptr && value[0] == '1' && value[1] == '\0';
}

}  // namespace

bool CLogger::debugEnabled()
{
    return isSwitchedOn("ENABLE_SL_LOG");
}

void CLogger::emit(int priority, const char* fmt, va_list args) const
{
    do_percentm(fbuf, fmt);
    vsnprintf(mbuf, sizeof mbuf, fbuf, args);
    syslog(priority, "%s", mbuf);
}

void CLogger::log_debug(const char* fmt, ...) const
{
    if (!debugEnabled()) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    emit(LOG_DEBUG, fmt, args);
    va_end(args);
}

void CLogger::log_info(const char* fmt, ...) const
{
    if (!isSwitchedOn("ENABLE_INFO_LOG")) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    emit(LOG_INFO, fmt, args);
    va_end(args);
}

void CLogger::log_error(const char* fmt, ...) const
{
    if (!debugEnabled()) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    emit(LOG_ERR, fmt, args);
    va_end(args);
}

void CLogger::log_fatal(const char* fmt, ...) const
{
    if (debugEnabled()) {
        va_list args;
        va_start(args, fmt);
        emit(LOG_ERR, fmt, args);
        va_end(args);
    }
    exit(1);
}

void CLogger::do_percentm(char* dst, const char* fmt) const
{
    const int error = errno;
    size_t used = 0;
    bool afterPercent = false;

    for (; *fmt != '\0'; ++fmt) {
        if (afterPercent && *fmt == 'm') {
            const char* text = strerror(error);
            if (text == nullptr) {
                text = "<unknown error>";
            }
            --used;  // the "%" copied before
            while (*text != '\0' && used < kBufferSize - 1) {
                dst[used++] = *text++;
            }
            afterPercent = false;
            continue;
        }
        if (used >= kBufferSize - 1) {
            break;
        }
        afterPercent = !afterPercent && *fmt == '%';
        dst[used++] = *fmt;
    }
    dst[used] = '\0';
}

void CLogger::hex_dump(const unsigned char* data, int size) const
{
    if (!isSwitchedOn("ENABLE_SL_DUMP")) {
        return;
    }
    log_debug("(size: %d)", size);

    char line[kDumpBytesPerLine * 3 + 1];
    std::ptrdiff_t column = 0;
    for (int i = 0; i < size; ++i) {
        snprintf(line + column * 3, 4, "%.2x ", static_cast<unsigned>(data[i]));
        if (++column == kDumpBytesPerLine) {
            log_debug("%s", line);
            column = 0;
        }
    }
    if (column > 0) {
        log_debug("%s", line);
    }
}
