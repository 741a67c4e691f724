// SPDX-License-Identifier: LGPL-2.1-or-later
#include "UsbFs.h"

#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "RemoteMemory.h"

namespace scansim {

namespace {

constexpr fuse_ino_t kRoot = FUSE_ROOT_ID;
constexpr fuse_ino_t kBus = 2;
constexpr fuse_ino_t kFirstDevice = 16;  // inode of device file number 0
constexpr unsigned kMaxTransfer = 1 << 20;
constexpr const char* kBusName = "001";

std::string fileName(unsigned number)
{
    char name[16];
    std::snprintf(name, sizeof name, "%03u", number);
    return name;
}

pid_t pidOf(fuse_req_t request)
{
    return fuse_req_ctx(request)->pid;
}

// The argument of an ioctl, read from the program's memory.
template <class Value>
bool fetch(fuse_req_t request, std::uint64_t address, Value& value)
{
    return readMemory(pidOf(request), address, &value, sizeof value);
}

bool isReap(unsigned command)
{
    return command == USBDEVFS_REAPURB || command == USBDEVFS_REAPURBNDELAY;
}

}  // namespace

UsbFs::UsbFs(std::vector<UsbDevice*> devices) : devices_(std::move(devices)) {}

UsbFs::~UsbFs()
{
    while (!files_.empty()) {
        release(files_.front());
    }
    if (session_ != nullptr) {
        fuse_session_destroy(session_);
    }
    std::free(buffer_.mem);
}

void UsbFs::serve(int fuseFd)
{
    fuse_lowlevel_ops operations{};
    operations.lookup = onLookup;
    operations.getattr = onGetAttr;
    operations.readdir = onReadDir;
    operations.open = onOpen;
    operations.read = onRead;
    operations.release = onRelease;
    operations.poll = onPoll;
    operations.ioctl = onIoctl;
    char name[] = "scanner-sim";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    session_ = fuse_session_new(&args, &operations, sizeof operations, this);
    fuse_opt_free_args(&args);
    const std::string mountPoint = "/dev/fd/" + std::to_string(fuseFd);
    if (session_ == nullptr || fuse_session_mount(session_, mountPoint.c_str()) != 0) {
        throw std::runtime_error("libfuse3 refuses to serve the simulated usbfs");
    }
}

int UsbFs::fd() const
{
    return fuse_session_fd(session_);
}

bool UsbFs::handleRequest()
{
    const int size = fuse_session_receive_buf(session_, &buffer_);
    if (size > 0) {
        fuse_session_process_buf(session_, &buffer_);
    }
    return (size > 0 || size == -EINTR || size == -EAGAIN) && fuse_session_exited(session_) == 0;
}

UsbFs& UsbFs::self(fuse_req_t request)
{
    return *static_cast<UsbFs*>(fuse_req_userdata(request));
}

UsbFs::OpenFile& UsbFs::fileOf(const fuse_file_info* info)
{
    return *reinterpret_cast<OpenFile*>(static_cast<std::uintptr_t>(info->fh));
}

UsbDevice* UsbFs::deviceOf(fuse_ino_t inode) const
{
    const auto found =
        std::find_if(devices_.begin(), devices_.end(), [inode](const UsbDevice* device) {
            return device->isPlugged() && device->number() + kFirstDevice == inode;
        });
    return found == devices_.end() ? nullptr : *found;
}

bool UsbFs::attributes(fuse_ino_t inode, struct stat& st) const
{
    st = {};
    st.st_ino = inode;
    st.st_uid = geteuid();
    st.st_gid = getegid();
    if (inode == kRoot || inode == kBus) {
        st.st_mode = S_IFDIR | 0755;
        st.st_nlink = 2;
        return true;
    }
    const UsbDevice* device = deviceOf(inode);
    if (device == nullptr) {
        return false;
    }
    st.st_mode = static_cast<mode_t>(S_IFREG | (device->model().isReadOnly ? 0444 : 0666));
    st.st_nlink = 1;
    st.st_size = static_cast<off_t>(device->descriptors().size());
    return true;
}

std::vector<std::pair<std::string, fuse_ino_t>> UsbFs::entries(fuse_ino_t folder) const
{
    std::vector<std::pair<std::string, fuse_ino_t>> result = {{".", folder}, {"..", kRoot}};
    if (folder == kRoot) {
        result.emplace_back(kBusName, kBus);
        return result;
    }
    for (const UsbDevice* device : devices_) {
        if (device->isPlugged()) {
            result.emplace_back(fileName(device->number()), device->number() + kFirstDevice);
        }
    }
    return result;
}

void UsbFs::onLookup(fuse_req_t request, fuse_ino_t parent, const char* name)
{
    for (const auto& [entryName, inode] : self(request).entries(parent)) {
        fuse_entry_param entry{};
        if (entryName == name && self(request).attributes(inode, entry.attr)) {
            entry.ino = inode;
            fuse_reply_entry(request, &entry);
            return;
        }
    }
    fuse_reply_err(request, ENOENT);
}

void UsbFs::onGetAttr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*)
{
    struct stat st;
    if (self(request).attributes(inode, st)) {
        fuse_reply_attr(request, &st, 0);
    } else {
        fuse_reply_err(request, ENOENT);
    }
}

void UsbFs::onReadDir(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
                      fuse_file_info*)
{
    const auto all = self(request).entries(inode);
    std::vector<char> buffer(size);
    std::size_t used = 0;
    for (std::size_t i = static_cast<std::size_t>(offset); i < all.size(); ++i) {
        struct stat st {};
        st.st_ino = all[i].second;
        const std::size_t needed =
            fuse_add_direntry(request, buffer.data() + used, size - used, all[i].first.c_str(), &st,
                              static_cast<off_t>(i + 1));
        if (needed > size - used) {
            break;
        }
        used += needed;
    }
    fuse_reply_buf(request, buffer.data(), used);
}

void UsbFs::onOpen(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info)
{
    UsbFs& fs = self(request);
    UsbDevice* device = fs.deviceOf(inode);
    if (device == nullptr) {
        fuse_reply_err(request, inode == kRoot || inode == kBus ? EISDIR : ENODEV);
        return;
    }
    OpenFile& file = fs.files_.emplace_back();
    file.device = device;
    file.isWritable = (info->flags & O_ACCMODE) != O_RDONLY;
    if (const int error = device->open(file.client, file.isWritable)) {
        fs.files_.pop_back();
        fuse_reply_err(request, error);
        return;
    }
    info->fh = reinterpret_cast<std::uintptr_t>(&file);
    info->direct_io = 1;
    fuse_reply_open(request, info);
}

void UsbFs::onRead(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset,
                   fuse_file_info* info)
{
    const OpenFile& file = fileOf(info);
    if (file.client.isGone) {
        fuse_reply_err(request, ENODEV);
        return;
    }
    const Bytes all = file.device->descriptors();
    const std::size_t from = std::min(static_cast<std::size_t>(offset), all.size());
    fuse_reply_buf(request, reinterpret_cast<const char*>(all.data() + from),
                   std::min(size, all.size() - from));
}

void UsbFs::onRelease(fuse_req_t request, fuse_ino_t, fuse_file_info* info)
{
    UsbFs& fs = self(request);
    fs.release(fileOf(info));
    fuse_reply_err(request, 0);
    fs.devicesChanged();
}

void UsbFs::release(OpenFile& file)
{
    file.device->close(file.client);
    if (file.poll != nullptr) {
        fuse_pollhandle_destroy(file.poll);
    }
    if (file.waitingReap != nullptr) {
        fuse_reply_err(file.waitingReap, EINTR);
    }
    files_.remove_if([&file](const OpenFile& other) { return &other == &file; });
}

void UsbFs::onPoll(fuse_req_t request, fuse_ino_t, fuse_file_info* info, fuse_pollhandle* handle)
{
    OpenFile& file = fileOf(info);
    if (handle != nullptr) {
        if (file.poll != nullptr) {
            fuse_pollhandle_destroy(file.poll);
        }
        file.poll = handle;
    }
    unsigned events = file.client.completed.empty() ? 0U : POLLOUT | POLLWRNORM;
    if (file.client.isGone) {
        events |= POLLERR | POLLHUP;
    }
    fuse_reply_poll(request, events);
}

void UsbFs::onIoctl(fuse_req_t request, fuse_ino_t, unsigned command, void* argument,
                    fuse_file_info* info, unsigned, const void*, std::size_t, std::size_t)
{
    UsbFs& fs = self(request);
    OpenFile& file = fileOf(info);
    bool isAnswered = false;
    const int error =
        fs.ioctl(request, file, command, reinterpret_cast<std::uintptr_t>(argument), isAnswered);
    if (!isAnswered && error == 0) {
        fuse_reply_ioctl(request, 0, nullptr, 0);
    } else if (!isAnswered) {
        fuse_reply_err(request, error);
    }
    fs.devicesChanged();
}

int UsbFs::ioctl(fuse_req_t request, OpenFile& file, unsigned command, std::uint64_t argument,
                 bool& isAnswered)
{
    if (!file.isWritable) {
        return EPERM;
    }
    // What is finished can be fetched even from a device that is gone.
    if (isReap(command) && !file.client.completed.empty()) {
        return reap(pidOf(request), file, argument);
    }
    if (file.client.isGone) {
        return ENODEV;
    }
    unsigned number = 0;
    switch (command) {
    case USBDEVFS_SUBMITURB:
        return submit(request, file, argument);
    case USBDEVFS_REAPURBNDELAY:
        return EAGAIN;
    case USBDEVFS_REAPURB:
        file.waitingReap = request;
        file.waitingReapArgument = argument;
        isAnswered = true;
        return 0;
    case USBDEVFS_DISCARDURB:
        return file.device->discard(file.client, argument);
    case USBDEVFS_CONTROL:
        return control(request, file, argument, isAnswered);
    case USBDEVFS_CONNECTINFO:
        return connectInfo(request, file, argument);
    case USBDEVFS_IOCTL:
        return driverIoctl(request, file, argument);
    case USBDEVFS_RESET:
        return file.device->reset();
    case USBDEVFS_CLAIMINTERFACE:
        return fetch(request, argument, number) ? file.device->claim(file.client, number) : EFAULT;
    case USBDEVFS_RELEASEINTERFACE:
        return fetch(request, argument, number) ? file.device->release(file.client, number)
                                                : EFAULT;
    case USBDEVFS_SETCONFIGURATION:
        return fetch(request, argument, number) ? file.device->setConfiguration(number) : EFAULT;
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
        return fetch(request, argument, number)
                   ? file.device->clearHalt(static_cast<std::uint8_t>(number & 0xFF))
                   : EFAULT;
    default:
        return ENOTTY;
    }
}

int UsbFs::control(fuse_req_t request, OpenFile& file, std::uint64_t argument, bool& isAnswered)
{
    usbdevfs_ctrltransfer transfer;
    if (!fetch(request, argument, transfer)) {
        return EFAULT;
    }
    Bytes answer;
    const ControlRequest what = {transfer.bRequestType, transfer.bRequest, transfer.wValue,
                                 transfer.wLength, transfer.wIndex};
    if (const int error = file.device->control(what, answer)) {
        return error;
    }
    const std::size_t size = std::min<std::size_t>(answer.size(), transfer.wLength);
    if (!writeMemory(pidOf(request), reinterpret_cast<std::uintptr_t>(transfer.data), answer.data(),
                     size)) {
        return EFAULT;
    }
    fuse_reply_ioctl(request, static_cast<int>(size), nullptr, 0);
    isAnswered = true;
    return 0;
}

int UsbFs::connectInfo(fuse_req_t request, const OpenFile& file, std::uint64_t argument)
{
    const usbdevfs_connectinfo info = {file.device->number(), 0};
    return writeMemory(pidOf(request), argument, &info, sizeof info) ? 0 : EFAULT;
}

int UsbFs::driverIoctl(fuse_req_t request, OpenFile& file, std::uint64_t argument)
{
    usbdevfs_ioctl inner;
    if (!fetch(request, argument, inner)) {
        return EFAULT;
    }
    return static_cast<unsigned>(inner.ioctl_code) == USBDEVFS_DISCONNECT
               ? file.device->detachDriver(static_cast<unsigned>(inner.ifno))
               : ENOTTY;
}

int UsbFs::submit(fuse_req_t request, OpenFile& file, std::uint64_t argument)
{
    usbdevfs_urb wanted;
    if (!fetch(request, argument, wanted)) {
        return EFAULT;
    }
    const bool isBulk =
        wanted.type == USBDEVFS_URB_TYPE_BULK || wanted.type == USBDEVFS_URB_TYPE_INTERRUPT;
    if (!isBulk || wanted.buffer_length < 0 ||
        wanted.buffer_length > static_cast<int>(kMaxTransfer)) {
        return EINVAL;
    }
    Urb urb;
    urb.tag = argument;
    urb.buffer = reinterpret_cast<std::uintptr_t>(wanted.buffer);
    urb.pid = pidOf(request);
    urb.endpoint = wanted.endpoint;
    urb.length = static_cast<std::size_t>(wanted.buffer_length);
    if ((wanted.endpoint & 0x80) == 0) {
        urb.data.resize(urb.length);
        if (!readMemory(urb.pid, urb.buffer, urb.data.data(), urb.length)) {
            return EFAULT;
        }
    }
    return file.device->submit(file.client, std::move(urb));
}

// Hands the oldest finished transfer back: its data, its results, and which one it is.
int UsbFs::reap(pid_t pid, OpenFile& file, std::uint64_t argument)
{
    Urb urb = std::move(file.client.completed.front());
    file.client.completed.pop_front();
    const bool isIn = (urb.endpoint & 0x80) != 0;
    const std::size_t dataSize = isIn ? urb.actual : 0;
    int actual = static_cast<int>(urb.actual);
    void* tag = reinterpret_cast<void*>(static_cast<std::uintptr_t>(urb.tag));
    const auto at = [](std::uint64_t address) {
        return reinterpret_cast<void*>(static_cast<std::uintptr_t>(address));
    };
    const iovec local[] = {{&urb.status, sizeof urb.status},
                           {&actual, sizeof actual},
                           {&tag, sizeof tag},
                           {urb.data.data(), dataSize}};
    const iovec remote[] = {{at(urb.tag + offsetof(usbdevfs_urb, status)), sizeof urb.status},
                            {at(urb.tag + offsetof(usbdevfs_urb, actual_length)), sizeof actual},
                            {at(argument), sizeof tag},
                            {at(urb.buffer), dataSize}};
    return writeMemory(pid, local, remote, dataSize > 0 ? 4 : 3) ? 0 : EFAULT;
}

void UsbFs::devicesChanged()
{
    for (UsbDevice* device : devices_) {
        if (device->isPlugged()) {
            device->pump();
        }
    }
    for (OpenFile& file : files_) {
        wake(file);
    }
}

// Tells a program that waits on its device file that there is something to fetch.
void UsbFs::wake(OpenFile& file)
{
    if (file.client.completed.empty() && !file.client.isGone) {
        return;
    }
    if (file.waitingReap != nullptr) {
        answerReap(file);
    }
    if (file.poll != nullptr) {
        fuse_lowlevel_notify_poll(file.poll);
        fuse_pollhandle_destroy(file.poll);
        file.poll = nullptr;
    }
}

void UsbFs::answerReap(OpenFile& file)
{
    const int error = file.client.completed.empty()
                          ? ENODEV
                          : reap(pidOf(file.waitingReap), file, file.waitingReapArgument);
    if (error == 0) {
        fuse_reply_ioctl(file.waitingReap, 0, nullptr, 0);
    } else {
        fuse_reply_err(file.waitingReap, error);
    }
    file.waitingReap = nullptr;
}

}  // namespace scansim
