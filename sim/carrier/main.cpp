// zorv-carrier - waits until interfaces are up and have a carrier: zorv-carrier INTERFACE...
//
// It listens for changes before it looks, so that none is missed between the two.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr timeval kPatience = {30, 0}; // beyond it something is broken

int listen_for_changes()
{
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience) != 0)
        return -1;
    return fd;
}

bool is_running(int fd, const char *name)
{
    ifreq request = {};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    return ioctl(fd, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING);
}

// A full buffer of the socket (ENOBUFS) means changes as well.
bool wait_for_change(int changes)
{
    char message[8192];
    return recv(changes, message, sizeof message, 0) >= 0 || errno == ENOBUFS || errno == EINTR;
}

} // namespace

int main(int argc, char **argv)
{
    const int changes = listen_for_changes();
    const int asking = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (changes < 0 || asking < 0) {
        perror("zorv-carrier");
        return 1;
    }
    for (int i = 1; i < argc; ++i) {
        while (!is_running(asking, argv[i])) {
            if (!wait_for_change(changes)) {
                fprintf(stderr, "zorv-carrier: %s does not come up\n", argv[i]);
                return 1;
            }
        }
    }
}
