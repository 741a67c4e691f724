// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Loopback.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

char loopback[] = "lo";

bool complain(const char* what)
{
    std::fprintf(stderr, "loopback: %s: %s\n", what, std::strerror(errno));
    return false;
}

bool isOnlyLoopback()
{
    struct if_nameindex* all = if_nameindex();
    if (all == nullptr) {
        return complain("no list of network devices");
    }
    bool isOnly = true;
    for (const struct if_nameindex* device = all; device->if_index != 0; device++) {
        // Kernels put some tunnels, all down, into every new network.
        ifreq request = {};
        std::strncpy(request.ifr_name, device->if_name, IFNAMSIZ - 1);
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        ioctl(fd, SIOCGIFFLAGS, &request);
        close(fd);
        if (std::strcmp(device->if_name, loopback) != 0 && (request.ifr_flags & IFF_UP) != 0) {
            isOnly = false;
        }
    }
    if_freenameindex(all);
    errno = EPERM;
    return isOnly || complain("this is a real network");
}

bool changeRoute(unsigned long request)
{
    rtentry route = {};
    for (sockaddr* address : {&route.rt_dst, &route.rt_genmask}) {
        address->sa_family = AF_INET;
    }
    route.rt_flags = RTF_UP;
    route.rt_dev = loopback;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const bool isDone = ioctl(fd, request, &route) == 0;
    close(fd);
    return isDone || complain("route");
}

}  // namespace

bool bringUpLoopback()
{
    if (!isOnlyLoopback()) {
        return false;
    }
    ifreq request = {};
    std::strncpy(request.ifr_name, loopback, IFNAMSIZ - 1);
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const bool isUp = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return (isUp || complain("cannot be brought up")) && changeRoute(SIOCADDRT);
}

NoRoute::NoRoute()
{
    EXPECT_TRUE(changeRoute(SIOCDELRT));
}

NoRoute::~NoRoute()
{
    EXPECT_TRUE(changeRoute(SIOCADDRT));
}
