// SPDX-License-Identifier: LGPL-2.1-or-later
// Calls that a signal handler must not make, but for the allocators and the log.
#include "Hooks.h"
#include "Next.h"

#include <cstdlib>

#include <pthread.h>

namespace {

Next<char*(const char*)> realGetenv("getenv");
Next<int(pthread_mutex_t*)> realLock("pthread_mutex_lock");

}  // namespace

extern "C" {

char* getenv(const char* name) noexcept
{
    hooks::noteUnsafe("getenv");
    return realGetenv(name);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    hooks::noteUnsafe("pthread_mutex_lock");
    return realLock(mutex);
}
}
