// SPDX-License-Identifier: LGPL-2.1-or-later
/* A front end in C, whose process gets the C++ library with the backend: MODULE PREFIX DEVICE CALL.
 * All memory is used up behind the calls that come before CALL; that one has to return. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <sane/sane.h>
#include <sys/resource.h>
#include <unistd.h>

static void* library;
static const char* prefix;

static void* entry(const char* name)
{
    char symbol[100];
    snprintf(symbol, sizeof symbol, "sane_%s_%s", prefix, name);
    return dlsym(library, symbol);
}

static void useUpMemory(void)
{
    const struct rlimit none = {1, 1};
    setrlimit(RLIMIT_AS, &none);
    for (size_t size = 1 << 20; size >= 8; size /= 2) {
        while (malloc(size) != NULL) {
        }
    }
}

int main(int argc, char** argv)
{
    if (argc != 5 || (library = dlopen(argv[1], RTLD_NOW)) == NULL) {
        return 2;
    }
    prefix = argv[2];
    __typeof__(sane_init)* const init = (__typeof__(sane_init)*)entry("init");
    __typeof__(sane_get_devices)* const list = (__typeof__(sane_get_devices)*)entry("get_devices");
    __typeof__(sane_open)* const open = (__typeof__(sane_open)*)entry("open");
    __typeof__(sane_start)* const start = (__typeof__(sane_start)*)entry("start");
    const SANE_Device** devices = NULL;
    SANE_Handle handle = NULL;
    SANE_Status status = init(NULL, NULL);
    const int isStart = strcmp(argv[4], "start") == 0;
    if (isStart) {
        status = open(argv[3], &handle);
    }
    if (status != SANE_STATUS_GOOD) {
        return 2;
    }
    useUpMemory();
    if (isStart) {
        status = start(handle);
    } else if (strcmp(argv[4], "open") == 0) {
        status = open(argv[3], &handle);
    } else {
        status = list(&devices, SANE_FALSE);
    }
    return status == SANE_STATUS_GOOD ? 1 : 0;
}
