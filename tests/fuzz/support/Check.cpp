// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Check.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned kRare = 0x5CA99E4;
volatile unsigned sum = 0;

}  // namespace

void fuzz::touch(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    unsigned total = 0;
    for (std::size_t i = 0; i < size; ++i) {
        total = total * 31 + bytes[i];
    }
    // Valgrind only complains about bytes that nobody wrote where something depends on them.
    if (total == kRare) {
        sum = sum + 1;
    }
    sum = sum + total;
}

void fuzz::touch(const char* text)
{
    if (text != nullptr) {
        touch(text, std::strlen(text) + 1);
    }
}

void fuzz::fail(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    std::abort();
}
