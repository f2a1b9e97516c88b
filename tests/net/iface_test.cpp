

#include "support/device.h"

using Interfaces = Device;

// A result, and behind it the lines that were logged, without what they all have.
static std::string with_lines(std::string result)
{
    for (std::string line : Device::logged())
        result += " | " + line.erase(line.find(" libzorv_util"), strlen(" libzorv_util"));
    return result;
}

// What is said of an interface: its index, its address, whether it is up. The outputs begin as 9.
static std::string shown(const char *name)
{
    int index = 9;
    in_addr address = {htonl(9)};
    const int found = get_iface_index(name, &index), has = get_iface_ip(name, &address.s_addr);
    char text[INET_ADDRSTRLEN];
    return with_lines(std::to_string(found) + " " + std::to_string(index) + ", " +
                      std::to_string(has) + " " + inet_ntop(AF_INET, &address, text, sizeof text) +
                      (iface_is_up(name) == 1 ? ", up" : ", down"));
}

// The state, the result for the uplink's device after an earlier failure, and its name.
static std::string uplink()
{
    char name[16] = "kept";
    const int state = get_wireless_uplink_state();
    errno = EIO;
    const int result = get_uplink_device(name, sizeof name);
    EXPECT_EQ(get_uplink_device(nullptr, 16), result);
    return std::to_string(state) + " " + std::to_string(result) + " " + name;
}

TEST_F(Interfaces, AreAsTheKernelHasThem)
{
    const std::string no_address = " | [debug].get_iface_ip(): ioctl SIOCGIFADDR failed";
    const std::string no_flags = " | [error].iface_is_up(): ioctl SIOCGIFFLAGS failed on ";
    const std::string not_set = "-1 | [error].set_iface_ip(): ",
                      no_index = " | [error].get_iface_index(): ioctl SIOCGIFINDEX failed";
    must_run("ip link add eth0 index 7 type veth peer name eth0.peer.name1 index 8");
    libzorv_log_level = 8;
    const auto set = [](const char *name, const char *ip) {
        return with_lines(std::to_string(set_iface_ip(name, ip)));
    };
    EXPECT_EQ(set("eth0", "192.0.2.7"), "0");
    must_run("ip link set eth0 up"); // without a link, as its peer is down
    EXPECT_EQ(shown("eth0"), "0 7, 0 192.0.2.7, up");
    EXPECT_EQ(set("eth0", "no address"), "0"); // takes it away
    EXPECT_EQ(shown("eth0"), "0 7, -1 0.0.0.9, up" + no_address);
    EXPECT_EQ(shown("eth0.peer.name1-and-more"), "0 8, -1 0.0.0.9, down" + no_address);
    EXPECT_EQ(shown("eth9"), "-1 9, -1 0.0.0.9, down" + no_index + no_address + no_flags + "eth9");
    EXPECT_EQ(shown(nullptr), "-1 9, -1 0.0.0.9, down" + no_address + no_flags);
    EXPECT_EQ(set("eth0", nullptr), not_set + "inet_pton failed");
    EXPECT_EQ(set("eth9", "192.0.2.7"), not_set + "ioctl SIOCSIFADDR failed");
}

TEST_F(Interfaces, PrefixesBecomeMasks)
{
    EXPECT_EQ(ipv4_netmask_from_prefix_len(0), 0xFFFFFFFF);
    EXPECT_EQ(ipv4_netmask_from_prefix_len(25), 0xFFFFFF80);
    EXPECT_EQ(ipv4_netmask_from_prefix_len(32), 0xFFFFFFFF);
    EXPECT_EQ(with_lines(std::to_string(ipv4_netmask_from_prefix_len(33))),
              "0 | [error].ipv4_netmask_from_prefix_len(): invalid subnet mask size of 33");

    // Two addresses agree up to their first difference, and a mask covers as many bits.
    const uint8_t one[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x5A, 1};
    for (unsigned bit = 0; bit < 128; ++bit)
        for (const unsigned prefix : {0U, bit, bit + 1, 128U, UINT_MAX}) {
            uint8_t other[16], mask[16];
            memcpy(other, one, sizeof other);
            other[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
            EXPECT_EQ(net_equals_v6(one, other, prefix), prefix <= bit) << bit << "/" << prefix;
            memset(mask, 0x5A, sizeof mask);
            ipv6_netmask_from_prefix_len(mask, prefix);
            EXPECT_EQ(mask[bit / 8] >> (7 - bit % 8) & 1, bit < prefix) << bit << "/" << prefix;
        }
    EXPECT_EQ(with_lines(std::to_string(net_equals_v6(one, nullptr, 0))),
              "0 | [error].net_equals_v6(): NULL pointer passed");
}

TEST_F(Interfaces, TheUplinkIsWhatTheScriptsSay)
{
    EXPECT_EQ(uplink(), "0 0 kept"); // no script has said anything
    file("/var/run/system.uplink_port", "swp1\n");
    const std::pair<const char *, const char *> rows[] = {
        {"init\n", "1 1 kept"}, {"wds", "2 0 swp1"},    {"eth\nmore\n", "3 0 swp1"},
        {"down\n", "4 2 kept"}, {"Init\n", "0 0 swp1"}, {"unknown\n", "0 3 kept"},
        {"", "0 0 kept"},
    };
    for (const auto &[word, want] : rows) {
        file("/var/run/system.uplink", word);
        EXPECT_EQ(uplink(), want) << word;
    }
    file("/var/run/system.uplink", "wds\n");
    file("/var/run/system.uplink_ifname", "wds0.1\n");
    EXPECT_EQ(uplink(), "2 0 wds0.1");
    char small[4] = "abc";
    get_uplink_device(small, 4);
    get_uplink_device(small, 0);
    EXPECT_STREQ(small, "wds");
    // Without a word the first wired interface that is up leads out. A bridge does as well as a
    // bond: only the name counts.
    file("/var/run/system.uplink", "");
    must_run("ip link add eth0 type veth peer name eth1; ip link add bond0 type bridge");
    for (const std::string name : {"eth1", "bond0", "eth0"}) {
        must_run("ip link set " + name + " up");
        EXPECT_EQ(uplink(), "0 0 " + name);
    }
}
