#include <zorv/status.h>

#include <cerrno>

#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <net/if.h>
#include <unistd.h>

#include "core/text_tools.h"
#include "platform/iface_request.h"
#include "platform/netlink.h"

using namespace zorv;

namespace {

constexpr char kUplink[] = "br0";
constexpr size_t kDatagram = 8192; // of an answer; the kernel fills it with some 125 routes

bool request_routes(const Fd &socket, uint32_t port)
{
    rtmsg fixed = {};
    fixed.rtm_family = AF_INET;
    fixed.rtm_table = RT_TABLE_MAIN;
    NetlinkRequest request(RTM_GETROUTE, NLM_F_REQUEST | NLM_F_DUMP, fixed);
    request.sign(0, port);
    return request.send_on(socket);
}

// Whether a route leaves through the uplink; -1 when the kernel does not say.
int leaves_through_uplink(const Route &route)
{
    char ifname[IF_NAMESIZE];
    if (!if_indextoname(route.oif, ifname))
        return errno == ENXIO ? 0 : -1;
    return strcmp(ifname, kUplink) == 0 ? 1 : 0;
}

} // namespace

int get_gateway(char *buf, uint32_t *addr, uint32_t len)
{
    const Fd socket = open_route_socket(SOCK_DGRAM);
    const auto port = static_cast<uint32_t>(getpid());
    if (!buf || !addr || !socket || !request_routes(socket, port))
        return -1;
    uint8_t room[kDatagram];
    Bytes datagram;
    Route route;
    int found = 0;
    Answer state;
    do { // to its end, for what is broken there is no answer
        state = receive_answer(socket, port, room, datagram);
        while (state != Answer::is_broken && found == 0 && take_route(datagram, route))
            if (route.is_default && route.has_gateway)
                found = leaves_through_uplink(route);
    } while (state == Answer::goes_on);
    if (state == Answer::is_broken)
        return -1;
    if (found <= 0)
        return found;
    char text[INET_ADDRSTRLEN];
    copy_text(buf, len, inet_ntop(AF_INET, &route.gateway, text, sizeof text));
    *addr = route.gateway;
    return 1;
}

int get_gateway_mac(char *mac, size_t size)
{
    char gateway[INET_ADDRSTRLEN];
    uint32_t address;
    return get_gateway(gateway, &address, sizeof gateway) == 1 ? get_mac_by_ip(gateway, mac, size)
                                                               : 0;
}

int add_ip_neigh_entry(const char *ifname, const char *ip)
{
    uint8_t address[4];
    if (!ip || inet_pton(AF_INET, ip, address) != 1)
        return -1;
    ndmsg fixed = {};
    fixed.ndm_family = AF_INET;
    IfaceSocket().get_index(ifname, fixed.ndm_ifindex); // else 0
    fixed.ndm_state = NUD_INCOMPLETE;
    NetlinkRequest request(RTM_NEWNEIGH, NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE, fixed, NDA_DST,
                           address);
    return request.send_on(open_route_socket(SOCK_RAW)) ? 0 : -1;
}
