// SPDX-License-Identifier: LGPL-2.1-or-later
// A file that exists in memory only, for the backend's readers, which want a path.
#pragma once

#include <string>

namespace check {

class MemoryFile {
public:
    explicit MemoryFile(const std::string& text);
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

}  // namespace check
