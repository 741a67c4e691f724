// SPDX-License-Identifier: LGPL-2.1-or-later
// Talks to simulated scanners on the network as the backend does, and prints what comes. Run as
// "net_probe STEP..."; the steps are below.

#include "ProbeSteps.h"

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kHeaderSize = 9;
constexpr std::size_t kBlockHeaderSize = 9;  // of protocol 326

int connection = -1;
int timeoutMs = 2000;

std::string hex(const Bytes& bytes, std::size_t limit = 16)
{
    std::string text;
    char digits[4];
    for (std::size_t i = 0; i < bytes.size() && i < limit; ++i) {
        std::snprintf(digits, sizeof digits, " %02X", bytes[i]);
        text += digits;
    }
    return text;
}

Bytes fromHex(const std::string& text)
{
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

const char* errorName(int error)
{
    switch (error) {
    case EAGAIN:
    case EINPROGRESS:
        return "timeout";
    case ECONNRESET:
        return "reset";
    case ECONNREFUSED:
        return "refused";
    case ENETUNREACH:
        return "unreachable";
    default:
        return std::strerror(error);
    }
}

// ---- searching ---------------------------------------------------------------

Bytes query()
{
    static const char words[] =
        "\0\0\0\0\0\1\0\0\0\0\0\0\x0c_host-config\x04_udp\x05local\0\0\x21\0\1";
    return Bytes(words, words + sizeof words - 1);
}

// Reads an answer as the backend does: no compressed names, only records of the service.
class Answer {
public:
    explicit Answer(const Bytes& bytes) : bytes_(bytes) {}

    std::map<std::string, std::string> strings()
    {
        if (bytes_.size() < 13 || (bytes_[2] & 0x80) == 0) {
            return {};
        }
        at_ = 12;
        for (unsigned i = word(4); i > 0; --i) {
            skipName();
            at_ += 4;
        }
        for (unsigned i = word(6); i > 0 && found_.empty() && at_ < bytes_.size(); --i) {
            readRecord();
        }
        return found_;
    }

private:
    std::uint8_t byte(std::size_t at) const { return at < bytes_.size() ? bytes_[at] : 0; }
    unsigned word(std::size_t at) const { return byte(at) * 256U + byte(at + 1); }

    void skipName()
    {
        while (at_ < bytes_.size() && byte(at_) != 0) {
            ++at_;
        }
        ++at_;
    }

    std::string label(std::size_t at) const
    {
        std::string text;
        for (std::size_t i = 0; i < byte(at); ++i) {
            text += static_cast<char>(byte(at + 1 + i));
        }
        return text;
    }

    void readRecord()
    {
        at_ += byte(at_) + 1U;
        if (label(at_) != "_host-config") {
            return;
        }
        skipName();
        const unsigned type = word(at_);
        at_ += 2;
        if (type != 16) {
            return;
        }
        at_ += 6;
        const std::size_t end = at_ + 2 + word(at_);
        for (at_ += 2; at_ < end && at_ < bytes_.size(); at_ += byte(at_) + 1U) {
            const std::string text = label(at_);
            const std::size_t blank = text.find(' ');
            found_[text.substr(0, blank)] = blank == text.npos ? "" : text.substr(blank + 1);
        }
    }

    const Bytes& bytes_;
    std::size_t at_ = 0;
    std::map<std::string, std::string> found_;
};

std::chrono::milliseconds elapsed(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 since);
}

void printAnswer(const Bytes& datagram, const sockaddr_in& from)
{
    std::printf("answer from %s:%d", inet_ntoa(from.sin_addr), ntohs(from.sin_port));
    auto strings = Answer(datagram).strings();
    for (const char* key :
         {"IPADDRESS", "MACUAA", "1284STRID", "ADAPTERNAME", "PRINTERVIDPID", "EXTRA"}) {
        if (strings.count(key) > 0) {
            std::printf(" %s=%s", key, strings[key].c_str());
        }
    }
    std::printf("\n");
}

// Sends a query, and takes what comes within so many milliseconds.
void search(int ms, const Bytes& words, bool isCounting)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5353);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::printf("bind %s\n", errorName(errno));
    }
    address.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    const auto start = std::chrono::steady_clock::now();
    if (sendto(fd, words.data(), words.size(), 0, reinterpret_cast<sockaddr*>(&address),
               sizeof address) < 0) {
        std::printf("search %s\n", errorName(errno));
        close(fd);
        return;
    }
    const timeval slice{0, 20000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &slice, sizeof slice);
    int count = 0;
    long first = -1;
    while (elapsed(start).count() < ms) {
        Bytes datagram(2048);
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t got = recvfrom(fd, datagram.data(), datagram.size(), 0,
                                     reinterpret_cast<sockaddr*>(&from), &size);
        datagram.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        if (got <= 0 || datagram == words) {
            continue;  // its own broadcast comes back
        }
        ++count;
        first = first < 0 ? elapsed(start).count() : first;
        if (!isCounting) {
            printAnswer(datagram, from);
        }
    }
    close(fd);
    std::printf("answers %d\n", count);
    std::fprintf(stderr, "first after %ld ms\n", first);
}

// ---- talking -----------------------------------------------------------------

void connectTo(const std::string& ip)
{
    connection = socket(AF_INET, SOCK_STREAM, 0);
    const timeval wait{timeoutMs / 1000, timeoutMs % 1000 * 1000};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9100);
    inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
    const int result = connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address);
    std::printf("connect %s\n", result == 0 ? "ok" : errorName(errno));
}

void sendBytes(const Bytes& bytes)
{
    if (send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
        std::printf("send %s\n", errorName(errno));
    }
}

// The plain eight-byte commands, and those of a 300 dpi colour scan of 600 x 20 pixels, or of
// 600 x 1044.
Bytes command(const std::string& name)
{
    const auto scan = [](const std::string& lines) {
        return "0018008000"
               "03000003"
               "58020000" +
               lines +
               "0000"
               "0000000000000000"
               "2C012C01";
    };
    const std::map<std::string, std::string> commands = {
        {"cancel", "1B530F0000000000"},          {"properties", "1B53030000008000"},
        {"unlock", "1B53060000008000"},          {"lock", "1B5305" + scan("1400")},
        {"start", "1B5301" + scan("1400")},      {"tall-lock", "1B5305" + scan("1404")},
        {"tall-start", "1B5301" + scan("1404")},
    };
    return fromHex(commands.at(name));
}

// As many bytes as asked for; less, with a reason, where they do not come.
std::string receive(std::size_t size, Bytes& bytes)
{
    bytes.assign(size, 0);
    std::size_t have = 0;
    while (have < size) {
        const ssize_t count = recv(connection, bytes.data() + have, size - have, 0);
        if (count <= 0) {
            bytes.resize(have);
            return count == 0 ? " closed" : std::string(" ") + errorName(errno);
        }
        have += static_cast<std::size_t>(count);
    }
    return {};
}

void receiveRaw(std::size_t size)
{
    Bytes bytes;
    const std::string end = receive(size, bytes);
    std::printf("raw %zu%s%s\n", bytes.size(), hex(bytes).c_str(), end.c_str());
}

struct Frame {
    Bytes payload;
    std::string end;  // why it is not whole
};

Frame receiveFrame()
{
    Bytes header;
    Frame frame;
    frame.end = receive(kHeaderSize, header);
    if (!frame.end.empty()) {
        frame.end += " in the header after " + std::to_string(header.size());
        return frame;
    }
    if (std::memcmp(header.data(), "HBN3", 4) != 0) {
        frame.end = " no frame but" + hex(header);
        return frame;
    }
    const std::size_t size = std::size_t{header[5]} << 24 | std::size_t{header[6]} << 16 |
                             std::size_t{header[7]} << 8 | header[8];
    if (size > 70000) {
        frame.end = " of " + std::to_string(size);
        return frame;
    }
    frame.end = receive(size, frame.payload);
    if (!frame.end.empty()) {
        frame.end += " of " + std::to_string(size);
    }
    return frame;
}

void printFrame()
{
    const Frame frame = receiveFrame();
    std::printf("frame %zu%s%s\n", frame.payload.size(), hex(frame.payload, 8).c_str(),
                frame.end.c_str());
}

bool isScanRecord(const Bytes& data)
{
    return data.size() >= 9 && data[0] == 0x1B && data[1] == 0x53 && data[2] == 0x02 &&
           data[8] != 0;
}

// The pixels without the block headers between them.
Bytes withoutHeaders(const Bytes& stream)
{
    Bytes pixels;
    std::size_t at = 0;
    while (at + kBlockHeaderSize <= stream.size()) {
        const std::size_t size = stream[at + 4] + stream[at + 5] * 256U - 1;
        at += kBlockHeaderSize;
        const std::size_t end = std::min(at + size, stream.size());
        pixels.insert(pixels.end(), stream.begin() + static_cast<long>(at),
                      stream.begin() + static_cast<long>(end));
        at = end;
    }
    return pixels;
}

// Reads frames until a scan record other than the page marker; writes the pixels to a file.
void receivePage(const std::string& path)
{
    Bytes stream;
    std::size_t smallest = SIZE_MAX;
    std::size_t largest = 0;
    for (;;) {
        const Frame frame = receiveFrame();
        if (!frame.end.empty()) {
            std::printf("page of %zu bytes%s\n", stream.size() + frame.payload.size(),
                        frame.end.c_str());
            return;
        }
        if (isScanRecord(frame.payload)) {
            if (frame.payload[8] == 9) {
                continue;
            }
            std::printf("page record %d\n", frame.payload[8]);
            break;
        }
        smallest = std::min(smallest, frame.payload.size());
        largest = std::max(largest, frame.payload.size());
        stream.insert(stream.end(), frame.payload.begin(), frame.payload.end());
    }
    std::printf("frames %zu to %zu\n", smallest, largest);
    const Bytes pixels = withoutHeaders(stream);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(pixels.data()), static_cast<long>(pixels.size()));
}

// How many segments with data have come on this connection.
void printSegments()
{
    tcp_info info{};
    socklen_t size = sizeof info;
    getsockopt(connection, IPPROTO_TCP, TCP_INFO, &info, &size);
    std::printf("segments %u\n", info.tcpi_data_segs_in);
}

void step(const std::string& name, const std::string& argument)
{
    if (name == "search") {
        search(std::atoi(argument.c_str()), query(), false);
    } else if (name == "count") {
        search(std::atoi(argument.c_str()), query(), true);
    } else if (name == "ask-wrongly") {
        Bytes words = query();
        words.pop_back();
        search(200, words, true);
    } else if (name == "connect") {
        connectTo(argument);
    } else if (name == "tickle") {
        sendBytes({'H', 'B', 'N', '3', 0, 0, 0, 0, 2});
        receiveRaw(kHeaderSize);
    } else if (name == "write") {
        sendBytes(command(argument));
    } else if (name == "send") {
        sendBytes(fromHex(argument));
    } else if (name == "raw") {
        receiveRaw(static_cast<std::size_t>(std::atoi(argument.c_str())));
    } else if (name == "frame") {
        printFrame();
    } else if (name == "page") {
        receivePage(argument);
    } else if (name == "segments") {
        printSegments();
    } else if (name == "close") {
        close(connection);
        std::printf("close\n");
    } else if (name == "timeout") {
        timeoutMs = std::atoi(argument.c_str());
    } else if (name == "wait") {
        usleep(static_cast<unsigned>(std::atoi(argument.c_str())) * 1000);
    } else if (name == "control") {
        if (probe::control(argument) != 0) {
            std::printf("control failed\n");
        }
    } else {
        probe::unknown(name);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    return probe::run(argc, argv, step);
}
