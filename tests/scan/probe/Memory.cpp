// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Memory.h"

#include "Allocations.h"
#include "Hooks.h"
#include "Next.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <link.h>

namespace memory {

namespace {

// An open hash table of addresses. They are disguised: a leak checker that finds them here would
// take what they lead to for used.
constexpr std::size_t kRows = 1 << 16;
constexpr std::uintptr_t kDisguise = ~std::uintptr_t{0};
std::uintptr_t rows[kRows];
int count = 0;
thread_local bool isRemembering = false;
// Of operator new, which may or may not be made of malloc.
thread_local int depth = 0;

std::size_t rowOf(std::uintptr_t disguised)
{
    return (disguised >> 4) * 0x9E3779B1u % kRows;
}

void insert(std::uintptr_t disguised)
{
    std::size_t row = rowOf(disguised);
    while (rows[row] != 0) {
        row = (row + 1) % kRows;
    }
    rows[row] = disguised;
}

void* note(void* block)
{
    if (isRemembering && block != nullptr) {
        insert(reinterpret_cast<std::uintptr_t>(block) ^ kDisguise);
        ++count;
    }
    return block;
}

// What follows in the table moves up.
void removeRow(std::size_t row)
{
    rows[row] = 0;
    --count;
    for (row = (row + 1) % kRows; rows[row] != 0; row = (row + 1) % kRows) {
        const std::uintptr_t moved = rows[row];
        rows[row] = 0;
        insert(moved);
    }
}

void forget(void* block)
{
    if (count == 0 || block == nullptr) {
        return;
    }
    const std::uintptr_t disguised = reinterpret_cast<std::uintptr_t>(block) ^ kDisguise;
    std::size_t row = rowOf(disguised);
    while (rows[row] != 0 && rows[row] != disguised) {
        row = (row + 1) % kRows;
    }
    if (rows[row] != 0) {
        removeRow(row);
    }
}

struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};
Range spared = {0, 0};

int findRange(dl_phdr_info* library, std::size_t /*size*/, void* name)
{
    if (strstr(library->dlpi_name, static_cast<const char*>(name)) == nullptr) {
        return 0;
    }
    for (int i = 0; i < library->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = library->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
            spared.begin = library->dlpi_addr + segment.p_vaddr;
            spared.end = spared.begin + segment.p_memsz;
        }
    }
    return 1;
}

bool refuse(const char* name, const void* caller)
{
    hooks::noteUnsafe(name);
    const std::uintptr_t from = reinterpret_cast<std::uintptr_t>(caller);
    const bool isSpared = from >= spared.begin && from < spared.end;
    const bool isRefused = depth == 0 && !isSpared && Allocations::refuseNext();
    if (isRefused) {
        errno = ENOMEM;
    }
    return isRefused;
}

Next<void*(std::size_t)> realMalloc("malloc");
Next<void*(std::size_t, std::size_t)> realCalloc("calloc");
Next<void*(void*, std::size_t)> realRealloc("realloc");
Next<void(void*)> realFree("free");
Next<void*(std::size_t)> realNew("_Znwm");
Next<void*(std::size_t)> realNewArray("_Znam");

template <typename Real>
void* allocate(Real& real, std::size_t size, const char* name)
{
    if (refuse(name, nullptr)) {
        return nullptr;
    }
    ++depth;
    void* block = real(size);
    --depth;
    return block;
}

template <typename Real>
void* allocateOrThrow(Real& real, std::size_t size)
{
    void* block = allocate(real, size, "new");
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void spare(const char* library)
{
    dl_iterate_phdr(findRange, const_cast<char*>(library));
}

void remember(bool isOn)
{
    isRemembering = isOn;
}

int remembered()
{
#ifdef PROBE_LEAK_CHECKER
    // Its operator delete does not come by here, and it looks for leaks itself.
    return 0;
#else
    return count;
#endif
}

}  // namespace memory

extern "C" {

// A leak checker does not see who asks for memory, which the dynamic linker never frees.
const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions()
{
    return "leak:_dl_\n";
}

void* malloc(std::size_t size)
{
    return memory::refuse("malloc", __builtin_return_address(0))
               ? nullptr
               : memory::note(memory::realMalloc(size));
}

void* calloc(std::size_t count, std::size_t size)
{
    return memory::refuse("calloc", __builtin_return_address(0))
               ? nullptr
               : memory::note(memory::realCalloc(count, size));
}

void* realloc(void* block, std::size_t size)
{
    if (memory::refuse("realloc", __builtin_return_address(0))) {
        return nullptr;
    }
    memory::forget(block);
    return memory::note(memory::realRealloc(block, size));
}

void free(void* block)
{
    // dlsym frees its last message, before it finds this.
    static thread_local bool isSought = false;
    if (!memory::realFree.isFound() && std::exchange(isSought, true)) {
        return;
    }
    hooks::noteUnsafe("free");
    memory::forget(block);
    memory::realFree(block);
}
}

void* operator new(std::size_t size)
{
    return memory::allocateOrThrow(memory::realNew, size);
}

void* operator new[](std::size_t size)
{
    return memory::allocateOrThrow(memory::realNewArray, size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return memory::allocate(memory::realNew, size, "new");
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return memory::allocate(memory::realNewArray, size, "new");
}
