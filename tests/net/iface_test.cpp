#include <zorv/iface.h>

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>

#include "support/device.h"

namespace {

using Interfaces = Device;

std::string uplink(int result)
{
    char name[16] = "kept";
    EXPECT_EQ(get_uplink_device(name, sizeof name), result);
    EXPECT_EQ(get_uplink_device(nullptr, 0), result);
    EXPECT_EQ(get_uplink_device(nullptr, 16), result);
    return name;
}

uint32_t ip_of(const char *name)
{
    uint32_t address = 0;
    EXPECT_EQ(get_iface_ip(name, &address), 0);
    return ntohl(address);
}

struct Address {
    uint8_t bytes[16];
};

Address v6(const char *text)
{
    Address address = {};
    EXPECT_EQ(inet_pton(AF_INET6, text, address.bytes), 1);
    return address;
}

} // namespace

TEST_F(Interfaces, AnAddressIsSetAndRead)
{
    must_run("ip link add eth0 type veth peer name wire0");
    uint32_t address = 7;
    EXPECT_EQ(get_iface_ip("eth0", &address), -1);
    EXPECT_EQ(address, 7U);
    EXPECT_THAT(logged(), IsEmpty()); // routine
    libzorv_log_level = 8;
    EXPECT_EQ(get_iface_ip("eth0", &address), -1);
    EXPECT_THAT(logged(),
                ElementsAre("[debug] libzorv_util.get_iface_ip(): ioctl SIOCGIFADDR failed"));

    EXPECT_EQ(set_iface_ip("eth0", "192.0.2.7"), 0);
    EXPECT_EQ(ip_of("eth0"), 0xC0000207U);
    EXPECT_THAT(run("ip -4 -o addr show eth0").output, testing::HasSubstr("inet 192.0.2.7/24"));
    EXPECT_EQ(set_iface_ip("eth0", "no address"), 0); // takes it away
    EXPECT_EQ(run("ip -4 -o addr show eth0").output, "");

    logged();
    EXPECT_EQ(set_iface_ip("eth0", nullptr), -1);
    EXPECT_EQ(set_iface_ip("eth9", "192.0.2.7"), -1);
    EXPECT_EQ(set_iface_ip(nullptr, "192.0.2.7"), -1);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.set_iface_ip(): inet_pton failed",
                            "[error] libzorv_util.set_iface_ip(): ioctl SIOCSIFADDR failed",
                            "[error] libzorv_util.set_iface_ip(): ioctl SIOCSIFADDR failed"));
}

TEST_F(Interfaces, IndexAndStateAreTheKernels)
{
    must_run("ip link add eth0 type veth peer name eth0.peer.name1");
    int index = 7;
    EXPECT_EQ(get_iface_index("eth0", &index), 0);
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("eth0")));
    EXPECT_EQ(get_iface_index("eth0.peer.name1-and-more", &index), 0); // 15 characters count
    EXPECT_EQ(index, static_cast<int>(if_nametoindex("eth0.peer.name1")));
    EXPECT_EQ(iface_is_up("lo"), 1);
    EXPECT_EQ(iface_is_up("eth0"), 0);
    must_run("ip link set eth0 up"); // without a link, as its peer is down
    EXPECT_EQ(iface_is_up("eth0"), 1);

    index = 7;
    EXPECT_EQ(get_iface_index(nullptr, &index), -1);
    EXPECT_EQ(get_iface_index("", &index), -1);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(get_iface_index("eth9", &index), -1);
    EXPECT_EQ(index, 7);
    EXPECT_EQ(iface_is_up("eth9"), 0);
    EXPECT_EQ(iface_is_up(nullptr), 0);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.get_iface_index(): ioctl SIOCGIFINDEX failed",
                            "[error] libzorv_util.iface_is_up(): ioctl SIOCGIFFLAGS failed on eth9",
                            "[error] libzorv_util.iface_is_up(): ioctl SIOCGIFFLAGS failed on "));
}

TEST_F(Interfaces, SocketsAreClosedAgainAndMayRunOut)
{
    const int before = open_descriptors();
    uint32_t address;
    int index;
    set_iface_ip("lo", "127.0.0.1");
    set_iface_ip("lo", nullptr);
    get_iface_ip("lo", &address);
    get_iface_index("lo", &index);
    iface_is_up("lo");
    EXPECT_EQ(open_descriptors(), before);
    logged();

    limit_descriptors(0);
    EXPECT_EQ(set_iface_ip("lo", "127.0.0.1"), -1);
    EXPECT_EQ(get_iface_ip("lo", &address), -1);
    EXPECT_EQ(get_iface_index("lo", &index), -1);
    EXPECT_EQ(iface_is_up("lo"), 0);
    limit_descriptors();
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.set_iface_ip(): unable to open sock",
                                      "[error] libzorv_util.get_iface_ip(): unable to open sock",
                                      "[error] libzorv_util.get_iface_index(): unable to open sock",
                                      "[error] libzorv_util.iface_is_up(): unable to open sock"));
}

TEST_F(Interfaces, PrefixesBecomeMasks)
{
    const struct {
        unsigned prefix;
        uint32_t mask;
    } rows[] = {
        {0, 0xFFFFFFFF}, {1, 0x80000000}, {24, 0xFFFFFF00}, {31, 0xFFFFFFFE}, {32, 0xFFFFFFFF}};
    for (const auto &row : rows)
        EXPECT_EQ(ipv4_netmask_from_prefix_len(row.prefix), row.mask) << row.prefix;
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(ipv4_netmask_from_prefix_len(33), 0U);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.ipv4_netmask_from_prefix_len(): invalid "
                            "subnet mask size of 33"));

    const struct {
        unsigned prefix;
        const char *mask;
    } v6_rows[] = {
        {0, "::"},
        {1, "8000::"},
        {64, "ffff:ffff:ffff:ffff::"},
        {65, "ffff:ffff:ffff:ffff:8000::"},
        {127, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe"},
        {128, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
        {200, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
        {0xFFFFFFFF, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    };
    for (const auto &row : v6_rows) {
        uint8_t mask[16];
        memset(mask, 0x5A, sizeof mask);
        ipv6_netmask_from_prefix_len(mask, row.prefix);
        EXPECT_EQ(memcmp(mask, v6(row.mask).bytes, sizeof mask), 0) << row.prefix;
    }
}

TEST_F(Interfaces, AddressesAgreeUpToTheirFirstDifference)
{
    const Address one = v6("fe80::1");
    for (unsigned bit = 0; bit < 128; ++bit) {
        Address other = one;
        other.bytes[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
        for (const unsigned prefix : {0U, bit, bit + 1, 128U, 129U, 0xFFFFFFFFU})
            EXPECT_EQ(net_equals_v6(one.bytes, other.bytes, prefix), prefix <= bit)
                << bit << "/" << prefix;
    }
    EXPECT_EQ(net_equals_v6(one.bytes, one.bytes, 0xFFFFFFFF), 1);
    EXPECT_EQ(net_equals_v6(one.bytes, nullptr, 0), 0);
    EXPECT_EQ(net_equals_v6(nullptr, one.bytes, 0), 0);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.net_equals_v6(): NULL pointer passed",
                                      "[error] libzorv_util.net_equals_v6(): NULL pointer passed"));
}

TEST_F(Interfaces, TheUplinkIsWhatTheScriptsSay)
{
    file("/var/run/system.uplink_port", "swp1\n");
    const struct {
        const char *word;
        int wireless, result;
        const char *device;
    } rows[] = {
        {"init\n", 1, 1, "kept"},
        {"wds", 2, 0, "swp1"},
        {"eth\nmore\n", 3, 0, "swp1"},
        {"down\n", 4, 2, "kept"},
        {"unknown\n", 0, 3, "kept"},
        {"Init\n", 0, 0, "swp1"},
        {"init \n", 0, 0, "swp1"},
        {"a word of more than fifteen\n", 0, 0, "swp1"},
        {"", 0, 0, "kept"},
        {"\n", 0, 0, "kept"},
    };
    for (const int error : {0, EIO}) { // what an earlier failure left
        for (const auto &row : rows) {
            SCOPED_TRACE(row.word);
            file("/var/run/system.uplink", row.word);
            errno = error;
            EXPECT_EQ(get_wireless_uplink_state(), row.wireless);
            errno = error;
            EXPECT_EQ(uplink(row.result), row.device);
        }
    }
    file("/var/run/system.uplink", "wds\n");
    file("/var/run/system.uplink_ifname", "");
    EXPECT_EQ(uplink(0), "swp1");
    file("/var/run/system.uplink_ifname", "wds0.1\n");
    EXPECT_EQ(uplink(0), "wds0.1");
    char small[4] = "abc";
    EXPECT_EQ(get_uplink_device(small, sizeof small), 0);
    EXPECT_STREQ(small, "wds");
    EXPECT_EQ(get_uplink_device(small, 0), 0);
    EXPECT_STREQ(small, "wds");
    remove("/var/run/system.uplink_ifname");
    remove("/var/run/system.uplink_port");
    EXPECT_EQ(uplink(0), "");
}

TEST_F(Interfaces, WithoutAWordTheFirstWiredInterfaceThatIsUpLeadsOut)
{
    EXPECT_EQ(get_wireless_uplink_state(), 0);
    EXPECT_EQ(uplink(0), "kept");
    must_run("ip link add eth0 type veth peer name eth1 && ip link set eth1 up");
    EXPECT_EQ(uplink(0), "eth1");
    // A bridge does as well as a bond: only the name counts.
    must_run("ip link add bond0 type bridge && ip link set bond0 up");
    EXPECT_EQ(uplink(0), "bond0");
    file("/var/run/system.uplink", "");
    EXPECT_EQ(uplink(0), "bond0");
    must_run("ip link set eth0 up");
    EXPECT_EQ(uplink(0), "eth0");
}
