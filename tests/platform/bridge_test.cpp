#include <fcntl.h>
#include <zorv/bridge.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

#include "support/device.h"

using testing::SizeIs;

namespace {

// A record as a table holds it, with eight bytes more for the switch driver's form.
std::string record(const std::string &mac, int port, uint32_t age, bool wide = true)
{
    std::string bytes;
    for (size_t at = 0; at < mac.size(); at += 3)
        bytes += static_cast<char>(std::stoi(mac.substr(at, 2), nullptr, 16));
    bytes += static_cast<char>(port);
    bytes += '\0'; // not local
    bytes.append(reinterpret_cast<const char *>(&age), sizeof age);
    bytes += static_cast<char>(port >> 8);
    bytes.resize(wide ? 24 : 16);
    return bytes;
}

class Bridge : public Device {
protected:
    // A written bridge; each port is "name number-as-text".
    static void write_bridge(const std::string &name,
                             const std::vector<std::pair<std::string, std::string>> &ports)
    {
        must_run("mkdir -p /sys/class/net/" + name + "/brif");
        for (const auto &[port, number] : ports)
            // NOLINTNEXTLINE(performance-inefficient-string-concatenation): a test reads so
            file("/sys/class/net/" + name + "/brif/" + port + "/port_no", number);
    }
};

// Puts a frame with this source address on the wire.
void send_frame(const char *ifname, std::array<uint8_t, 6> source)
{
    const int wire = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll to = {};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
    uint8_t frame[60] = {0x02, 0xff, 0xff, 0xff, 0xff, 0xff};
    std::copy(source.begin(), source.end(), frame + 6);
    EXPECT_EQ(
        sendto(wire, frame, sizeof frame, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
        60);
    close(wire);
}

using Visits = std::vector<std::string>;

// Keeps what a callback got, as "port name: port byte/age".
void note(void *user, const fdb_record *entry, const char *ifname)
{
    static_cast<Visits *>(user)->push_back(std::string(ifname) + ":" +
                                           std::to_string(entry->port_no) + "/" +
                                           std::to_string(entry->ageing_timer));
}

Visits visit(const char *prefix, std::vector<const char *> exclude = {})
{
    exclude.push_back(nullptr);
    Visits visits;
    fdb_foreach(prefix, exclude.data(), note, &visits);
    std::sort(visits.begin(), visits.end());
    return visits;
}

} // namespace

TEST_F(Bridge, AnAddressIsFoundWhereItWasLearned)
{
    kernel_sys();
    make_bridge();
    unsigned age = 77, port = 77;
    EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:00:00:07", &age, &port), 0);
    EXPECT_EQ(port, 77U);
    send_frame("far0", {0x02, 0xa0, 0xf1, 0, 0, 7});
    EXPECT_EQ(get_mac_brinfo("br0", "02:A0:f1:00:00:07", &age, &port), 1);
    EXPECT_LE(age, 5U);
    EXPECT_EQ(port, 1U);
    char ifname[IFNAMSIZ] = "";
    EXPECT_EQ(get_ifname_from_br_portno("br0", port, ifname), 1);
    EXPECT_STREQ(ifname, "eth0");

    EXPECT_EQ(fdb_delneigh(std::array<uint8_t, 6>{0x02, 0xa0, 0xf1, 0, 0, 7}.data(), "eth0"), 0);
    EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:00:00:07", nullptr, nullptr), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Bridge, TenThousandLearnedAddresses)
{
    kernel_sys();
    make_bridge();
    std::string batch;
    char mac[18];
    for (int i = 0; i < 10000; ++i) {
        snprintf(mac, sizeof mac, "02:a0:f1:01:%02x:%02x", i >> 8, i & 0xff);
        batch += "fdb add " + std::string(mac) + " dev eth0 master dynamic\n";
    }
    file("/tmp/batch", batch);
    must_run("bridge -batch /tmp/batch");
    for (int i = 0; i < 10000; i += 97) {
        snprintf(mac, sizeof mac, "02:A0:F1:01:%02X:%02X", i >> 8, i & 0xff);
        unsigned port = 0;
        EXPECT_EQ(get_mac_brinfo("br0", mac, nullptr, &port), 1) << mac;
        EXPECT_EQ(port, 1U);
    }
    EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:01:27:10", nullptr, nullptr), 0);
    EXPECT_THAT(visit("br0"), IsEmpty()); // 16 bytes answer a read of 24
}

TEST_F(Bridge, RecordsOfAWrittenTable)
{
    const std::string first = record("02:a0:f1:00:00:07", 3, 12345, false);
    file("/sys/class/net/br0/brforward",
         record("02:a0:f1:00:00:01", 0x102, 0, false) + first +
             record("02:a0:f1:00:00:07", 4, 0, false) +
             record("02:a0:f1:00:00:08", 5, 0, false).substr(0, 15));
    unsigned age = 77, port = 77;
    EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:00:00:07", &age, &port), 1);
    EXPECT_EQ(age, 123U);
    EXPECT_EQ(port, 3U);
    EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:00:00:01", &age, &port), 1);
    EXPECT_EQ(port, 2U); // the low byte
    for (const char *mac :
         {"02:a0:f1:00:00:08", "2:a0:f1:00:00:07", "02:a0:f1:00:00:07 ", "02a0f1000007", "",
          "02:a0:f1:00:00", "02-a0-f1-00-00-07", "02:a0:f1:00:00:0g", "\xff"})
        EXPECT_EQ(get_mac_brinfo("br0", mac, nullptr, nullptr), 0);
    EXPECT_EQ(get_mac_brinfo("br0", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(get_mac_brinfo("br1", "02:a0:f1:00:00:07", nullptr, nullptr), 0);
    EXPECT_EQ(get_mac_brinfo(nullptr, "02:a0:f1:00:00:07", nullptr, nullptr), 0);
    EXPECT_EQ(get_mac_brinfo(std::string(5000, 'b').c_str(), "02:a0:f1:00:00:07", nullptr, nullptr),
              0);

    close(STDIN_FILENO); // the table opens as descriptor 0
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(get_mac_brinfo("br0", "02:a0:f1:00:00:07", nullptr, nullptr), 0);
}

TEST_F(Bridge, PortStates)
{
    const struct {
        const char *content;
        int state, disabled, forwarding;
    } rows[] = {{"3\n", 3, 0, 1},  {"0\n", 0, 1, 0}, {"1", 1, 0, 0},
                {" 2\n", 2, 0, 0}, {"", -1, 1, 0},   {"forwarding", -1, 1, 0}};
    for (const auto &row : rows) {
        file("/sys/class/net/br0/brif/eth0/state", row.content);
        EXPECT_EQ(get_br_port_state("br0", "eth0"), row.state) << row.content;
        EXPECT_EQ(is_brif_disabled("br0", "eth0"), row.disabled);
        EXPECT_EQ(is_brif_forwarding("br0", "eth0"), row.forwarding);
    }
    EXPECT_EQ(get_br_port_state("br0", "eth1"), -1);
    EXPECT_EQ(is_brif_disabled("br0", "eth1"), 1);
    EXPECT_EQ(get_br_port_state(nullptr, "eth0"), -1);
    EXPECT_EQ(get_br_port_state("br0", nullptr), -1);
    kernel_sys();
    make_bridge();
    EXPECT_EQ(is_brif_forwarding("br0", "eth0"), 1);
    must_run("bridge link set dev eth0 state 0");
    EXPECT_EQ(is_brif_disabled("br0", "eth0"), 1);
}

TEST_F(Bridge, APortIsFoundByItsNumber)
{
    // The ports of a bridge are links to the interfaces.
    write_bridge("br0", {{"folder", "0x1\n"}, {"../eth1", "0x11\n"}, {"../eth2", "17\n"}});
    must_run("cd /sys/class/net/br0/brif && ln -s ../eth1 eth1 && ln -s ../eth2 eth2 &&"
             "ln -s ../none dangling && ln -s ../eth1 a-name-of-over-fifteen-characters");
    char ifname[IFNAMSIZ + 1] = "kept";
    EXPECT_EQ(get_ifname_from_br_portno("br0", 1, ifname), 0);
    EXPECT_EQ(get_ifname_from_br_portno("br0", 0, ifname), 0);
    EXPECT_EQ(get_ifname_from_br_portno("br1", 17, ifname), 0);
    EXPECT_EQ(get_ifname_from_br_portno(nullptr, 17, ifname), 0);
    EXPECT_EQ(get_ifname_from_br_portno("br0", 17, nullptr), 0);
    EXPECT_STREQ(ifname, "kept");
    remove("/sys/class/net/br0/brif/eth1");
    ifname[IFNAMSIZ] = '!';
    EXPECT_EQ(get_ifname_from_br_portno("br0", 17, ifname), 1);
    EXPECT_STREQ(ifname, "a-name-of-over-");
    EXPECT_EQ(ifname[IFNAMSIZ], '!');
}

TEST_F(Bridge, TheWalkVisitsABridgeAndItsVlans)
{
    for (const auto *name : {"br0", "br0.5", "br01", "br1"}) {
        write_bridge(name, {{"eth0", "0x1\n"}});
        file("/sys/class/net/" + std::string(name) + "/brforward",
             record("02:a0:f1:00:00:07", 1, static_cast<uint32_t>(strlen(name))));
    }
    must_run("mkdir /sys/class/net/eth0"); // not a bridge
    EXPECT_THAT(visit("br0"), ElementsAre("eth0:1/3", "eth0:1/5"));
    EXPECT_THAT(visit("br0.5"), ElementsAre("eth0:1/5"));
    EXPECT_THAT(visit(nullptr), SizeIs(4));
    EXPECT_THAT(visit(""), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());

    remove("/sys/class/net/br0/brforward");
    EXPECT_THAT(visit("br0"), ElementsAre("eth0:1/5"));
    EXPECT_THAT(logged(), ElementsAre("/sys/class/net/br0/brforward: No such file or directory"));
    fdb_foreach("br1", nullptr, nullptr, nullptr);
    remove("/sys/class/net");
    EXPECT_THAT(visit("br0"), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre("/sys/class/net: No such file or directory"));
}

TEST_F(Bridge, TheWalkKeepsToThePortsThatAreNotExcluded)
{
    write_bridge("br0", {{"eth0", "0x1\n"},
                         {"eth0.7", "0x102\n"},
                         {"eth01", "3\n"},
                         {"wifi0", "garbage\n"},
                         {"wifi1", ""}});
    std::string table;
    for (const int port : {0, 1, 2, 3, 4})
        table += record("02:a0:f1:00:00:07", port, 7);
    const std::string odd = record("02:a0:f1:00:00:07", 1, 8);
    file("/sys/class/net/br0/brforward", table + odd.substr(0, 23));
    const auto ports = [](const Visits &visits) {
        std::string bytes;
        for (const auto &visit : visits)
            bytes += visit.substr(visit.find(':') + 1, 1);
        return bytes;
    };
    EXPECT_EQ(ports(visit("br0")), "123");
    EXPECT_THAT(visit("br0", {"wifi0", "eth0"}), ElementsAre("eth01:3/7"));
    EXPECT_THAT(visit("br0", {"eth0", "eth01"}), IsEmpty());
    EXPECT_THAT(visit("br0", {"eth0.7", "eth01"}), ElementsAre("eth0:1/7"));
    Visits all;
    fdb_foreach("br0", nullptr, note, &all);
    EXPECT_THAT(all, SizeIs(3));

    // Without a port no entry is of one.
    must_run("rm -r /sys/class/net/br0/brif/*");
    EXPECT_THAT(visit("br0"), IsEmpty());
}

TEST_F(Bridge, SixteenPortsAreTracked)
{
    constexpr char kWarning[] = "_fdb_foreach_on_bridge: WARN: MAX_ETH_PORTS hit!";
    std::string table;
    for (int port = 1; port <= 17; ++port) {
        write_bridge("br0", {{"eth" + std::to_string(port), std::to_string(port) + "\n"}});
        table += record("02:a0:f1:00:00:07", port, 7);
        file("/sys/class/net/br0/brforward", table);
        EXPECT_THAT(visit("br0"), SizeIs(static_cast<size_t>(std::min(port, 16))));
        EXPECT_THAT(logged(), port < 16 ? Visits() : Visits{kWarning});
    }
}

TEST_F(Bridge, ForgettingTellsTheStepThatFailed)
{
    const uint8_t mac[6] = {0x02, 0xa0, 0xf1, 0, 0, 7};
    EXPECT_EQ(fdb_delneigh(mac, "none"), -ENODEV);
    EXPECT_EQ(fdb_delneigh(mac, nullptr), -ENODEV);
    EXPECT_EQ(fdb_delneigh(nullptr, "lo"), -EINVAL);
    EXPECT_EQ(fdb_delneigh(mac, "lo"), 0); // sent; that lo is no port is not told
    EXPECT_THAT(logged(),
                ElementsAre("fdb_delneigh: -19 on line 145", "fdb_delneigh: -19 on line 145"));

    uint8_t found[6];
    int index;
    const int unused = fcntl(0, F_DUPFD_CLOEXEC, 0);
    close(unused);
    limit_descriptors(unused + 1);
    EXPECT_EQ(fdb_delneigh(mac, "lo"), -EMFILE);
    limit_descriptors(unused);
    EXPECT_EQ(fdb_delneigh(mac, "lo"), -EMFILE);
    EXPECT_EQ(devhwaddr_get_iface(found, "lo"), -1);
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), -1);
    limit_descriptors();
    EXPECT_THAT(logged(),
                ElementsAre("fdb_delneigh: -24 on line 149", "fdb_delneigh: -24 on line 140"));
}

TEST_F(Bridge, HardwareAddresses)
{
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(devhwaddr_get(mac), 1);
    EXPECT_EQ(devhwaddr_get_iface(mac, "br0"), -ECHILD);
    EXPECT_EQ(devhwaddr_get_iface(nullptr, "lo"), -1);
    EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
    for (const char *ifname : {"br0", "eth0_real", "eth0"}) { // each before those made already
        const std::string name = ifname;
        must_run("ip link add " + name + " address 02:a0:f1:00:00:0" + std::to_string(name.size()) +
                 " type bridge");
        EXPECT_EQ(devhwaddr_get(mac), 0);
        EXPECT_THAT(mac, ElementsAre(0x02, 0xa0, 0xf1, 0, 0, name.size()));
    }
    EXPECT_EQ(devhwaddr_get_iface(mac, "br0"), 0);
    EXPECT_EQ(mac[5], 3);
    EXPECT_EQ(devhwaddr_generate(mac, 0x42), 0);
    EXPECT_THAT(mac, ElementsAre(0x02, 0xa0, 0xf1, 0xde, 0xad, 0x42));
    EXPECT_EQ(devhwaddr_generate(nullptr, 0x42), 0);
}

TEST_F(Bridge, AnInterfaceIsFoundByItsAddress)
{
    const uint8_t mac[6] = {0x02, 0xa0, 0xf1, 0, 0, 7};
    int index = 77;
    const auto add = [](int i, const char *address) {
        const std::string name = "d" + std::to_string(i);
        must_run("ip link add " + name + " type bridge && ip link set " + name + " address " +
                 address + " && ip addr add 192.0.2." + std::to_string(i) + "/32 dev " + name);
    };
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), -ECHILD);
    EXPECT_EQ(index, 77);
    add(1, "02:a0:f1:00:00:07");
    add(2, "02:a0:f1:00:00:07");
    add(3, "02:a0:f1:00:00:08");
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), 0);
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("d2")));
    for (int i = 4; i < 15; ++i) // lo and these: the last match is beyond ten entries
        add(i, i == 14 ? "02:a0:f1:00:00:07" : "02:a0:f1:00:00:09");
    EXPECT_EQ(devifindex_get_hwaddr(&index, mac), 0);
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("d2")));
    EXPECT_EQ(devifindex_get_hwaddr(nullptr, mac), -1);
    EXPECT_EQ(devifindex_get_hwaddr(&index, nullptr), -1);
}
