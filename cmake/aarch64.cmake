# SPDX-License-Identifier: LGPL-2.1-or-later
# 64-bit Arm with Debian's cross compiler, or with clang and the libraries of that compiler. What
# is built runs in the emulator of qemu-user-static.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
# Programs need no libraries of the other processor's system.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
# Called by its name, since the kernel may not be set up to call it.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
