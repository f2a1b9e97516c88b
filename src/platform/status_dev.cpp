#include "platform/status_dev_rows.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <sys/ioctl.h>

#include "core/lines.h"
#include "platform/iface_request.h"

using namespace zorv;

static_assert(offsetof(dev_status, hwaddr) == 16 && offsetof(dev_status, ipaddr) == 24 &&
              offsetof(dev_status, ipaddr_str) == 32 && offsetof(dev_status, netmask_str) == 50 &&
              offsetof(dev_status, present) == 68 && offsetof(dev_status, rx_bytes) == 80 &&
              offsetof(dev_status, tx_bytes) == 120 && offsetof(dev_status, speed) == 152 &&
              offsetof(dev_status, speed_2) == 160 && offsetof(dev_status, reserved) == 168 &&
              offsetof(dev_status, dhcpc) == 424 && sizeof(dev_status) == 448);

namespace {

constexpr uint32_t kHalfDuplex = 0;
constexpr uint32_t kSlowest = 10; // Mbit/s
constexpr LinkSettings kUnknownLink = {0, 0xFF};

// The counters of a row in their order; NULL ones are passed over.
constexpr uint64_t dev_status::*kCounters[] = {
    &dev_status::rx_bytes,
    &dev_status::rx_packets,
    &dev_status::rx_errors,
    &dev_status::rx_dropped,
    nullptr,
    nullptr, // FIFO, frame
    nullptr,
    &dev_status::rx_multicast,
    &dev_status::tx_bytes,
    &dev_status::tx_packets,
    &dev_status::tx_errors,
    &dev_status::tx_dropped,
};

const char *skip_white(const char *text)
{
    while (is_white(*text))
        ++text;
    return text;
}

const char *skip_word(const char *text)
{
    while (*text != '\0' && !is_white(*text))
        ++text;
    return text;
}

// -1 when the table cannot be opened, -ENOENT when it has no header.
int read_counters(const char *ifname, dev_status &status)
{
    const File table(fopen("/proc/net/dev", "re"));
    if (!table)
        return -1;
    Lines<kDevRow> rows(table.get());
    if (!rows.next() || !rows.next())
        return -ENOENT;
    while (const char *const row = rows.next())
        if (read_dev_row(row, ifname, status))
            break;
    return 0;
}

void read_address(const IfaceSocket &socket, unsigned long code, const char *ifname,
                  uint32_t &address, char (&text)[18])
{
    if (!socket.get_address(code, ifname, address))
        address = 0;
    inet_ntop(AF_INET, &address, text, sizeof text);
}

LinkSettings read_link(const IfaceSocket &socket, const char *ifname)
{
    LinkSettings settings = kUnknownLink;
    socket.get_link_settings(ifname, settings);
    return settings;
}

} // namespace

namespace zorv {

bool read_dev_row(const char *row, const char *ifname, dev_status &status)
{
    const char *const name = skip_white(row);
    const char *const colon = strchr(name, ':');
    if (!colon || std::string_view(name, static_cast<size_t>(colon - name)) != ifname)
        return false;
    status.present = 1;
    const char *at = colon + 1;
    for (const auto counter : kCounters) {
        at = skip_white(at);
        if (*at == '\0')
            break;
        if (counter)
            status.*counter = strtoul(at, nullptr, 0);
        at = skip_word(at);
    }
    return true;
}

void order_links(dev_status &status)
{
    if (status.speed == kSlowest && status.speed_2 != kSlowest)
        std::swap(status.speed, status.speed_2);
    if (status.duplex == kHalfDuplex && status.duplex_2 != kHalfDuplex)
        std::swap(status.duplex, status.duplex_2);
}

} // namespace zorv

int fill_dev_status(const char *ifname, dev_status *s)
{
    if (!s)
        return -1;
    if (!ifname)
        ifname = "";
    if (const int rc = read_counters(ifname, *s))
        return rc;

    const IfaceSocket socket;
    if (!socket)
        return -ESRCH;
    socket.get_mac(ifname, s->hwaddr);
    read_address(socket, SIOCGIFADDR, ifname, s->ipaddr, s->ipaddr_str);
    read_address(socket, SIOCGIFNETMASK, ifname, s->netmask, s->netmask_str);
    socket.get_flags(ifname, s->flags);

    const LinkSettings first = read_link(socket, ifname), second = read_link(socket, ifname);
    s->speed = first.speed;
    s->duplex = first.duplex;
    s->speed_2 = second.speed;
    s->duplex_2 = second.duplex;
    order_links(*s);
    copy_text(s->ifname, sizeof s->ifname, ifname);
    return 0;
}

int get_ethtool_link_status(const char *ifname)
{
    const IfaceSocket socket;
    bool up;
    return socket && socket.get_link(ifname, up) ? up : -1;
}
