# SPDX-License-Identifier: LGPL-2.1-or-later
# 64-bit Arm with libraries, in the emulator of qemu-user-static. (aarch64.cmake is for programs that
# need none.)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triplet aarch64-linux-gnu)
set(multiarch aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L /usr/${triplet})
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)
