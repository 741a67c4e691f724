// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "UsbDevice.h"

namespace scansim {

// A file system that looks like the kernel's usbfs: one bus folder "001" with a file for every
// plugged device. The programs' ioctls arrive through FUSE, which carries the ioctl's own struct;
// what its pointers point at is moved straight from and to the program's memory.
class UsbFs {
public:
    // The devices have to outlive the file system.
    explicit UsbFs(std::vector<UsbDevice*> devices);
    ~UsbFs();
    UsbFs(const UsbFs&) = delete;
    UsbFs& operator=(const UsbFs&) = delete;

    // Serves a FUSE connection that is already mounted. Throws std::runtime_error.
    void serve(int fuseFd);

    int fd() const;

    // Handles one request; false when the file system was unmounted.
    bool handleRequest();

    // To be called after anything has changed a device from outside.
    void devicesChanged();

private:
    struct OpenFile {
        UsbDevice* device = nullptr;
        UsbClient client;
        bool isWritable = false;
        fuse_pollhandle* poll = nullptr;
        fuse_req_t waitingReap = nullptr;
        std::uint64_t waitingReapArgument = 0;
    };

    static UsbFs& self(fuse_req_t request);
    static OpenFile& fileOf(const fuse_file_info* info);

    static void onLookup(fuse_req_t request, fuse_ino_t parent, const char* name);
    static void onGetAttr(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
    static void onReadDir(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
                          fuse_file_info* info);
    static void onOpen(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
    static void onRead(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
                       fuse_file_info* info);
    static void onRelease(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
    static void onPoll(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info,
                       fuse_pollhandle* handle);
    static void onIoctl(fuse_req_t request, fuse_ino_t inode, unsigned command, void* argument,
                        fuse_file_info* info, unsigned flags, const void* in, std::size_t inSize,
                        std::size_t outSize);

    UsbDevice* deviceOf(fuse_ino_t inode) const;
    bool attributes(fuse_ino_t inode, struct stat& st) const;
    std::vector<std::pair<std::string, fuse_ino_t>> entries(fuse_ino_t folder) const;
    void release(OpenFile& file);

    int ioctl(fuse_req_t request, OpenFile& file, unsigned command, std::uint64_t argument,
              bool& isAnswered);
    int control(fuse_req_t request, OpenFile& file, std::uint64_t argument, bool& isAnswered);
    int submit(fuse_req_t request, OpenFile& file, std::uint64_t argument);
    int reap(pid_t pid, OpenFile& file, std::uint64_t argument);
    int connectInfo(fuse_req_t request, const OpenFile& file, std::uint64_t argument);
    int driverIoctl(fuse_req_t request, OpenFile& file, std::uint64_t argument);
    void answerReap(OpenFile& file);
    void wake(OpenFile& file);

    std::vector<UsbDevice*> devices_;
    std::list<OpenFile> files_;
    fuse_session* session_ = nullptr;
    fuse_buf buffer_{};
};

}  // namespace scansim
