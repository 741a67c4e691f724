// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RemoteMemory.h"

namespace scansim {

namespace {

// process_vm_writev only reads what the local vector points at.
iovec piece(const void* address, std::size_t size)
{
    return {const_cast<void*>(address), size};
}

iovec remotePiece(std::uint64_t address, std::size_t size)
{
    return {reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), size};
}

}  // namespace

bool readMemory(pid_t pid, std::uint64_t address, void* to, std::size_t size)
{
    const iovec local = piece(to, size);
    const iovec remote = remotePiece(address, size);
    return size == 0 ||
           process_vm_readv(pid, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

bool writeMemory(pid_t pid, std::uint64_t address, const void* from, std::size_t size)
{
    const iovec local = piece(from, size);
    const iovec remote = remotePiece(address, size);
    return size == 0 || writeMemory(pid, &local, &remote, 1);
}

bool writeMemory(pid_t pid, const iovec* local, const iovec* remote, std::size_t count)
{
    std::size_t size = 0;
    for (std::size_t i = 0; i < count; ++i) {
        size += local[i].iov_len;
    }
    return process_vm_writev(pid, local, count, remote, count, 0) == static_cast<ssize_t>(size);
}

}  // namespace scansim
