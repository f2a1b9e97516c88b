// iface_request.h - asking the kernel about a network interface, or telling it.
#ifndef ZORV_PLATFORM_IFACE_REQUEST_H
#define ZORV_PLATFORM_IFACE_REQUEST_H

#include <cstdint>
#include <span>

#include <net/if.h>

#include "core/own.h"

namespace zorv {

struct LinkSettings {
    uint32_t speed; // Mbit/s
    uint32_t duplex;
};

// The socket that interface requests go through. The functions are false on failure, with errno,
// and leave the outputs alone then.
class IfaceSocket {
public:
    IfaceSocket();

    explicit operator bool() const { return static_cast<bool>(socket_); }

    // Issues one of the SIOC... requests. The name goes into the request, cut to 15 characters,
    // NULL as "".
    bool issue(unsigned long code, const char *ifname, ifreq &request) const;

    bool get_index(const char *ifname, int &index) const;
    bool get_flags(const char *ifname, int &flags) const;
    bool get_mac(const char *ifname, uint8_t (&mac)[6]) const;

    // SIOCGIFADDR, SIOCGIFNETMASK: an IPv4 address in network order.
    bool get_address(unsigned long code, const char *ifname, uint32_t &address) const;

    // Whether the driver sees a link.
    bool get_link(const char *ifname, bool &up) const;
    bool get_link_settings(const char *ifname, LinkSettings &settings) const;

    // Lists the interfaces that have an IPv4 address, as many as there is room for.
    bool list(std::span<ifreq> room, std::span<ifreq> &listed) const;

private:
    Fd socket_;
};

} // namespace zorv

#endif
