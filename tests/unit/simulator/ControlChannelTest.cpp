// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ControlChannel.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Support.h"

namespace scansim::test {

namespace {

int connectTo(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

std::vector<pollfd> ready(const ControlChannel& channel)
{
    std::vector<pollfd> descriptors;
    channel.addTo(descriptors);
    poll(descriptors.data(), descriptors.size(), 1000);
    return descriptors;
}

}  // namespace

TEST(ControlChannel, AnswersEachLine)
{
    const TempFolder folder;
    ControlChannel channel(folder.path("control"),
                           [](const std::string& line) { return line + "!"; });
    const int client = connectTo(folder.path("control"));
    channel.handle(ready(channel));
    ASSERT_EQ(write(client, "one\ntwo\n", 8), 8);
    channel.handle(ready(channel));
    char answer[32] = "";
    EXPECT_EQ(read(client, answer, sizeof answer), 10);
    EXPECT_STREQ(answer, "one!\ntwo!\n");
    close(client);
}

// A file that was closed meanwhile may have had the number that a new client gets.
TEST(ControlChannel, EventOfAFormerFileDoesNotEndAClient)
{
    const TempFolder folder;
    ControlChannel channel(folder.path("control"),
                           [](const std::string& line) { return line + "!"; });
    const int client = connectTo(folder.path("control"));
    std::vector<pollfd> descriptors = ready(channel);
    const int next = fcntl(client, F_DUPFD_CLOEXEC, 0);
    close(next);
    descriptors.push_back({next, POLLIN, POLLIN});
    channel.handle(descriptors);
    ASSERT_EQ(send(client, "one\n", 4, MSG_NOSIGNAL), 4);
    channel.handle(ready(channel));
    char answer[32] = "";
    EXPECT_EQ(recv(client, answer, sizeof answer, MSG_DONTWAIT), 5);
    EXPECT_STREQ(answer, "one!\n");
    close(client);
}

}  // namespace scansim::test
