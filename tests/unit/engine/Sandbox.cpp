// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sandbox.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

bool putText(const char* path, const std::string& text)
{
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

bool complain(const char* what)
{
    std::fprintf(stderr, "sandbox: %s: %s\n", what, std::strerror(errno));
    return false;
}

// An ordinary user becomes root of a user namespace.
bool becomeRoot()
{
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER) != 0) {
        return complain("user namespaces are not allowed");
    }
    return (putText("/proc/self/setgroups", "deny") &&
            putText("/proc/self/uid_map", "0 " + uid + " 1") &&
            putText("/proc/self/gid_map", "0 " + gid + " 1")) ||
           complain("no identity in the user namespace");
}

}  // namespace

bool enterSandbox()
{
    if (geteuid() != 0 && !becomeRoot()) {
        return false;
    }
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0) {
        return complain("no namespaces");
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ||
           complain("mounts cannot be made private");
}

EmptyFolder::EmptyFolder(const char* path) : path_(path)
{
    EXPECT_EQ(mount("none", path, "tmpfs", 0, nullptr), 0) << path << ": " << std::strerror(errno);
}

EmptyFolder::~EmptyFolder()
{
    umount2(path_.c_str(), MNT_DETACH);
}

void EmptyFolder::write(const std::string& name, const std::string& text) const
{
    EXPECT_TRUE(putText((path_ + "/" + name).c_str(), text));
}
