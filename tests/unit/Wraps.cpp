// SPDX-License-Identifier: LGPL-2.1-or-later
// The linker sends the calls of all that is linked statically through the functions
// below (--wrap).
#include "Allocations.h"

#include <cstddef>
#include <cstdio>
#include <new>

// In 32 bits the names of the C++ operators say that a size is an unsigned int.
#if __SIZEOF_POINTER__ == 4
#define __real__Znwm __real__Znwj
#define __real__Znam __real__Znaj
#define __real__ZnwmRKSt9nothrow_t __real__ZnwjRKSt9nothrow_t
#define __real__ZnamRKSt9nothrow_t __real__ZnajRKSt9nothrow_t
#define __wrap__Znwm __wrap__Znwj
#define __wrap__Znam __wrap__Znaj
#define __wrap__ZnwmRKSt9nothrow_t __wrap__ZnwjRKSt9nothrow_t
#define __wrap__ZnamRKSt9nothrow_t __wrap__ZnajRKSt9nothrow_t
#endif

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
char* __real_strdup(const char* text);
void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

std::size_t __real_fread(void* to, std::size_t size, std::size_t count, FILE* stream);

void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
char* __wrap_strdup(const char* text);
void* __wrap__Znwm(std::size_t size);
void* __wrap__Znam(std::size_t size);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, FILE* stream);

void* __wrap_malloc(std::size_t size)
{
    return Allocations::refuseNext() ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return Allocations::refuseNext() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* block, std::size_t size)
{
    return Allocations::refuseNext() ? nullptr : __real_realloc(block, size);
}

char* __wrap_strdup(const char* text)
{
    return Allocations::refuseNext() ? nullptr : __real_strdup(text);
}

void* __wrap__Znwm(std::size_t size)
{
    if (Allocations::refuseNext()) {
        throw std::bad_alloc();
    }
    return __real__Znwm(size);
}

void* __wrap__Znam(std::size_t size)
{
    if (Allocations::refuseNext()) {
        throw std::bad_alloc();
    }
    return __real__Znam(size);
}

void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag)
{
    return Allocations::refuseNext() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}

void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag)
{
    return Allocations::refuseNext() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}

std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, FILE* stream)
{
    return __real_fread(to, size, ShortReads::isOn() && count > 0 ? count - 1 : count, stream);
}
}
