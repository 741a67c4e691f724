// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Surroundings.h"

#include "Check.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point now{std::chrono::hours(1)};

std::map<std::string, std::string>& files()
{
    static std::map<std::string, std::string> all;
    return all;
}

bool isThere(const char* path)
{
    if (files().count(path) == 0) {
        errno = ENOENT;
        return false;
    }
    return true;
}

// A colour-correction function: adds the table's first byte to the bytes of every line.
int addFirst(unsigned char* data, int width, int lines, int stride, int isColour,
             unsigned char* lut, int lutSize)
{
    for (int line = 0; line < lines; ++line) {
        for (int i = 0; i < width * (isColour != 0 ? 3 : 1); ++i) {
            unsigned char& byte = data[line * stride + i];
            byte = static_cast<unsigned char>(byte + lut[0]);
        }
    }
    fuzz::touch(lut, static_cast<std::size_t>(lutSize));
    return 0;
}

}  // namespace

void fuzz::setLogging(bool isOn)
{
    setenv("ENABLE_SL_LOG", isOn ? "1" : "0", 1);
    setenv("ENABLE_SL_DUMP", isOn ? "1" : "0", 1);
}

void fuzz::passTime(std::chrono::milliseconds time)
{
    now += time;
}

void fuzz::putFile(const std::string& path, const std::string& content)
{
    files()[path] = content;
}

void fuzz::removeFiles()
{
    files().clear();
}

// ---- in place of the functions of the C and C++ libraries -----------------------------------

// Of std::chrono::steady_clock.
Clock::time_point clockNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

Clock::time_point clockNow()
{
    return now;
}

extern "C" {
void fuzz_syslog(int priority, const char* format, ...);
char** fuzz_backtrace_symbols(void* const* frames, int count);
FILE* fuzz_fopen(const char* path, const char* mode);
int fuzz_stat(const char* path, struct stat* info);
int fuzz_open(const char* path, int flags, ...);
void* fuzz_dlopen(const char* path, int flags);
void* fuzz_dlsym(void* handle, const char* name);
int fuzz_dlclose(void* handle);

void fuzz_syslog(int, const char* format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    fuzz::touch(text);
}

// The library finds its name in these.
char** fuzz_backtrace_symbols(void* const*, int count)
{
    static char symbol[] = "/lib/libsane-fuzzed.so.1(+0x1) [0x1]";
    auto** symbols = static_cast<char**>(malloc(static_cast<std::size_t>(count) * sizeof(char*)));
    std::fill_n(symbols, count, static_cast<char*>(symbol));
    return symbols;
}

FILE* fuzz_fopen(const char* path, const char*)
{
    if (!isThere(path)) {
        return nullptr;
    }
    std::string& content = files()[path];
    return fmemopen(content.data(), content.size(), "r");
}

int fuzz_stat(const char* path, struct stat* info)
{
    *info = {};
    return isThere(path) ? 0 : -1;
}

int fuzz_open(const char*, int, ...)
{
    errno = EACCES;
    return -1;
}

void* fuzz_dlopen(const char* path, int)
{
    return isThere(path) ? &now : nullptr;
}

void* fuzz_dlsym(void*, const char*)
{
    return reinterpret_cast<void*>(&addFirst);
}

int fuzz_dlclose(void*)
{
    return 0;
}
}
