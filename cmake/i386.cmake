# SPDX-License-Identifier: LGPL-2.1-or-later
# 32-bit x86, which the kernels of 64-bit systems run, too: all that they lack is the loader.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(triplet i686-linux-gnu)
set(multiarch i386-linux-gnu)
set(loader_option "-Wl,--dynamic-linker,/usr/${triplet}/lib/ld-linux.so.2")
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)
