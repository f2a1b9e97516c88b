#include <zorv/bridge.h>

#include <cerrno>
#include <cstring>

#include <zorv/board.h>

#include "platform/iface_request.h"

using namespace zorv;

namespace {

constexpr char kMainInterfaces[][10] = {"eth0", "eth0_real", "br0"};
constexpr size_t kMostInterfaces = 10;

bool has_mac(const IfaceSocket &socket, const char *ifname, const uint8_t *mac)
{
    uint8_t found[6];
    return socket.get_mac(ifname, found) && memcmp(found, mac, sizeof found) == 0;
}

} // namespace

int devhwaddr_get_iface(uint8_t mac[6], const char *ifname)
{
    const IfaceSocket socket;
    uint8_t found[6];
    if (!mac || !socket)
        return -1;
    if (!socket.get_mac(ifname, found))
        return -ECHILD;
    memcpy(mac, found, sizeof found);
    return 0;
}

int devhwaddr_get(uint8_t mac[6])
{
    for (const char *const ifname : kMainInterfaces)
        if (devhwaddr_get_iface(mac, ifname) == 0)
            return 0;
    return 1;
}

int devifindex_get_hwaddr(int *ifindex, const uint8_t mac[6])
{
    const IfaceSocket socket;
    if (!ifindex || !mac || !socket)
        return -1;
    ifreq room[kMostInterfaces];
    static_assert(sizeof room == 400);
    std::span<ifreq> listed;
    if (!socket.list(room, listed))
        return -EAGAIN;
    int rc = -ECHILD;
    for (const ifreq &entry : listed)
        if (has_mac(socket, entry.ifr_name, mac) && socket.get_index(entry.ifr_name, *ifindex))
            rc = 0; // and on: the last one counts
    return rc;
}

int devhwaddr_generate(uint8_t mac[6], uint8_t last)
{
    const uint32_t prefix = OUI_1_0_0[0]; // the maker's oldest
    const uint8_t made[] = {static_cast<uint8_t>(prefix >> 16),
                            static_cast<uint8_t>(prefix >> 8),
                            static_cast<uint8_t>(prefix),
                            0xDE,
                            0xAD,
                            last};
    if (mac)
        memcpy(mac, made, sizeof made);
    return 0;
}
