#include <zorv/bridge.h>

#include <cerrno>
#include <set>

#include <net/if.h>

#include "platform/rows.h"

namespace {

using Bridge = Device;
using Lines = std::vector<std::string>;

// A record of 02:a0:f1:00:00:`last`, as the kernel writes it; the switch driver adds eight bytes.
std::string record(char last, int port, uint32_t age)
{
    std::string bytes("\x02\xa0\xf1\0\0", 5);
    bytes += {last, static_cast<char>(port), '\0'}; // not local
    bytes.append(reinterpret_cast<const char *>(&age), sizeof age);
    return bytes + std::string{static_cast<char>(port >> 8), '\0', '\0', '\0'};
}

std::string wide_record(int port, uint32_t age)
{
    return record(7, port, age) + std::string(8, '\0');
}

// A written bridge's port with its number as text.
void write_port(const std::string &bridge, const std::string &port, const std::string &number)
{
    Device::file("/sys/class/net/" + bridge + "/brif/" + port + "/port_no", number);
}

// The result, age and port of a lookup.
std::string learned(const char *bridge, const char *mac)
{
    unsigned age = 77, port = 77;
    const int rc = get_mac_brinfo(bridge, mac, &age, &port);
    EXPECT_EQ(get_mac_brinfo(bridge, mac, nullptr, nullptr), rc);
    return shown(rc, age, port);
}

// What the walk visits, as "name port age".
std::multiset<std::string> visit(const char *prefix, std::vector<const char *> exclude = {})
{
    std::multiset<std::string> visits;
    exclude.push_back(nullptr);
    const fdb_callback note = [](void *user, const fdb_record *entry, const char *ifname) {
        const int port = entry->port_no;
        static_cast<decltype(visits) *>(user)->insert(shown(ifname, port, entry->ageing_timer));
    };
    fdb_foreach(prefix, exclude.size() == 1 ? nullptr : exclude.data(), note, &visits);
    return visits;
}

} // namespace

TEST_F(Bridge, AnAddressIsFoundWhereItWasLearned)
{
    kernel_sys();
    make_bridge();
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:07"), "0 77 77");
    std::string batch;
    char mac[18];
    for (int i = 0; i < 1000; ++i) {
        snprintf(mac, sizeof mac, "02:a0:f1:01:%02x:%02x", i >> 8, i & 0xff);
        batch += "fdb add " + std::string(mac) + " dev eth0 master dynamic\n";
    }
    file("/tmp/batch", batch);
    must_run("bridge -batch /tmp/batch");
    for (const char *found : {"02:a0:f1:01:00:00", "02:A0:f1:01:01:77", "02:a0:f1:01:03:e7"})
        EXPECT_THAT(learned("br0", found), testing::MatchesRegex("1 [0-5] 1"));
    EXPECT_EQ(learned("br0", "02:a0:f1:01:03:e8"), "0 77 77");
    EXPECT_THAT(visit("br0"), IsEmpty()); // 16 bytes answer a read of 24
    char ifname[IFNAMSIZ] = "";
    EXPECT_EQ(get_ifname_from_br_portno("br0", 1, ifname), 1);
    EXPECT_STREQ(ifname, "eth0");
    EXPECT_EQ(is_brif_forwarding("br0", "eth0"), 1);

    const uint8_t last[6] = {0x02, 0xa0, 0xf1, 1, 3, 0xe7};
    EXPECT_EQ(fdb_delneigh(last, "eth0"), 0);
    EXPECT_EQ(learned("br0", "02:a0:f1:01:03:e7"), "0 77 77");
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(fdb_delneigh(last, "none"), -ENODEV);
    EXPECT_EQ(fdb_delneigh(last, nullptr), -ENODEV);
    EXPECT_EQ(fdb_delneigh(nullptr, "lo"), -EINVAL);
    EXPECT_EQ(fdb_delneigh(last, "lo"), 0); // sent; that lo is no port is not told
    EXPECT_THAT(logged(),                   // the numbers are those that callers know
                ElementsAre("fdb_delneigh: -19 on line 145", "fdb_delneigh: -19 on line 145"));
}

TEST_F(Bridge, RecordsOfAWrittenTable)
{
    file("/sys/class/net/br0/brforward", record(1, 0x102, 0) + record(7, 3, 12345) +
                                             record(7, 4, 0) + record(8, 5, 0).substr(0, 15));
    const std::string longer(5000, 'b');
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:07"), "1 123 3");
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:01"), "1 0 2"); // the low byte
    const char *const kNothing = nullptr;
    for (const char *mac : {"02:a0:f1:00:00:08", "02:a0:f1:00:00", kNothing})
        EXPECT_EQ(learned("br0", mac), "0 77 77");
    for (const char *bridge : {"br1", kNothing, longer.c_str()})
        EXPECT_EQ(learned(bridge, "02:a0:f1:00:00:07"), "0 77 77");
    close(STDIN_FILENO); // the table opens as descriptor 0
    EXPECT_EQ(learned("br0", "02:a0:f1:00:00:07"), "0 77 77");
}

TEST_F(Bridge, PortStatesAndNumbers)
{
    const auto states = [] { // the state, whether disabled, forwarding
        return shown(get_br_port_state("br0", "eth0"), is_brif_disabled("br0", "eth0"),
                     is_brif_forwarding("br0", "eth0"));
    };
    expect_rows("/sys/class/net/br0/brif/eth0/state", states,
                {"3\n => 3 0 1", "0\n => 0 1 0", "1 => 1 0 0", " 2\n => 2 0 0", " => -1 1 0",
                 "forwarding => -1 1 0", "(none) => -1 1 0"});
    EXPECT_EQ(get_br_port_state(nullptr, "eth0"), -1);
    EXPECT_EQ(get_br_port_state("br0", nullptr), -1);

    // The ports of a bridge are links to the interfaces.
    write_port("br0", "folder", "0x1\n");
    write_port("br0", "../eth1", "0x11\n");
    write_port("br0", "../eth2", "17\n");
    must_run("cd /sys/class/net/br0/brif && ln -s ../eth2 eth2 && ln -s ../none dangling &&"
             "ln -s ../eth1 a-name-of-over-fifteen-characters");
    const std::string longer(5000, 'b');
    const auto port = [](const char *bridge, unsigned number) {
        char ifname[IFNAMSIZ + 2] = "kept";
        ifname[IFNAMSIZ] = '!';
        const int rc = get_ifname_from_br_portno(bridge, number, ifname);
        return shown(rc, ifname, ifname + IFNAMSIZ);
    };
    EXPECT_EQ(port("br0", 17), "1 a-name-of-over- !");
    for (const unsigned number : {0U, 1U})
        EXPECT_EQ(port("br0", number), "0 kept !");
    for (const char *bridge : {"br1", static_cast<const char *>(nullptr), longer.c_str()})
        EXPECT_EQ(port(bridge, 17), "0 kept !");
    EXPECT_EQ(get_ifname_from_br_portno("br0", 17, nullptr), 0);
}

TEST_F(Bridge, TheWalkVisitsABridgeAndItsVlans)
{
    for (const std::string name : {"br0", "br0.5", "br01", "br1"}) {
        write_port(name, "eth0", "0x1\n");
        file("/sys/class/net/" + name + "/brforward",
             wide_record(1, static_cast<uint32_t>(name.size())));
    }
    must_run("mkdir /sys/class/net/eth0"); // not a bridge
    EXPECT_THAT(visit("br0"), ElementsAre("eth0 1 3", "eth0 1 5"));
    EXPECT_THAT(visit("br0.5"), ElementsAre("eth0 1 5"));
    EXPECT_THAT(visit(nullptr), ElementsAre("eth0 1 3", "eth0 1 3", "eth0 1 4", "eth0 1 5"));
    EXPECT_THAT(visit(""), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());

    remove("/sys/class/net/br0/brforward");
    EXPECT_THAT(visit("br0"), ElementsAre("eth0 1 5"));
    fdb_foreach("br1", nullptr, nullptr, nullptr);
    remove("/sys/class/net");
    EXPECT_THAT(visit("br0"), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre("/sys/class/net/br0/brforward: No such file or directory",
                                      "/sys/class/net: No such file or directory"));
}

TEST_F(Bridge, TheWalkKeepsToThePortsThatAreNotExcluded)
{
    const std::pair<const char *, const char *> kPorts[] = {
        {"eth0", "0x1\n"}, {"eth0.7", "0x102\n"},  {"eth01", "3\n"},
        {"eth9", "0\n"},   {"wifi0", "garbage\n"}, {"wifi1", ""}};
    for (const auto &[name, number] : kPorts)
        write_port("br0", name, number);
    std::string table;
    for (const int port : {0, 1, 2, 3, 4})
        table += wide_record(port, 7);
    file("/sys/class/net/br0/brforward", table + wide_record(1, 8).substr(0, 23));
    EXPECT_THAT(visit("br0", {"wifi0", "eth0", "eth9"}), ElementsAre("eth01 3 7"));
    EXPECT_THAT(visit("br0", {"wifi0", "eth0", "eth01"}), ElementsAre("eth9 0 7"));
    EXPECT_THAT(visit("br0", {"eth0", "eth01", "eth9"}), IsEmpty());
    EXPECT_THAT(visit("br0", {"eth0.7", "eth01", "eth9"}), ElementsAre("eth0 1 7"));
    EXPECT_EQ(visit("br0").size(), 4U); // under the name of the port that was listed last
    must_run("rm -r /sys/class/net/br0/brif/*");
    EXPECT_THAT(visit("br0"), IsEmpty()); // without a port no entry is of one

    table = "";
    for (int port = 1; port <= 17; ++port) { // sixteen are tracked
        write_port("br0", "eth" + std::to_string(port), std::to_string(port));
        table += wide_record(port, 7);
        file("/sys/class/net/br0/brforward", table);
        EXPECT_EQ(visit("br0").size(), static_cast<size_t>(std::min(port, 16)));
        EXPECT_THAT(logged(), port < 16
                                  ? Lines()
                                  : Lines{"_fdb_foreach_on_bridge: WARN: MAX_ETH_PORTS hit!"});
    }
}

TEST_F(Bridge, HardwareAddresses)
{
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(devhwaddr_get(mac), 1);
    EXPECT_EQ(devhwaddr_get_iface(mac, "br0"), -ECHILD);
    EXPECT_EQ(devhwaddr_get_iface(nullptr, "lo"), -1);
    EXPECT_EQ(shown_mac(mac), "1:2:3:4:5:6");
    for (const std::string name : {"br0", "eth0_real", "eth0"}) { // each before those made already
        const std::string address = "02:a0:f1:00:00:0" + std::to_string(name.size());
        must_run("ip link add " + name + " address " + address + " type bridge");
        EXPECT_EQ(devhwaddr_get(mac), 0);
        EXPECT_EQ(shown_mac(mac), "2:a0:f1:0:0:" + std::to_string(name.size()));
    }
    EXPECT_EQ(devhwaddr_get_iface(mac, "br0"), 0);
    EXPECT_EQ(shown_mac(mac), "2:a0:f1:0:0:3");
    EXPECT_EQ(devhwaddr_generate(mac, 0x42), 0);
    EXPECT_EQ(shown_mac(mac), "2:a0:f1:de:ad:42");
    EXPECT_EQ(devhwaddr_generate(nullptr, 0x42), 0);
}

TEST_F(Bridge, AnInterfaceIsFoundByItsAddress)
{
    const uint8_t mac[6] = {0x02, 0xa0, 0xf1, 0, 0, 7};
    int index = 77;
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), -ECHILD);
    EXPECT_EQ(index, 77);
    for (int i = 1; i < 15; ++i) { // lo and these: the last match is beyond ten entries
        const std::string number = std::to_string(i), name = "d" + number;
        must_run("ip link add " + name + " type bridge && ip link set " + name +
                 " address 02:a0:f1:00:00:0" + (i < 3 || i == 14 ? "7" : "8") +
                 " && ip addr add 192.0.2." + number + "/32 dev " + name);
    }
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), 0);
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("d2")));
    EXPECT_EQ(devifindex_get_hwaddr(nullptr, mac), -1);
    EXPECT_EQ(devifindex_get_hwaddr(&index, nullptr), -1);
}
