// SPDX-License-Identifier: LGPL-2.1-or-later
// A network with one scanner, which follows a script.
#pragma once

#include "Script.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <set>

#include <sys/types.h>

namespace fuzz {

// One lives at a time; while it lives, sockets are its own. Without one there are none.
class ScriptedNet {
public:
    // isObedient: the scanner greets and gives its good replies by itself, and the script has
    // what comes besides. segment: how many bytes are received at once, 0: all there are.
    ScriptedNet(const Script& script, bool isObedient, std::size_t segment);
    ScriptedNet(const ScriptedNet&) = delete;
    ScriptedNet& operator=(const ScriptedNet&) = delete;
    // Every socket has to be closed by then.
    ~ScriptedNet();

    // What the script's cancels do.
    std::function<void()> onCancel;
    // What arrives at the port of the discovery.
    std::deque<Bytes> datagrams;

    const Script& script() const { return script_; }

    // ---- for the functions of the C library ----
    static ScriptedNet* current;
    int open(bool isStream);
    void close(int fd);
    bool isOpen(int fd) const { return sockets_.count(fd) != 0; }
    int connect(int fd);
    void shutdown() { isEnded_ = true; }
    short poll(int fd, short events, int timeout);
    ssize_t send(const Bytes& bytes);
    ssize_t receive(unsigned char* to, std::size_t room);
    ssize_t receiveDatagram(unsigned char* to, std::size_t room);

private:
    bool isReadable(int timeout);
    void play();
    void append(const Bytes& bytes) { arrived_.insert(arrived_.end(), bytes.begin(), bytes.end()); }

    Script script_;
    bool isObedient_;
    std::size_t segment_;
    std::set<int> sockets_;
    int next_;
    int datagramSocket_ = -1;
    int askedToConnect_ = -1;
    std::deque<unsigned char> arrived_;
    bool isEnded_ = false;
    bool isReset_ = false;
    int silence_ = 0;  // milliseconds that are left of it
    int command_ = -1;
};

}  // namespace fuzz
