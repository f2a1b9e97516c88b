

#include "platform/rows.h"

using Status = Device;

TEST_F(Status, ServicesNeedBothOfTheirKeys)
{
    const auto services = [] {
        dev_status s;
        memset(&s, 0x55, sizeof s);
        EXPECT_EQ(fill_services(&s), 0);
        return shown(s.dhcpc, s.dhcpd, s.ppp, s.iptables, s.ebtables);
    };
    const std::string both = "dhcpc.status=enabled\ndhcpc.1.status=enabled\n";
    expect_rows(
        "/tmp/system.cfg", services,
        {" ppp.status = enabled \n\x01\tppp.1.status\xff=\x80 enabled\r\n => 0 0 1 0 0",
         ("dhcpd.status=enabled\ndhcpd.1.status=enabled\ndhcpd.1.status=disabled\n"
          "iptables.50.status=enabled\niptables.status=enabled => 0 1 0 1 0"),
         "#" + both + "ebtables.status=enabled\nebtables.50.status=enabled => 0 0 0 0 1",
         "\r" + both + "dhcpc.status=Enabled\nDHCPC.status=enabled\n => 0 0 0 0 0",
         "dhcpc.status==enabled\ndhcpc.1.status=enabled=\n=enabled\nenabled\n\r\n => 0 0 0 0 0",
         "x=" + std::string(3000, 'x') + "\n" + both + std::string(1, '\0') + " => 1 0 0 0 0"});
    chmod("/tmp/system.cfg", 0777);
    EXPECT_EQ(services(), "0 0 0 0 0");
}

TEST_F(Status, VersionAndFlagFiles)
{
    const auto version = [] {
        const char *text = nullptr;
        errno = EBUSY;
        const int rc = get_version(&text);
        return shown(rc, text, errno == EBUSY);
    };
    const std::string v(31, 'v'), b(31, '1'); // of the build so much is read; the whole has 63
    expect_rows("/usr/etc/.build", version, {"1\n => -2 unknown.0 1"});
    expect_rows("/usr/etc/.version", version, {" => -22 unknown.0 1"});
    file("/usr/etc/.version", v + "\nmore\n");
    expect_rows("/usr/etc/.build", version,
                {" => -22 unknown.0 1", "(folder) => -21 unknown.0 1",
                 b + "23\n => 0 " + v + "." + b + " 1", "(none) => 0 " + v + "." + b + " 1"});

    const auto flag = [] {
        return shown(system_is_xxx("/proc/f", 0), system_is_xxx("/proc/f", 7));
    };
    expect_rows("/proc/f", flag,
                {"true\n => 1 1", "TRUE\n => 0 0", "true \n => 0 0", " => 0 1", "(none) => 0 7"});
    // What is set, the result, what is there then, how it is read.
    for (const auto &[path, value, want] : {std::tuple("/proc/flag", 0, "0 false\n 0"),
                                            {"/run/flag", 5, "0 true\n 1"},
                                            {"/run/flag", 0, "0 nothing 0"},
                                            {"/run/none/flag", 1, "-1 nothing 0"}}) {
        const int rc = system_set_xxx(path, value);
        EXPECT_EQ(shown(rc, exists(path) ? read(path) : "nothing", system_is_xxx(path, 0)), want);
    }
    umask(077);
    for (const int rc : {system_set_value("/tmp/old", "%d"), touch_file("/tmp/old", 0600),
                         touch_file("/tmp/new", 0644)})
        EXPECT_EQ(rc, 0);
    EXPECT_EQ(run("stat -c %a /tmp/old /tmp/new; cat /tmp/old").output, "600\n644\n%d\n");
    for (const int rc : {touch_file("/tmp/none/new", 0600), touch_file(nullptr, 0600),
                         system_set_value("/dev/full", std::string(5000, 'x').c_str()),
                         system_set_value(nullptr, "x")})
        EXPECT_EQ(rc, -1);
    EXPECT_EQ(with_log(""), " [error] libzorv_status.touch_file(): /tmp/none/new - 2/No such file "
                            "or directory [error] libzorv_status.touch_file():  - 14/Bad address");
}

TEST_F(Status, BoardFilePublishedStatesAndTimes)
{
    const int before = open_descriptors();
    const auto board = [before](int size = 5) {
        char serial[10] = "zzzzzzzzz";
        const int rc = get_boardsn("/tmp/board", serial, size);
        return shown(get_boardrevision("/tmp/board"), rc, serial, open_descriptors() - before);
    };
    expect_rows("/tmp/board", [&] { return board(); },
                {"boardrevision=7\nboardrevision=x=0x12\nserialno=a=b\n => 0 0 b\nzzzzzzz 0",
                 " boardrevision=9\nSERIALNO=1\n => 0 0 \nzzzzzzzz 0",
                 "(none) => -1 -1 zzzzzzzzz 0",
                 "serialno=0123\r\nboardrevisions = -3 => -3 0 0123\nzzzz 0"});
    EXPECT_EQ(board(4), "-3 -1 zzzzzzzzz 1"); // what does not fit leaves its file open
    const auto facts = [] { return shown(get_main_mac_str(), get_manufid()); };
    expect_rows("/proc/zorvhal/system.info", facts,
                {"(none) => 00:11:22:33:44:55 0",
                 "eth0.macaddr=02:a0:f1:00:00:07\nwifi0.macaddr=x\nmanufid=0a1B\n => "
                 "02:a0:f1:00:00:07 2587",
                 "wifi0.macaddr=02:a0:f1:00:00:08:99\nmanufid=000fF\n => 02:a0:f1:00:00:08 15"});
    expect_rows("/var/run/system.internet", system_internet_status,
                {"(none) => -1", "72 => 7", "9 => 9", "/1 => 0", ": => 0", " => 0"});
    expect_rows("/var/run/dhcpc.last_state", system_dhcp_status,
                {"(none) => 0", "bound\n => 3", "renew => 4", "leasefail => 2", "deconfig\n => 1",
                 "Bound\n => 0", "bound \n => 0", "(folder) => 0"});
    expect_rows("/proc/net/tcp", system_is_ssh,
                {"(none) => 0", "   1: 0100007F:0016 0100007F:8A3C 01 0\n => 0",
                 "  sl\n   0: 0A:0050 0\n   2: 00000000:0016 00000000:0000 0A 0:0\n => 1"});
    // The environment, and the one where only releases are in production.
    const auto environment = [] { return shown(get_kelo_env(), get_kelo_env_limit_prod()); };
    expect_rows("/usr/lib/build.properties", environment,
                {"(none) => 0 2", "scm_reftype=atag\n => 0 0", "scm_reftype=branch\n => 0 2"});
    file("/etc/persistent/cfg/mgmt", "mgmt.kelo.env=stage\nmgmt.kelo.env.force=enabled\n");
    expect_rows("/tmp/system.cfg", environment,
                {"(none) => 1 1", "mgmt.kelo.env=dev\n => 2 2", "mgmt.kelo.env=develop\n => 0 0",
                 "mgmt.kelo.env=prod\nmgmt.kelo.env.force=0\n => 0 2",
                 "mgmt.kelo.env=prod\nmgmt.kelo.env.force=1\n => 0 0"});

    expect_rows("/proc/uptime", get_uptime_from_proc,
                {"(none) => -1", "12345.67 890.12\n => 12345", ".5 1\n => -1", "\n123\n => -1"});
    kernel_proc();
    EXPECT_LE(std::abs(get_uptime_from_proc() - get_uptime_from_sysinfo()), 2);
    // The seconds, the room, the words; days count in 32 bits.
    const std::tuple<unsigned long, size_t, const char *> kRows[] = {
        {90061, 32, "1d1h1m1s"}, {3600, 32, "1h"},
        {90061, 4, "1d1"},       {90061, 0, "kept"},
        {86400UL << 32, 32, ""}, {(86400UL << 32) - 1, 32, "4294967295d23h59m59s"}};
    char text[32], cells[7][8];
    for (const auto &[seconds, size, words] : kRows) {
        strcpy(text, "kept");
        uptime2str(seconds, text, size);
        EXPECT_STREQ(text, words);
    }
    std::string joined;
    get_system_time(cells);
    for (const auto &cell : cells)
        joined += std::string(cell) + "|";
    EXPECT_THAT(joined, testing::MatchesRegex("([A-Z][a-z]+\\|)+([0-9]+\\|)+[0-9]+\n\\|"));
}

TEST_F(Status, RowsOfTheKernelsTables)
{
    file("/proc/net/dev", "Inter-|\nface |bytes\neth00: 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9\nno colon\n"
                          "\t eth0:1 0x10 3\t4 5 6 7 010 x 10 11 " // in any base
                          "18446744073709551615 13 14 15 16\neth0: 7\ncut:1 2");
    dev_status s;
    const auto counters = [&s](const char *ifname) {
        s = {};
        s.rx_errors = 77;
        s.tx_errors = 99;
        const int rc = fill_dev_status(ifname, &s);
        return shown(rc, s.ifname, s.present, s.rx_bytes, s.rx_packets, s.rx_errors, s.rx_dropped,
                     s.rx_multicast, s.tx_bytes, s.tx_packets, s.tx_errors, s.tx_dropped);
    };
    EXPECT_EQ(counters("eth0"), "0 eth0 1 1 16 3 4 8 0 10 11 18446744073709551615");
    EXPECT_EQ(counters("cut"), "0 cut 1 1 2 77 0 0 0 0 99 0");
    EXPECT_EQ(counters(nullptr), "0  0 0 0 77 0 0 0 0 99 0");
    expect_rows("/proc/net/dev", [&s] { return fill_dev_status("eth0", &s); },
                {"one line\n => -2", "(none) => -1"});
    EXPECT_EQ(fill_dev_status("eth0", nullptr), -1);

    file("/proc/net/arp",
         "IP address       HW type     Flags       HW address\n"
         "192.0.2.1        0x1   0x0   00:00:00:00:00:00     *        br0\n"
         "192.0.2.7        0x1   0x2   02:a0:f1:00:00:07:and:more *   br0\ncut short\n"
         "192.0.2.9        0x1   0x2   02:a0:f1:00:00:09     *        br0\n");
    const auto neighbour = [](const char *ip, size_t size) {
        char mac[20] = "kept";
        const int rc = get_mac_by_ip(ip, mac, size);
        return with_log(shown(rc, mac));
    };
    EXPECT_EQ(neighbour("192.0.2.1", 18), "0 kept");
    EXPECT_EQ(neighbour("192.0.2.9", 18), "0 kept"); // behind the broken row
    EXPECT_EQ(neighbour(nullptr, 20), "1 02:a0:f1:00:00:07");
    EXPECT_EQ(neighbour("192.0.2.7", 17),
              "1 02:a0:f1:00:00:0 [error] libzorv_status.get_mac_by_ip(): mac truncated");
    remove("/proc/net/arp");
    EXPECT_EQ(neighbour(nullptr, 18), "0 kept");
}

TEST_F(Status, InterfacesGatewayAndNeighboursAsTheKernelShowsThem)
{
    kernel_proc();
    make_bridge();
    must_run("ip addr add 198.51.100.7/23 dev eth0");
    dev_status s = {};
    const auto status = [&s](const char *ifname) {
        const int rc = fill_dev_status(ifname, &s);
        return shown(rc, s.ifname, shown_mac(s.hwaddr), s.ipaddr_str, hex(ntohl(s.ipaddr)),
                     s.netmask_str, hex(ntohl(s.netmask)), s.flags & 7, s.speed, s.duplex,
                     s.speed_2, s.duplex_2, get_ethtool_link_status(ifname));
    };
    EXPECT_EQ(status("eth0"), "0 eth0 2:a0:f1:0:0:10 198.51.100.7 c6336407 255.255.254.0 "
                              "fffffe00 3 10000 1 10000 1 1"); // what a veth says of itself
    must_run("ip link set far0 down");
    EXPECT_EQ(get_ethtool_link_status("eth0"), 0);
    must_run("ip link set far0 up");
    s.flags = 5; // no interface of that name: what is known stays, the rest is neutral
    EXPECT_EQ(status("eth0.with.a.long.name"),
              "0 eth0.with.a.lon 2:a0:f1:0:0:10 0.0.0.0 0 0.0.0.0 0 5 0 255 0 255 -1");

    const auto gateway = [](uint32_t size = 16) {
        char text[16] = "kept", mac[18] = "kept";
        uint32_t address = 7;
        const int rc = get_gateway(text, &address, size), mac_rc = get_gateway_mac(mac, sizeof mac);
        return shown(rc, text, hex(ntohl(address)), mac_rc, mac);
    };
    must_run("ip link add wan0 type bridge && ip addr add 203.0.113.1/24 dev wan0 &&"
             "ip link set wan0 up && ip route add default via 203.0.113.254 dev wan0 metric 1 &&"
             "ip route add default dev br0 metric 2");
    EXPECT_EQ(gateway(), "0 kept 7000000 0 kept");
    must_run("ip route add default via 192.0.2.254 dev br0 metric 50");
    EXPECT_EQ(gateway(), "1 192.0.2.254 c00002fe 0 kept");
    uint32_t address;
    EXPECT_EQ(get_gateway(nullptr, &address, 16), -1);
    // Some hundred routes come in several datagrams.
    must_run("ip neigh add 192.0.2.254 lladdr 02:a0:f1:00:00:fe dev br0");
    must_run("for i in $(seq 600); do echo route add 10.1.1.1 dev br0 metric $i; done |"
             "ip -batch -");
    EXPECT_EQ(gateway(6), "1 192.0 c00002fe 1 02:a0:f1:00:00:fe");

    EXPECT_EQ(add_ip_neigh_entry("br0", "192.0.2.77"), 0);
    EXPECT_THAT(run("ip neigh show dev br0 nud all").output, HasSubstr("192.0.2.77 INCOMPLETE"));
    EXPECT_EQ(add_ip_neigh_entry("none", "192.0.2.78"), 0); // sent, and refused by the kernel
    EXPECT_EQ(add_ip_neigh_entry("br0", "192.0.2"), -1);
}
