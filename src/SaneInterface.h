// SPDX-License-Identifier: LGPL-2.1-or-later
// The SANE entry points and the option set behind them.
#pragma once

#include <sane/sane.h>

class ScanLib;

// One option table for all handles; it describes the device that was opened last.
constexpr int kOptionCount = 12;

// Builds the option table for an opened device.
void InitOptions(ScanLib* engine);

// Makes the option store compute its values anew.
void UpdateOptions(ScanLib* engine);

// The number of resolutions, then the resolutions in the order of the device. malloc'd,
// freed by the caller; null without memory.
int* GetListValues(ScanLib* engine);

// The slot of a null-terminated list that holds exactly this string, or null.
const char* const* search_string_list(const char* const* list, const char* s);

// Checks a value against the option's constraint. A value outside of a range is moved
// to its limit, which adds SANE_INFO_INEXACT to *info.
SANE_Status CheckValue(const SANE_Option_Descriptor* option, void* value, int* info);

// The thirteen operations. The exported names of every backend name forward to these, so
// that no call inside the library can be bound to another backend's symbol.
namespace entry {

SANE_Status sane_ScanLib_init(SANE_Int* version_code, SANE_Auth_Callback authorize);
void sane_ScanLib_exit();
SANE_Status sane_ScanLib_get_devices(const SANE_Device*** device_list, SANE_Bool local_only);
SANE_Status sane_ScanLib_open(SANE_String_Const name, SANE_Handle* handle);
void sane_ScanLib_close(SANE_Handle handle);
const SANE_Option_Descriptor* sane_ScanLib_get_option_descriptor(SANE_Handle handle, SANE_Int n);
SANE_Status sane_ScanLib_control_option(SANE_Handle handle, SANE_Int option, SANE_Action action,
                                        void* value, SANE_Int* info);
SANE_Status sane_ScanLib_get_parameters(SANE_Handle handle, SANE_Parameters* params);
SANE_Status sane_ScanLib_start(SANE_Handle handle);
SANE_Status sane_ScanLib_read(SANE_Handle handle, SANE_Byte* data, SANE_Int max_length,
                              SANE_Int* length);
void sane_ScanLib_cancel(SANE_Handle handle);
SANE_Status sane_ScanLib_set_io_mode(SANE_Handle handle, SANE_Bool non_blocking);
SANE_Status sane_ScanLib_get_select_fd(SANE_Handle handle, SANE_Int* fd);

}  // namespace entry
