// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>

#include <dlfcn.h>

// The function of that name behind this program's own. Usable from the first call on, in signal
// handlers, too.
template <typename Signature>
class Next;

template <typename Result, typename... Arguments>
class Next<Result(Arguments...)> {
public:
    constexpr explicit Next(const char* name) : name_(name) {}
    Result operator()(Arguments... arguments)
    {
        auto function = function_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name_));
            function_.store(function, std::memory_order_relaxed);
        }
        return function(arguments...);
    }
    // It has been looked for.
    bool isFound() const { return function_.load(std::memory_order_relaxed) != nullptr; }

private:
    const char* name_;
    std::atomic<Result (*)(Arguments...)> function_{nullptr};
};
