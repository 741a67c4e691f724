// SPDX-License-Identifier: LGPL-2.1-or-later
// One set of exported entry points, for a backend name.
#pragma once

#include "SaneInterface.h"

#define SCANLIB_EXPORT extern "C" __attribute__((visibility("default")))

#define SCANLIB_ENTRY_POINTS(prefix)                                                               \
    SCANLIB_EXPORT SANE_Status prefix##init(SANE_Int* version_code, SANE_Auth_Callback authorize)  \
    {                                                                                              \
        return entry::sane_ScanLib_init(version_code, authorize);                                  \
    }                                                                                              \
    SCANLIB_EXPORT void prefix##exit()                                                             \
    {                                                                                              \
        entry::sane_ScanLib_exit();                                                                \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##get_devices(const SANE_Device*** device_list,               \
                                                   SANE_Bool local_only)                           \
    {                                                                                              \
        return entry::sane_ScanLib_get_devices(device_list, local_only);                           \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##open(SANE_String_Const name, SANE_Handle* handle)           \
    {                                                                                              \
        return entry::sane_ScanLib_open(name, handle);                                             \
    }                                                                                              \
    SCANLIB_EXPORT void prefix##close(SANE_Handle handle)                                          \
    {                                                                                              \
        entry::sane_ScanLib_close(handle);                                                         \
    }                                                                                              \
    SCANLIB_EXPORT const SANE_Option_Descriptor* prefix##get_option_descriptor(SANE_Handle handle, \
                                                                               SANE_Int n)         \
    {                                                                                              \
        return entry::sane_ScanLib_get_option_descriptor(handle, n);                               \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##control_option(                                             \
        SANE_Handle handle, SANE_Int option, SANE_Action action, void* value, SANE_Int* info)      \
    {                                                                                              \
        return entry::sane_ScanLib_control_option(handle, option, action, value, info);            \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##get_parameters(SANE_Handle handle, SANE_Parameters* params) \
    {                                                                                              \
        return entry::sane_ScanLib_get_parameters(handle, params);                                 \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##start(SANE_Handle handle)                                   \
    {                                                                                              \
        return entry::sane_ScanLib_start(handle);                                                  \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##read(SANE_Handle handle, SANE_Byte* data,                   \
                                            SANE_Int max_length, SANE_Int* length)                 \
    {                                                                                              \
        return entry::sane_ScanLib_read(handle, data, max_length, length);                         \
    }                                                                                              \
    SCANLIB_EXPORT void prefix##cancel(SANE_Handle handle)                                         \
    {                                                                                              \
        entry::sane_ScanLib_cancel(handle);                                                        \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##set_io_mode(SANE_Handle handle, SANE_Bool non_blocking)     \
    {                                                                                              \
        return entry::sane_ScanLib_set_io_mode(handle, non_blocking);                              \
    }                                                                                              \
    SCANLIB_EXPORT SANE_Status prefix##get_select_fd(SANE_Handle handle, SANE_Int* fd)             \
    {                                                                                              \
        return entry::sane_ScanLib_get_select_fd(handle, fd);                                      \
    }
