// SPDX-License-Identifier: LGPL-2.1-or-later
// What fuzzers look at and insist on.
#pragma once

#include <cstddef>
#include <string>

namespace fuzz {

// Reads every byte, in a way that no compiler leaves out, so that the sanitizers see it.
void touch(const void* data, std::size_t size);
// All of a text, and its end.
void touch(const char* text);

[[noreturn]] void fail(const char* condition, const char* file, int line);

}  // namespace fuzz

#define FUZZ_CHECK(condition)                           \
    do {                                                \
        if (!(condition)) {                             \
            fuzz::fail(#condition, __FILE__, __LINE__); \
        }                                               \
    } while (0)
