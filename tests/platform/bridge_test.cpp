

#include "platform/rows.h"

using Bridge = Device;

const char *const kNothing = nullptr;

// A record of 02:a0:f1:00:00:`last`, as the kernel writes it; the switch driver's have 24 bytes.
static std::string record(uint8_t last, uint8_t port, uint32_t age, size_t size = 16)
{
    const fdb_record r = {{0x02, 0xa0, 0xf1, 0, 0, last}, port, 0, age, 1, {}};
    return {reinterpret_cast<const char *>(&r), size};
}

// A written bridge's port with its number as text.
static void write_port(const std::string &bridge, const std::string &port,
                       const std::string &number)
{
    Device::file("/sys/class/net/" + bridge + "/brif/" + port + "/port_no", number);
}

// The result, age and port of a lookup.
static std::string learned(const char *bridge, const char *mac)
{
    unsigned age = 77, port = 77;
    const int rc = get_mac_brinfo(bridge, mac, &age, &port);
    return shown(rc, age, port);
}

// What the walk visits, as "name port age", and what it says.
static std::string visit(const char *prefix, std::vector<const char *> exclude = {kNothing})
{
    std::multiset<std::string> visits;
    const fdb_callback note = [](void *user, const fdb_record *entry, const char *ifname) {
        const int port = entry->port_no;
        static_cast<decltype(visits) *>(user)->insert(shown(ifname, port, entry->ageing_timer));
    };
    fdb_foreach(prefix, exclude.data(), note, &visits);
    std::string text;
    for (const std::string &one : visits)
        text += one + ";";
    return with_log(text);
}

TEST_F(Bridge, AnAddressIsFoundWhereItWasLearned)
{
    kernel_sys();
    make_bridge();
    must_run("for i in $(seq 0 999); do printf 'fdb add 02:a0:f1:01:%02x:%02x dev eth0 master "
             "dynamic\n' $((i / 256)) $((i % 256)); done | bridge -batch -");
    for (const char *found : {"02:A0:f1:01:00:00", "02:a0:f1:01:03:e7"})
        EXPECT_THAT(learned("br0", found), testing::MatchesRegex("1 [0-5] 1"));
    EXPECT_EQ(visit("br0"), ""); // 16 bytes answer a read of 24
    const uint8_t last[6] = {0x02, 0xa0, 0xf1, 1, 3, 0xe7};
    EXPECT_EQ(fdb_delneigh(last, "eth0"), 0);
    EXPECT_EQ(learned("br0", "02:a0:f1:01:03:e7"), "0 77 77");
    EXPECT_EQ(fdb_delneigh(nullptr, "lo"), -EINVAL);
    for (const char *none : {"none", kNothing}) // the number is one that callers know
        EXPECT_EQ(with_log(shown(fdb_delneigh(last, none))), "-19 fdb_delneigh: -19 on line 145");
}

TEST_F(Bridge, RecordsStatesAndPortsOfWrittenFiles)
{
    file("/sys/class/net/br0/brforward",
         record(1, 2, 0) + record(7, 3, 12345) + record(7, 4, 0) + record(8, 5, 0).substr(0, 15));
    const std::string longer(5000, 'b');
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:07"), "1 123 3");
    for (const char *mac : {"02:a0:f1:00:00:08", "02:a0:f1:00:00:07:", kNothing})
        EXPECT_EQ(learned("br0", mac), "0 77 77");
    for (const char *bridge : {"br1", longer.c_str(), kNothing})
        EXPECT_EQ(learned(bridge, "02:a0:f1:00:00:07"), "0 77 77");
    const auto states = [] { // the state, whether disabled, forwarding
        return shown(get_br_port_state("br0", "eth0"), is_brif_disabled("br0", "eth0"),
                     is_brif_forwarding("br0", "eth0"));
    };
    expect_rows("/sys/class/net/br0/brif/eth0/state", states,
                {"3\n => 3 0 1", "0\n => 0 1 0", "1 => 1 0 0", " => -1 1 0", "(none) => -1 1 0"});
    // The ports of a bridge are links to the interfaces.
    write_port("br0", "folder", "0x1\n");
    write_port("br0", "../eth1", "0x11\n");
    write_port("br0", "../eth2", "17\n");
    must_run("cd /sys/class/net/br0/brif && ln -s ../eth2 eth2 && ln -s ../none dangling &&"
             "ln -s ../eth1 a-name-of-over-fifteen-characters");
    const auto port = [](const char *bridge, unsigned number) {
        char ifname[IFNAMSIZ + 2] = "kept";
        ifname[IFNAMSIZ] = '!';
        const int rc = get_ifname_from_br_portno(bridge, number, ifname);
        return shown(rc, ifname, ifname + IFNAMSIZ);
    };
    EXPECT_EQ(port("br0", 17), "1 a-name-of-over- !");
    for (const char *bridge : {"br0", "br1", longer.c_str(), kNothing})
        EXPECT_EQ(port(bridge, 1), "0 kept !");
    close(STDIN_FILENO); // the table opens as descriptor 0
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:07"), "0 77 77");
}

TEST_F(Bridge, TheWalkVisitsPortsThatAreNotExcludedOfABridgeAndItsVlans)
{
    for (const std::string name : {"br0", "br0.5", "br01"}) {
        write_port(name, "eth0", "0x1\n");
        file("/sys/class/net/" + name + "/brforward",
             record(7, 1, static_cast<uint32_t>(name.size()), 24));
    }
    EXPECT_EQ(visit("br0"), "eth0 1 3;eth0 1 5;");
    EXPECT_EQ(visit(nullptr), "eth0 1 3;eth0 1 4;eth0 1 5;");
    remove("/sys/class/net/br0/brforward");
    EXPECT_EQ(visit("br0"), "eth0 1 5; /sys/class/net/br0/brforward: No such file or directory");
    remove("/sys/class/net");
    EXPECT_EQ(visit("br0"), " /sys/class/net: No such file or directory");

    for (const auto &[name, number] : {std::pair("eth0", "0x1\n"),
                                       {"eth0.7", "0x102\n"},
                                       {"eth01", "3\n"},
                                       {"eth9", "0\n"},
                                       {"wifi0", "x\n"}})
        write_port("br0", name, number);
    std::string table;
    for (uint8_t port = 0; port < 5; ++port)
        table += record(7, port, 7, 24);
    file("/sys/class/net/br0/brforward", table + record(7, 1, 8, 23));
    EXPECT_EQ(visit("br0", {"wifi0", "eth0", "eth9", kNothing}), "eth01 3 7;");
    EXPECT_EQ(visit("br0", {"wifi0", "eth0", "eth01", kNothing}), "eth9 0 7;");
    EXPECT_EQ(visit("br0", {"eth0", "eth01", "eth9", kNothing}), "");
    EXPECT_EQ(visit("br0", {"eth0.7", "eth01", "eth9", kNothing}), "eth0 1 7;");

    remove("/sys/class/net/br0/brif");
    for (int port = 1; port <= 16; ++port) { // so many are tracked
        write_port("br0", "eth" + std::to_string(port), std::to_string(port));
        EXPECT_EQ(visit("br0").ends_with("_fdb_foreach_on_bridge: WARN: MAX_ETH_PORTS hit!"),
                  port == 16);
    }
}

TEST_F(Bridge, HardwareAddresses)
{
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    int index = 77;
    EXPECT_EQ(shown(devhwaddr_get(mac), devhwaddr_get_iface(mac, "br0"),
                    devhwaddr_get_iface(nullptr, "lo"), shown_mac(mac),
                    devifindex_get_hwaddr(&index, mac), index, devifindex_get_hwaddr(nullptr, mac),
                    devifindex_get_hwaddr(&index, nullptr), devhwaddr_generate(nullptr, 0x42)),
              "1 -10 -1 1:2:3:4:5:6 -10 77 -1 -1 0");
    devhwaddr_generate(mac, 0x42);
    EXPECT_EQ(shown_mac(mac), "2:a0:f1:de:ad:42");
    for (const std::string name : {"br0", "eth0_real", "eth0"}) { // each before those made already
        const std::string last = std::to_string(name.size());
        must_run("ip link add " + name + " address 02:a0:f1:00:00:0" + last + " type bridge");
        EXPECT_EQ(devhwaddr_get(mac), 0);
        EXPECT_EQ(shown_mac(mac), "2:a0:f1:0:0:" + last);
    }
    // lo and these: the last match is beyond ten entries.
    must_run(
        "i=0; for last in 4 4 8 8 8 8 8 8 8 8 8 8 8 4; do i=$((i + 1)); ip link add d$i address "
        "02:a0:f1:00:00:0$last type bridge; ip addr add 192.0.2.$i/32 dev d$i; done");
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), 0);
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("d2")));
}
