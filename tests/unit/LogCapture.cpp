// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LogCapture.h"

#include "Allocations.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

constexpr const char* kSwitch = "ENABLE_SL_LOG";
// The lines of a function's start and end, and the separator in front of a message.
constexpr const char* kStart = "::::::::::::::: METHOD START ";
constexpr const char* kEnd = "::::::::::::::: METHOD END ";
constexpr const char* kSeparator = " -- ";

struct Record {
    int priority;
    std::string text;
};

std::mutex mutex;
int captures = 0;
std::vector<Record> records;

void keep(int priority, const char* format, va_list args)
{
    const Allocations::Pause pause;
    va_list again;
    va_copy(again, args);
    const int size = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(std::max(size, 0)) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, args);
    text.pop_back();

    const std::lock_guard<std::mutex> lock(mutex);
    if (captures > 0) {
        records.push_back({priority, std::move(text)});
    }
}

template <typename Result, typename Get>
std::vector<Result> collect(Get get)
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<Result> result;
    for (const Record& record : records) {
        result.push_back(get(record));
    }
    return result;
}

bool startsWith(const std::string& text, const char* prefix)
{
    return text.rfind(prefix, 0) == 0;
}

}  // namespace

// ---- the functions of the C library ----------------------------------------
// <syslog.h> stays out: with fortification on it defines some of them inline.

extern "C" {
__attribute__((visibility("default"), format(printf, 2, 3))) void syslog(int, const char*, ...);
__attribute__((visibility("default"), format(printf, 2, 0))) void vsyslog(int, const char*,
                                                                          va_list);
__attribute__((visibility("default"), format(printf, 3, 4))) void __syslog_chk(int, int,
                                                                               const char*, ...);
__attribute__((visibility("default"), format(printf, 3, 0))) void __vsyslog_chk(int, int,
                                                                                const char*,
                                                                                va_list);

void syslog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    keep(priority, format, args);
    va_end(args);
}

void vsyslog(int priority, const char* format, va_list args)
{
    keep(priority, format, args);
}

void __syslog_chk(int priority, int, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    keep(priority, format, args);
    va_end(args);
}

void __vsyslog_chk(int priority, int, const char* format, va_list args)
{
    keep(priority, format, args);
}
}

// ---- the capture ------------------------------------------------------------

LogCapture::LogCapture()
{
    if (const char* value = getenv(kSwitch)) {
        before = value;
    }
    setenv(kSwitch, "1", 1);
    const std::lock_guard<std::mutex> lock(mutex);
    ++captures;
    records.clear();
}

LogCapture::~LogCapture()
{
    if (before) {
        setenv(kSwitch, before->c_str(), 1);
    } else {
        unsetenv(kSwitch);
    }
    const std::lock_guard<std::mutex> lock(mutex);
    --captures;
    records.clear();
}

LogCapture::Pause::Pause()
{
    unsetenv(kSwitch);
}

LogCapture::Pause::~Pause()
{
    setenv(kSwitch, "1", 1);
}

std::vector<std::string> LogCapture::lines() const
{
    return collect<std::string>([](const Record& record) { return record.text; });
}

std::vector<int> LogCapture::priorities() const
{
    return collect<int>([](const Record& record) { return record.priority; });
}

std::vector<std::string> LogCapture::messages() const
{
    return collect<std::string>([](const Record& record) { return withoutPrefix(record.text); });
}

std::vector<std::string> LogCapture::plainMessages() const
{
    std::vector<std::string> result = messages();
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](const std::string& message) {
                                    return startsWith(message, kStart) || startsWith(message, kEnd);
                                }),
                 result.end());
    return result;
}

int LogCapture::count(const std::string& text) const
{
    const std::vector<std::string> all = lines();
    return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const std::string& line) {
        return line.find(text) != std::string::npos;
    }));
}

void LogCapture::clear()
{
    const std::lock_guard<std::mutex> lock(mutex);
    records.clear();
}

std::string LogCapture::withoutPrefix(const std::string& line)
{
    if (!startsWith(line, "[P:")) {
        return line;
    }
    const std::size_t separator = line.find(kSeparator);
    return separator == std::string::npos ? line
                                          : line.substr(separator + std::string(kSeparator).size());
}
