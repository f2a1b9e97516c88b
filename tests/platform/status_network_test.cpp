#include <zorv/status.h>

#include <cerrno>

#include <arpa/inet.h>

#include "platform/rows.h"

namespace {

using StatusNetwork = Device;

std::string status_of(const char *ifname, dev_status &s)
{
    const int rc = fill_dev_status(ifname, &s);
    return shown(rc, s.ifname, shown_mac(s.hwaddr), s.ipaddr_str, hex(ntohl(s.ipaddr)),
                 s.netmask_str, hex(ntohl(s.netmask)), s.present, s.flags & 7, s.speed, s.duplex,
                 s.speed_2, s.duplex_2);
}

} // namespace

TEST_F(StatusNetwork, AnInterfaceAsTheKernelShowsIt)
{
    kernel_proc();
    make_bridge();
    must_run("ip addr add 198.51.100.7/23 dev eth0");
    dev_status s = {};
    EXPECT_EQ(status_of("eth0", s), "0 eth0 2:a0:f1:0:0:10 198.51.100.7 c6336407 255.255.254.0 "
                                    "fffffe00 1 3 10000 1 10000 1"); // what a veth says of itself
    EXPECT_EQ(get_ethtool_link_status("eth0"), 1);
    must_run("ip link set far0 down");
    EXPECT_EQ(get_ethtool_link_status("eth0"), 0);

    // No interface of that name: what is known stays, the rest is neutral.
    s.flags = 5;
    EXPECT_EQ(status_of("eth0.with.a.long.name", s),
              "0 eth0.with.a.lon 2:a0:f1:0:0:10 0.0.0.0 0 0.0.0.0 0 1 5 0 255 0 255");
    EXPECT_EQ(get_ethtool_link_status("eth0.with.a.long.name"), -1);
    EXPECT_EQ(get_ethtool_link_status(nullptr), -1);
}

TEST_F(StatusNetwork, CountersOfARow)
{
    file("/proc/net/dev", "Inter-|   Receive                |  Transmit\n"
                          " face |bytes    packets errs      |bytes    packets\n"
                          "eth00: 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9\n"
                          "no colon\n"
                          "\t eth0:1 0x10 3\t4 5 6 7 010 x 10 11 " // in any base
                          "18446744073709551615 13 14 15 16\n"
                          "eth0: 7\n"
                          "cut:1 2");
    const std::pair<const char *, const char *> kRows[] = {
        {"eth0", "0 eth0 1 1 16 3 4 8 0 10 11 18446744073709551615"},
        {"cut", "0 cut 1 1 2 77 0 0 0 0 99 0"},
        {"eth", "0 eth 0 0 0 77 0 0 0 0 99 0"},
        {nullptr, "0  0 0 0 77 0 0 0 0 99 0"},
    };
    dev_status s;
    for (const auto &[ifname, want] : kRows) {
        s = {};
        s.rx_errors = 77;
        s.tx_errors = 99;
        const int rc = fill_dev_status(ifname, &s);
        EXPECT_EQ(shown(rc, s.ifname, s.present, s.rx_bytes, s.rx_packets, s.rx_errors,
                        s.rx_dropped, s.rx_multicast, s.tx_bytes, s.tx_packets, s.tx_errors,
                        s.tx_dropped),
                  want);
    }
    file("/proc/net/dev", "one line\n");
    EXPECT_EQ(fill_dev_status("eth0", &s), -ENOENT);
    remove("/proc/net/dev");
    EXPECT_EQ(fill_dev_status("eth0", &s), -1);
    EXPECT_EQ(fill_dev_status("eth0", nullptr), -1);
}

TEST_F(StatusNetwork, MacByIpTakesOnlyACompleteEntry)
{
    file("/proc/net/arp",
         "IP address       HW type     Flags       HW address            Mask     Device\n"
         "192.0.2.1        0x1   0x0   00:00:00:00:00:00     *        br0\n"
         "192.0.2.7        0x1   0x2   02:a0:f1:00:00:07     *        br0\n"
         "192.0.2.8        0x1   0x2   02:a0:f1:00:00:08:and:more *   br0\n"
         "cut short\n"
         "192.0.2.9        0x1   0x2   02:a0:f1:00:00:09     *        br0\n");
    const std::tuple<const char *, size_t, const char *> kRows[] = {
        {"192.0.2.1", 18, "0 kept"},
        {"192.0.2.9", 18, "0 kept"}, // behind the broken row
        {nullptr, 18, "1 02:a0:f1:00:00:07"},
        {"192.0.2.8", 20, "1 02:a0:f1:00:00:08"},
        {"192.0.2.7", 17,
         "1 02:a0:f1:00:00:0 [error] libzorv_status.get_mac_by_ip(): mac truncated"},
        {"192.0.2.7", 0, "1 kept [error] libzorv_status.get_mac_by_ip(): mac truncated"}};
    char mac[20];
    for (const auto &[ip, size, want] : kRows) {
        strcpy(mac, "kept");
        std::string text = shown(get_mac_by_ip(ip, mac, size), "");
        text += mac;
        for (const std::string &line : logged())
            text += " " + line;
        EXPECT_EQ(text, want);
    }
    EXPECT_EQ(get_mac_by_ip("192.0.2.7", nullptr, sizeof mac), 0);
    remove("/proc/net/arp");
    EXPECT_EQ(get_mac_by_ip(nullptr, mac, sizeof mac), 0);
}

TEST_F(StatusNetwork, TheGatewayIsThatOfTheBridge)
{
    kernel_proc();
    make_bridge();
    char text[16], mac[18];
    uint32_t address;
    const auto gateway = [&](uint32_t size = 16) {
        strcpy(text, "kept");
        strcpy(mac, "kept");
        address = 7;
        const int rc = get_gateway(text, &address, size), mac_rc = get_gateway_mac(mac, sizeof mac);
        return shown(rc, text, hex(ntohl(address)), mac_rc, mac);
    };
    EXPECT_EQ(gateway(), "0 kept 7000000 0 kept");
    must_run("ip link add wan0 type bridge && ip addr add 203.0.113.1/24 dev wan0 &&"
             "ip link set wan0 up && ip route add default via 203.0.113.254 dev wan0 metric 1 &&"
             "ip route add 10.0.0.0/8 via 192.0.2.3 dev br0 &&"
             "ip route add default via 192.0.2.4 dev br0 table 7 &&"
             "ip route add default dev br0 metric 2");
    EXPECT_EQ(gateway(), "0 kept 7000000 0 kept");
    must_run("ip route add default via 192.0.2.254 dev br0 metric 50 &&"
             "ip route add default via 192.0.2.253 dev br0 metric 60");
    EXPECT_EQ(gateway(), "1 192.0.2.254 c00002fe 0 kept");
    must_run("ip neigh add 192.0.2.254 lladdr 02:a0:f1:00:00:fe dev br0");
    EXPECT_EQ(gateway(6), "1 192.0 c00002fe 1 02:a0:f1:00:00:fe");
    EXPECT_EQ(get_gateway(nullptr, &address, 16), -1);
    EXPECT_EQ(get_gateway(text, nullptr, 16), -1);

    // About a hundred routes come in several datagrams; four hundred are too many.
    for (const auto &[first, last, want] :
         {std::tuple(0, 100, "1 192.0.2.254 c00002fe 1 02:a0:f1:00:00:fe"),
          std::tuple(100, 400, "-1 kept 7000000 0 kept")}) {
        std::string batch;
        for (int i = first; i < last; ++i)
            batch += "route add 10.1." + std::to_string(i / 256) + "." + std::to_string(i % 256) +
                     " via 192.0.2.3 dev br0\n";
        file("/tmp/batch", batch);
        must_run("ip -batch /tmp/batch");
        EXPECT_EQ(gateway(), want);
    }
}

TEST_F(StatusNetwork, AnIncompleteNeighbourIsEntered)
{
    make_bridge();
    EXPECT_EQ(add_ip_neigh_entry("br0", "192.0.2.77"), 0);
    EXPECT_THAT(run("ip neigh show dev br0 nud all").output, HasSubstr("192.0.2.77 INCOMPLETE"));
    EXPECT_EQ(add_ip_neigh_entry("none", "192.0.2.78"), 0); // sent, and refused by the kernel
    for (const char *ip : {"192.0.2", "192.0.2.777", "", "fe80::1", " 192.0.2.1"})
        EXPECT_EQ(add_ip_neigh_entry("br0", ip), -1);
    EXPECT_EQ(add_ip_neigh_entry("br0", nullptr), -1);
}
