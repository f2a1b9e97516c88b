#include <zorv/status.h>

#include <cerrno>

#include <arpa/inet.h>
#include <net/if.h>

#include "support/device.h"

namespace {

using StatusNetwork = Device;

constexpr char kDevHeader[] = "Inter-|   Receive                |  Transmit\n"
                              " face |bytes    packets errs      |bytes    packets\n";
constexpr char kArpHeader[] =
    "IP address       HW type     Flags       HW address            Mask     Device\n";

} // namespace

TEST_F(StatusNetwork, AnInterfaceAsTheKernelShowsIt)
{
    kernel_proc();
    make_bridge();
    must_run("ip addr add 198.51.100.7/23 dev eth0");
    dev_status s = {};
    ASSERT_EQ(fill_dev_status("eth0", &s), 0);
    EXPECT_STREQ(s.ifname, "eth0");
    EXPECT_THAT(s.hwaddr, ElementsAre(0x02, 0xa0, 0xf1, 0, 0, 0x10));
    EXPECT_STREQ(s.ipaddr_str, "198.51.100.7");
    EXPECT_STREQ(s.netmask_str, "255.255.254.0");
    EXPECT_EQ(s.present, 1);
    EXPECT_EQ(s.flags & (IFF_UP | IFF_BROADCAST), IFF_UP | IFF_BROADCAST);
    EXPECT_EQ(s.speed, 10000U); // what a veth says of itself
    EXPECT_EQ(s.duplex, 1U);
    EXPECT_EQ(s.speed_2, 10000U);
    EXPECT_EQ(get_ethtool_link_status("eth0"), 1);
    must_run("ip link set far0 down");
    EXPECT_EQ(get_ethtool_link_status("eth0"), 0);

    // No interface of that name: what is known stays, the rest is neutral.
    s.flags = 5;
    ASSERT_EQ(fill_dev_status("eth0.with.a.long.name", &s), 0);
    EXPECT_STREQ(s.ifname, "eth0.with.a.lon");
    EXPECT_STREQ(s.ipaddr_str, "0.0.0.0");
    EXPECT_EQ(s.ipaddr, 0U);
    EXPECT_EQ(s.present, 1);
    EXPECT_EQ(s.flags, 5);
    EXPECT_EQ(s.hwaddr[5], 0x10);
    EXPECT_EQ(s.speed, 0U);
    EXPECT_EQ(s.duplex, 0xFFU);
    EXPECT_EQ(s.duplex_2, 0xFFU);
    EXPECT_EQ(get_ethtool_link_status("eth0.with.a.long.name"), -1);
    EXPECT_EQ(get_ethtool_link_status(nullptr), -1);
}

TEST_F(StatusNetwork, CountersOfARow)
{
    file("/proc/net/dev", kDevHeader + std::string("eth00: 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9\n"
                                                   "no colon\n"
                                                   "\t eth0:1 0x10 3\t4 5 6 7 010 x 10 11 "
                                                   "18446744073709551615 13 14 15 16\n"
                                                   "eth0: 7\n"
                                                   "cut:1 2"));
    dev_status s = {};
    s.tx_errors = 99;
    ASSERT_EQ(fill_dev_status("eth0", &s), 0);
    EXPECT_EQ(s.present, 1);
    EXPECT_EQ(s.rx_bytes, 1U);
    EXPECT_EQ(s.rx_packets, 16U); // any base
    EXPECT_EQ(s.rx_errors, 3U);
    EXPECT_EQ(s.rx_dropped, 4U);
    EXPECT_EQ(s.rx_multicast, 8U);
    EXPECT_EQ(s.tx_bytes, 0U);
    EXPECT_EQ(s.tx_packets, 10U);
    EXPECT_EQ(s.tx_errors, 11U);
    EXPECT_EQ(s.tx_dropped, UINT64_MAX);

    dev_status cut = {};
    cut.rx_errors = 99;
    EXPECT_EQ(fill_dev_status("cut", &cut), 0);
    EXPECT_EQ(cut.rx_packets, 2U);
    EXPECT_EQ(cut.rx_errors, 99U);
    dev_status none = {};
    EXPECT_EQ(fill_dev_status(nullptr, &none), 0);
    EXPECT_EQ(none.present, 0);
    EXPECT_STREQ(none.ifname, "");

    file("/proc/net/dev", "one line\n");
    EXPECT_EQ(fill_dev_status("eth0", &s), -ENOENT);
    remove("/proc/net/dev");
    EXPECT_EQ(fill_dev_status("eth0", &s), -1);
    EXPECT_EQ(fill_dev_status("eth0", nullptr), -1);
}

TEST_F(StatusNetwork, WithoutASocket)
{
    file("/proc/net/dev", kDevHeader);
    dev_status s;
    limit_descriptors(0);
    EXPECT_EQ(fill_dev_status("eth0", &s), -1);
    EXPECT_EQ(get_ethtool_link_status("eth0"), -1);
    char text[16];
    uint32_t address;
    EXPECT_EQ(get_gateway(text, &address, sizeof text), -1);
    EXPECT_EQ(add_ip_neigh_entry("lo", "192.0.2.9"), -1);
    limit_descriptors();
}

TEST_F(StatusNetwork, MacByIpTakesOnlyACompleteEntry)
{
    file("/proc/net/arp",
         kArpHeader +
             std::string("192.0.2.1        0x1   0x0   00:00:00:00:00:00     *        br0\n"
                         "192.0.2.7        0x1   0x2   02:a0:f1:00:00:07     *        br0\n"
                         "192.0.2.8        0x1   0x2   02:a0:f1:00:00:08:and:more *   br0\n"
                         "cut short\n"
                         "192.0.2.9        0x1   0x2   02:a0:f1:00:00:09     *        br0\n"));
    char mac[20] = "kept";
    EXPECT_EQ(get_mac_by_ip("192.0.2.1", mac, sizeof mac), 0);
    EXPECT_EQ(get_mac_by_ip("192.0.2.9", mac, sizeof mac), 0); // behind the broken row
    EXPECT_EQ(get_mac_by_ip("192.0.2.7", nullptr, sizeof mac), 0);
    EXPECT_STREQ(mac, "kept");
    EXPECT_EQ(get_mac_by_ip(nullptr, mac, sizeof mac), 1);
    EXPECT_STREQ(mac, "02:a0:f1:00:00:07");
    EXPECT_EQ(get_mac_by_ip("192.0.2.8", mac, sizeof mac), 1);
    EXPECT_STREQ(mac, "02:a0:f1:00:00:08");
    EXPECT_THAT(logged(), IsEmpty());

    EXPECT_EQ(get_mac_by_ip("192.0.2.7", mac, 6), 1);
    EXPECT_STREQ(mac, "02:a0");
    EXPECT_EQ(get_mac_by_ip("192.0.2.7", mac, 0), 1);
    EXPECT_STREQ(mac, "02:a0");
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_status.get_mac_by_ip(): mac truncated",
                                      "[error] libzorv_status.get_mac_by_ip(): mac truncated"));
    remove("/proc/net/arp");
    EXPECT_EQ(get_mac_by_ip(nullptr, mac, sizeof mac), 0);
}

TEST_F(StatusNetwork, TheGatewayIsThatOfTheBridge)
{
    kernel_proc();
    make_bridge();
    char text[16] = "kept", mac[18] = "kept";
    uint32_t address = 7;
    EXPECT_EQ(get_gateway(text, &address, sizeof text), 0);
    EXPECT_EQ(get_gateway_mac(mac, sizeof mac), 0);

    must_run("ip link add wan0 type bridge && ip addr add 203.0.113.1/24 dev wan0 &&"
             "ip link set wan0 up && ip route add default via 203.0.113.254 dev wan0 metric 1 &&"
             "ip route add 10.0.0.0/8 via 192.0.2.3 dev br0 &&"
             "ip route add default via 192.0.2.4 dev br0 table 7 &&"
             "ip route add default dev br0 metric 2");
    EXPECT_EQ(get_gateway(text, &address, sizeof text), 0);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(address, 7U);

    must_run("ip route add default via 192.0.2.254 dev br0 metric 50 &&"
             "ip route add default via 192.0.2.253 dev br0 metric 60");
    EXPECT_EQ(get_gateway(text, &address, sizeof text), 1);
    EXPECT_STREQ(text, "192.0.2.254");
    EXPECT_EQ(address, inet_addr("192.0.2.254"));
    EXPECT_EQ(get_gateway(text, &address, 6), 1);
    EXPECT_STREQ(text, "192.0");
    EXPECT_EQ(get_gateway(nullptr, &address, 6), -1);

    EXPECT_EQ(get_gateway_mac(mac, sizeof mac), 0);
    must_run("ip neigh add 192.0.2.254 lladdr 02:a0:f1:00:00:fe dev br0");
    EXPECT_EQ(get_gateway_mac(mac, sizeof mac), 1);
    EXPECT_STREQ(mac, "02:a0:f1:00:00:fe");

    // About a hundred routes come in several datagrams; four hundred are too many.
    const auto add_routes = [](int first, int last) {
        std::string batch;
        for (int i = first; i < last; ++i)
            batch += "route add 10.1." + std::to_string(i / 256) + "." + std::to_string(i % 256) +
                     " via 192.0.2.3 dev br0\n";
        file("/tmp/batch", batch);
        must_run("ip -batch /tmp/batch");
    };
    add_routes(0, 100);
    EXPECT_EQ(get_gateway(text, &address, sizeof text), 1);
    EXPECT_STREQ(text, "192.0.2.254");
    add_routes(100, 400);
    EXPECT_EQ(get_gateway(text, &address, sizeof text), -1);
}

TEST_F(StatusNetwork, AnIncompleteNeighbourIsEntered)
{
    make_bridge();
    EXPECT_EQ(add_ip_neigh_entry("br0", "192.0.2.77"), 0);
    EXPECT_THAT(run("ip neigh show dev br0 nud all").output, HasSubstr("192.0.2.77 INCOMPLETE"));
    EXPECT_EQ(add_ip_neigh_entry("none", "192.0.2.78"), 0); // sent, and refused by the kernel
    for (const auto ip : {"192.0.2", "192.0.2.777", "", "fe80::1", " 192.0.2.1"})
        EXPECT_EQ(add_ip_neigh_entry("br0", ip), -1);
    EXPECT_EQ(add_ip_neigh_entry("br0", nullptr), -1);
}
