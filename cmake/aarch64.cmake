# 64-bit Arm with Debian's cross compiler; what is built runs under the emulator of qemu-user-static.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Programs need no libraries of the other processor's system.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
# Called by its name, since the kernel may not be set up to call it.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
