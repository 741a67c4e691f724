// SPDX-License-Identifier: LGPL-2.1-or-later
// The allocators of the whole process, the library's and the C library's own calls included, go
// through this program: they obey Allocations, and what they leave behind can be counted.
#pragma once

namespace memory {

// Nothing is refused to the loaded library whose file name contains that.
void spare(const char* library);

// From now on the calling thread's allocations are remembered until they are freed.
void remember(bool isOn);
// How many are.
int remembered();

}  // namespace memory
