// SPDX-License-Identifier: LGPL-2.1-or-later
// Keeps the tests away from the files and the network of the machine.
#pragma once

#include <string>

// Moves the program into namespaces of its own, where mounts are private and there is no
// network. False, with the reason on stderr, where that is not possible.
bool enterSandbox();

// An empty folder over path as long as it lives. Needs the sandbox.
class EmptyFolder {
public:
    explicit EmptyFolder(const char* path);
    EmptyFolder(const EmptyFolder&) = delete;
    EmptyFolder& operator=(const EmptyFolder&) = delete;
    ~EmptyFolder();

    // Writes a file in it.
    void write(const std::string& name, const std::string& text) const;

private:
    std::string path_;
};
