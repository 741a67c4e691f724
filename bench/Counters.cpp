// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Counters.h"

#include <cstddef>

#include <dlfcn.h>
#include <link.h>
#include <sys/types.h>

#define COUNTERS_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using bench::Counts;

bool isCounting = false;
Counts counts;
ElfW(Addr) moduleBegin = 0;
ElfW(Addr) moduleEnd = 0;

template <typename Function>
Function* genuine(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int findModule(dl_phdr_info* module, size_t, void* member)
{
    ElfW(Addr) end = module->dlpi_addr;
    for (int i = 0; i < module->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = module->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD) {
            end = module->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        }
    }
    const auto address = reinterpret_cast<ElfW(Addr)>(member);
    if (address < module->dlpi_addr || address >= end) {
        return 0;
    }
    moduleBegin = module->dlpi_addr;
    moduleEnd = end;
    return 1;
}

void countCopy(const void* caller, std::size_t size)
{
    const auto address = reinterpret_cast<ElfW(Addr)>(caller);
    if (isCounting && address >= moduleBegin && address < moduleEnd) {
        counts.bytesCopied += static_cast<long>(size);
    }
}

}  // namespace

void bench::startCounting(const void* memberOfModule)
{
    dl_iterate_phdr(findModule, const_cast<void*>(memberOfModule));
    counts = {};
    isCounting = true;
}

bench::Counts bench::stopCounting()
{
    isCounting = false;
    return counts;
}

COUNTERS_EXPORT void* memcpy(void* to, const void* from, std::size_t size) noexcept
{
    static const auto real = genuine<void*(void*, const void*, std::size_t)>("memcpy");
    countCopy(__builtin_return_address(0), size);
    return real(to, from, size);
}

COUNTERS_EXPORT void* memmove(void* to, const void* from, std::size_t size) noexcept
{
    static const auto real = genuine<void*(void*, const void*, std::size_t)>("memmove");
    countCopy(__builtin_return_address(0), size);
    return real(to, from, size);
}

// glibc's own names: looking malloc up would need it.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

COUNTERS_EXPORT void* malloc(std::size_t size) noexcept
{
    counts.allocations += isCounting ? 1 : 0;
    return __libc_malloc(size);
}

COUNTERS_EXPORT void* calloc(std::size_t count, std::size_t size) noexcept
{
    counts.allocations += isCounting ? 1 : 0;
    return __libc_calloc(count, size);
}

COUNTERS_EXPORT void* realloc(void* block, std::size_t size) noexcept
{
    counts.allocations += isCounting ? 1 : 0;
    return __libc_realloc(block, size);
}

COUNTERS_EXPORT pid_t getpid() noexcept
{
    static const auto real = genuine<pid_t()>("getpid");
    counts.getpids += isCounting ? 1 : 0;
    return real();
}

COUNTERS_EXPORT char* getenv(const char* name) noexcept
{
    static const auto real = genuine<char*(const char*)>("getenv");
    counts.getenvs += isCounting ? 1 : 0;
    return real(name);
}
