// SPDX-License-Identifier: LGPL-2.1-or-later
// One send, one receive and the closing of a TCP socket.
#pragma once

class CancelToken;

// What send and receive return in place of a number of bytes.
enum SocketStatus {
    SOCKET_BAD_ARGUMENT = -1,
    SOCKET_FAILED = -2,
    SOCKET_LOST = -3,  // the peer has closed the connection; the descriptor is closed, too
};

// A time limit with a negative part is none. A wait also ends, as a failure, when the token
// says so, and when a peer is silent for two seconds while the token is draining; null: never.
class SocketWrapper {
public:
    // Waits until fd is writable and sends. len also after a time-out or a short send, so
    // only a negative result tells that something went wrong. *errOut (may be null): errno
    // of a failed wait, or the -1 of a failed send.
    static int send(int fd, const unsigned char* buf, unsigned long len, long seconds,
                    long microseconds, int* errOut, const CancelToken* cancel = nullptr);

    // *len: bytes wanted, then bytes received, which is also the result. With waitAll, all
    // of them or what came before the time limit, the cancel or the end of the connection.
    // A time limit of zero is none.
    static int receive(int fd, unsigned char* buf, unsigned long* len, bool waitAll, long seconds,
                       long microseconds, int* errOut, const CancelToken* cancel = nullptr);

    static int close(int fd);

    // Waits until fd is ready for one of the poll events. 1: ready, 0: time elapsed, -1: failed
    // or cancelled, with errno.
    static int wait(int fd, short events, long seconds, long microseconds,
                    const CancelToken* cancel);
};
