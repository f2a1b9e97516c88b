#include "platform/iface_request.h"

#include <cstring>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "core/text_tools.h"

namespace zorv {

namespace {

// Issues an ethtool command: a record that begins with its code and takes the answer.
template <class Command>
bool ask_driver(const IfaceSocket &socket, const char *ifname, Command &command)
{
    ifreq request = {};
    request.ifr_data = reinterpret_cast<char *>(&command);
    return socket.issue(SIOCETHTOOL, ifname, request);
}

} // namespace

IfaceSocket::IfaceSocket() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

bool IfaceSocket::issue(unsigned long code, const char *ifname, ifreq &request) const
{
    memset(request.ifr_name, 0, sizeof request.ifr_name);
    copy_text(request.ifr_name, sizeof request.ifr_name, ifname ? ifname : "");
    return ioctl(socket_.get(), code, &request) == 0;
}

bool IfaceSocket::get_index(const char *ifname, int &index) const
{
    ifreq request = {};
    if (!issue(SIOCGIFINDEX, ifname, request))
        return false;
    index = request.ifr_ifindex;
    return true;
}

bool IfaceSocket::get_flags(const char *ifname, int &flags) const
{
    ifreq request = {};
    if (!issue(SIOCGIFFLAGS, ifname, request))
        return false;
    flags = static_cast<uint16_t>(request.ifr_flags);
    return true;
}

bool IfaceSocket::get_mac(const char *ifname, uint8_t (&mac)[6]) const
{
    ifreq request = {};
    if (!issue(SIOCGIFHWADDR, ifname, request))
        return false;
    memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    return true;
}

bool IfaceSocket::get_address(unsigned long code, const char *ifname, uint32_t &address) const
{
    ifreq request = {};
    if (!issue(code, ifname, request))
        return false;
    sockaddr_in found;
    static_assert(sizeof found == sizeof request.ifr_addr);
    memcpy(&found, &request.ifr_addr, sizeof found);
    address = found.sin_addr.s_addr;
    return true;
}

bool IfaceSocket::get_link(const char *ifname, bool &up) const
{
    ethtool_value command = {};
    command.cmd = ETHTOOL_GLINK;
    if (!ask_driver(*this, ifname, command))
        return false;
    up = command.data != 0;
    return true;
}

bool IfaceSocket::get_link_settings(const char *ifname, LinkSettings &settings) const
{
    ethtool_cmd command = {};
    command.cmd = ETHTOOL_GSET;
    if (!ask_driver(*this, ifname, command))
        return false;
    settings = {ethtool_cmd_speed(&command), command.duplex};
    return true;
}

bool IfaceSocket::list(std::span<ifreq> room, std::span<ifreq> &listed) const
{
    ifconf request = {};
    request.ifc_len = static_cast<int>(room.size_bytes());
    request.ifc_req = room.data();
    if (ioctl(socket_.get(), SIOCGIFCONF, &request) != 0)
        return false;
    listed = room.first(static_cast<size_t>(request.ifc_len) / sizeof(ifreq));
    return true;
}

} // namespace zorv
