// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Holders.h"

#include "Text.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace check {

namespace {

std::vector<std::string> entriesOf(const std::string& folder)
{
    std::vector<std::string> names;
    DIR* open = opendir(folder.c_str());
    for (const dirent* entry = open != nullptr ? readdir(open) : nullptr; entry != nullptr;
         entry = readdir(open)) {
        names.emplace_back(entry->d_name);
    }
    if (open != nullptr) {
        closedir(open);
    }
    return names;
}

bool isNumber(const std::string& text)
{
    return !text.empty() && text.size() < 10 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string linkOf(const std::string& path)
{
    char target[PATH_MAX];
    const ssize_t size = readlink(path.c_str(), target, sizeof target);
    return size > 0 ? std::string(target, static_cast<std::size_t>(size)) : "";
}

bool holds(const std::string& process, const IsTarget& isTarget)
{
    const std::vector<std::string> files = entriesOf(process + "/fd");
    return std::any_of(files.begin(), files.end(), [&](const std::string& file) {
        const std::string link = process + "/fd/" + file;
        return isTarget(link, linkOf(link));
    });
}

bool isSameFile(const struct stat& a, const struct stat& b)
{
    return S_ISCHR(a.st_mode) ? S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev
                              : a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

Holder describe(const std::string& pid, const std::string& process)
{
    struct stat info {};
    const bool isKnown = stat(process.c_str(), &info) == 0;
    return {std::stoi(pid), trimmed(contentOf(process + "/comm")),
            isKnown ? userName(info.st_uid) : ""};
}

std::string socketLink(const UdpSocket& socket)
{
    return "socket:[" + std::to_string(socket.inode) + "]";
}

std::vector<UdpSocket> socketsOf(unsigned port, const std::string& proc)
{
    std::vector<UdpSocket> found;
    for (const char* table : {"/net/udp", "/net/udp6"}) {
        for (const UdpSocket& socket : parseUdpTable(contentOf(proc + table))) {
            if (socket.port == port) {
                found.push_back(socket);
            }
        }
    }
    return found;
}

bool isNew(const std::vector<Holder>& holders, const Holder& holder)
{
    return std::none_of(holders.begin(), holders.end(), [&holder](const Holder& other) {
        return other.pid == holder.pid && other.user == holder.user;
    });
}

}  // namespace

std::string Holder::shown() const
{
    const std::string of = user.empty() ? "" : " of user " + printable(user);
    if (pid == 0) {
        return "a program" + of + " that only root can name";
    }
    return quoted(program) + " (process " + std::to_string(pid) + of + ")";
}

std::string userName(unsigned id)
{
    const passwd* entry = getpwuid(id);
    return entry != nullptr ? entry->pw_name : std::to_string(id);
}

std::vector<Holder> holdersOf(const IsTarget& isTarget, const std::string& proc)
{
    std::vector<Holder> found;
    const std::string own = std::to_string(getpid());
    for (const std::string& pid : entriesOf(proc)) {
        const std::string process = proc + "/" + pid;
        if (isNumber(pid) && pid != own && holds(process, isTarget)) {
            found.push_back(describe(pid, process));
        }
    }
    return found;
}

// The name is compared first: looking at the files of a stranger may hang.
std::vector<Holder> fileHolders(const std::string& path, const std::string& proc)
{
    struct stat wanted {};
    if (stat(path.c_str(), &wanted) != 0) {
        return {};
    }
    return holdersOf(
        [&](const std::string& link, const std::string& text) {
            struct stat found {};
            return text == path && stat(link.c_str(), &found) == 0 && isSameFile(wanted, found);
        },
        proc);
}

std::vector<UdpSocket> parseUdpTable(const std::string& text)
{
    std::vector<UdpSocket> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        UdpSocket socket;
        if (sscanf(line.c_str(), " %*[^:]: %*[0-9A-Fa-f]:%x %*s %*s %*s %*s %*s %u %*s %lu",
                   &socket.port, &socket.user, &socket.inode) == 3) {
            found.push_back(socket);
        }
    }
    return found;
}

std::vector<Holder> udpHolders(unsigned port, const std::string& proc)
{
    std::vector<Holder> found;
    for (const UdpSocket& socket : socketsOf(port, proc)) {
        const std::string socketName = socketLink(socket);
        std::vector<Holder> holders =
            holdersOf([&socketName](const std::string&,
                                    const std::string& text) { return text == socketName; },
                      proc);
        if (holders.empty()) {
            holders.push_back({0, "", userName(socket.user)});
        }
        std::copy_if(holders.begin(), holders.end(), std::back_inserter(found),
                     [&found](const Holder& holder) { return isNew(found, holder); });
    }
    return found;
}

}  // namespace check
