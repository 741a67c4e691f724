// The control socket.
#include "ControlChannel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class ControlChannelTest : public testing::Test {
protected:
    ~ControlChannelTest() override
    {
        close(client);
        std::filesystem::remove_all(folder);
    }

    void connectClient() const
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    // As if all of them were ready.
    void handleAll()
    {
        std::vector<pollfd> descriptors;
        channel.addTo(descriptors);
        for (pollfd& descriptor : descriptors) {
            descriptor.revents = POLLIN;
        }
        // The listener, where nobody waits, would block.
        if (descriptors.size() > 1) {
            descriptors.erase(descriptors.begin());
        }
        channel.handle(descriptors);
    }

    static std::string newFolder()
    {
        char name[] = "/tmp/control-XXXXXX";
        return mkdtemp(name);
    }

    const std::string folder = newFolder();
    const std::string path = folder + "/control";
    scansim::ControlChannel channel{path, [](const std::string& line) { return "<" + line + ">"; }};
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(ControlChannelTest, AClientThatHasNotSpokenYetIsKept)
{
    connectClient();
    handleAll();
    handleAll();
    ASSERT_EQ(send(client, "a\nb\n", 4, MSG_NOSIGNAL), 4);
    handleAll();
    char answer[20];
    const ssize_t size = recv(client, answer, sizeof answer, MSG_DONTWAIT);
    EXPECT_EQ(std::string(answer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))),
              "<a>\n<b>\n");
}

}  // namespace
