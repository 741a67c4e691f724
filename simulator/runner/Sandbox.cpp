// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

namespace scansim {

namespace {

constexpr const char* kFuseDevice = "/dev/fuse";
constexpr const char* kTmp = "/tmp";

std::string reason()
{
    return std::strerror(errno);
}

int openFuse()
{
    const int fd = open(kFuseDevice, O_RDWR | O_CLOEXEC);
    if (fd >= 0) {
        return fd;
    }
    if (errno == EACCES || errno == EPERM) {
        throw SandboxError(
            "no permission to open /dev/fuse (" + reason() +
            "): let this user read and write it (chmod 0666 /dev/fuse), or run as root; "
            "in a container, allow the device (for example --device /dev/fuse)");
    }
    throw SandboxError(
        "/dev/fuse is missing (" + reason() +
        "): load the kernel module (modprobe fuse); in a container, pass the device through "
        "(for example --device /dev/fuse)");
}

void checkPrerequisites()
{
    close(openFuse());
    struct stat st {};
    if (stat(Sandbox::saneFolder().c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        throw SandboxError(
            "the folder /etc/sane.d is missing: install SANE (apt-get install libsane1 "
            "sane-utils)");
    }
}

void writeFile(const char* path, const std::string& text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    const bool isWritten =
        fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const std::string why = reason();
    close(fd);
    if (!isWritten) {
        throw SandboxError(std::string("cannot write ") + path + ": " + why);
    }
}

std::string identity(unsigned id)
{
    return std::to_string(id) + " " + std::to_string(id) + " 1";
}

// The user stays who he is, but may mount inside.
void enterUserNamespace()
{
    const std::string uid = identity(geteuid());
    const std::string gid = identity(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        throw SandboxError(
            "user namespaces are not allowed (" + reason() +
            "): run as root, or allow them (sysctl kernel.unprivileged_userns_clone=1, "
            "user.max_user_namespaces above 0, and "
            "kernel.apparmor_restrict_unprivileged_userns=0 where these exist)");
    }
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", uid);
    writeFile("/proc/self/gid_map", gid);
}

void enterNamespaces()
{
    if (geteuid() != 0) {
        enterUserNamespace();
    } else if (unshare(CLONE_NEWNS) != 0) {
        throw SandboxError(
            "no mount namespace (" + reason() +
            "): root needs CAP_SYS_ADMIN here; in a container, add it "
            "(for example --cap-add SYS_ADMIN) or run as an ordinary user with user namespaces");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw SandboxError("cannot make the mounts private: " + reason());
    }
}

void mountTmpfs(const char* path, const char* options)
{
    if (mount("tmpfs", path, "tmpfs", MS_NOSUID | MS_NODEV, options) != 0) {
        throw SandboxError(std::string("cannot mount a temporary file system on ") + path + ": " +
                           reason());
    }
}

void makeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0755) != 0) {
        throw SandboxError("cannot make " + path + ": " + reason());
    }
}

// The folders right below /tmp that hold one of the paths, each opened.
std::map<std::string, int> openFoldersOfTmp(const std::vector<std::string>& paths)
{
    std::map<std::string, int> folders;
    for (const std::string& path : paths) {
        const std::string prefix = std::string(kTmp) + "/";
        const std::string folder = path.substr(0, path.find('/', prefix.size()));
        if (path.compare(0, prefix.size(), prefix) != 0 || folders.count(folder) > 0) {
            continue;
        }
        const int fd = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) {
            folders[folder] = fd;
        }
    }
    return folders;
}

}  // namespace

Sandbox::Sandbox()
{
    checkPrerequisites();
    enterNamespaces();
    mountTmpfs(saneFolder().c_str(), "mode=0755");
    makeFolder(privateFolder());
    makeFolder(usbFolder());
}

void Sandbox::makePrivateTmp(const std::vector<std::string>& visible)
{
    const std::map<std::string, int> folders = openFoldersOfTmp(visible);
    mountTmpfs(kTmp, "mode=1777");
    for (const auto& [folder, fd] : folders) {
        makeFolder(folder);
        const std::string old = "/proc/self/fd/" + std::to_string(fd);
        if (mount(old.c_str(), folder.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            throw SandboxError("cannot show " + folder + " in the private /tmp: " + reason());
        }
        close(fd);
    }
}

int Sandbox::mountUsbFs()
{
    const int fd = openFuse();
    const std::string options = "fd=" + std::to_string(fd) +
                                ",rootmode=40000,user_id=" + std::to_string(geteuid()) +
                                ",group_id=" + std::to_string(getegid()) + ",allow_other";
    if (mount("scanner-sim", usbFolder().c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) !=
        0) {
        const std::string why = reason();
        close(fd);
        throw SandboxError("cannot mount a FUSE file system: " + why);
    }
    return fd;
}

}  // namespace scansim
