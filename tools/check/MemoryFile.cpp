// SPDX-License-Identifier: LGPL-2.1-or-later
#include "MemoryFile.h"

#include <cerrno>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace check {

MemoryFile::MemoryFile(const std::string& text) : fd_(memfd_create("line", MFD_CLOEXEC))
{
    if (fd_ < 0 || write(fd_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        const int error = errno;
        if (fd_ >= 0) {
            close(fd_);
        }
        throw std::system_error(error, std::generic_category(), "a file in memory");
    }
    path_ = "/proc/self/fd/" + std::to_string(fd_);
}

MemoryFile::~MemoryFile()
{
    close(fd_);
}

}  // namespace check
