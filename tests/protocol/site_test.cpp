#include <zorv/protocol.h>

#include <algorithm>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/appliance.h"
#include "protocol/datagram.h"
#include "support/device.h"
#include "support/enter.h"

namespace {

std::string joining(const std::string &message)
{
    return "[error] zorv_protocol.zorv_multicast_socket_init(): " + message;
}

Appliance::Settings attic_settings()
{
    return {"attic", "192.0.2.11", "02a0f1000011"};
}

Appliance::Settings barn_settings()
{
    return {"barn", "192.0.2.12", "02a0f1000012"};
}

class Site : public Device {
protected:
    Site() { make_switch(); }

    static void start(const Appliance &appliance, int sequence)
    {
        ASSERT_EQ(appliance.order("init 1"), "0");
        appliance.order("sequence " + std::to_string(sequence));
    }
};

// The frames to port 48000 that pass the switch.
class Wire {
public:
    Wire()
        : fd_(static_cast<int>(
              check(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IP)), "AF_PACKET")))
    {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_IP);
        address.sll_ifindex = static_cast<int>(if_nametoindex("switch"));
        check(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), "AF_PACKET");
        const timeval patience{10, 0};
        check(setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), "patience");
    }
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;
    ~Wire() { close(fd_); }

    Bytes next() const
    {
        for (;;) {
            Bytes frame(2048);
            const long length = check(recv(fd_, frame.data(), frame.size(), 0), "the wire");
            frame.resize(static_cast<size_t>(length));
            if (frame[23] == IPPROTO_UDP)
                return frame;
        }
    }

private:
    int fd_;
};

TEST_F(Site, TwoAppliancesTalk)
{
    const Appliance attic(attic_settings()), barn(barn_settings());
    start(attic, 100);
    start(barn, 200);
    EXPECT_EQ(attic.order("groups"), "1");
    EXPECT_EQ(attic.order("send 5 9 who is there"), "56");
    EXPECT_EQ(barn.report(), "A 5 9 100 02a0f1000011 who is there");
    EXPECT_EQ(barn.report(), "B 5 9 100 02a0f1000011 who is there"); // in the table's order
    EXPECT_EQ(barn.order("last"), "100");
    EXPECT_EQ(barn.order("send 6 1 barn is"), "56");
    EXPECT_EQ(attic.report(), "B 6 1 200 02a0f1000012 barn is"); // and not its own message

    // A repeated sequence and methods behind the table's end go unheard; method 3 may repeat.
    logged();
    attic.order("send 6 1 again");
    attic.order("send 3 1 beacon");
    EXPECT_EQ(barn.report(), "A 3 1 100 02a0f1000011 beacon");
    attic.order("sequence 101");
    attic.order("send 7 1 nobody listens");
    attic.order("sequence 65535");
    attic.order("send 6 1 " + std::string(463, 'x'));
    EXPECT_EQ(barn.report(), "B 6 1 4095 02a0f1000011 " + std::string(463, 'x'));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Site, TheDatagramOnTheWire)
{
    const Appliance attic(attic_settings()), barn(barn_settings());
    const Wire wire;
    start(attic, 0x123);
    start(barn, 1);
    ASSERT_EQ(attic.order("send 5 7 hello"), "56");
    const Bytes frame = wire.next();
    ASSERT_EQ(frame.size(), 14 + 20 + 8 + 56u);
    EXPECT_EQ(part(frame, 0, 6), from_hex("01005e7f5a5a"));    // the group's Ethernet address
    EXPECT_EQ(frame[22], 64);                                  // hops
    EXPECT_EQ(part(frame, 26, 14), from_hex("c000020befff5a5a" // addresses
                                            "bb80bb800040"));  // ports, length
    const Bytes datagram = part(frame, 42, 56);
    EXPECT_EQ(part(datagram, 0, 12), from_hex("223344550202001000050007"));
    EXPECT_EQ(part(datagram, 28, 12), from_hex("02a0f100001112300b6b2f9e"));
    EXPECT_EQ(decrypt(part(datagram, 40, 16), from_hex(kKey), part(datagram, 12, 16)),
              from_hex("68656c6c6f0b0b0b0b0b0b0b0b0b0b0b"));
    barn.report();
}

TEST_F(Site, WhatIsNotOursIsRejected)
{
    Appliance::Settings stranger = attic_settings();
    stranger.key[0] = 'f';
    const Appliance attic(stranger), barn(barn_settings()),
        cellar({"cellar", "192.0.2.13", "02a0f1000013"});
    start(attic, 100);
    start(barn, 200);
    logged();
    attic.order("send 5 9 who is there");
    attic.order("send 5 9 " + std::string(464, 'x')); // too long for anyone
    attic.order("deinit");
    start(cellar, 300);
    cellar.order("send 6 9 friend");
    EXPECT_EQ(barn.report(), "B 6 9 300 02a0f1000013 friend");
    const auto lines = logged();
    constexpr char kSays[] = "[error] zorv_protocol.zorv_protocol_recv(): failed to decrypt the "
                             "message: 1";
    EXPECT_EQ(std::count(lines.begin(), lines.end(), kSays), 2);
    EXPECT_EQ(barn.order("last"), "300");
}

TEST_F(Site, AGroupThatCannotBeJoinedFailsInit)
{
    const struct {
        const char *group, *address, *why;
    } kCases[] = {
        {"239.255.90.90", "192.0.2.1",
         "unable to set mcast local ip, Cannot assign requested address"}, // it is elsewhere
        {"192.0.2.9", "192.0.2.11", "unable to add membership, Invalid argument"},
    };
    const Appliance attic(attic_settings());
    const std::string before = attic.order("descriptors");
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.group);
        attic.order("run sed -i s/mcip=.*/mcip=" + std::string(row.group) +
                    "/ /run/zorv_protocol.info; echo " + row.address + " >/run/ipready.br0");
        logged();
        EXPECT_EQ(attic.order("init 1"), "-1");
        const std::string why = row.why, said = "zorv_protocol.zorv_protocol_init(): ";
        EXPECT_THAT(logged(),
                    ElementsAre(HasSubstr("ZORV_DEVICE[02:a0:f1:00:00:11]"),
                                "[info ] " + said + "mcast_ip is " + row.group,
                                "[info ] " + said + "my_ip is " + row.address, joining(why),
                                "[error] " + said + "set multicast socket fail," +
                                    why.substr(why.find(", ") + 1),
                                HasSubstr("unable to drop membership, "),
                                "[error] " + said + "could not start zorv-protocol"));
        EXPECT_EQ(attic.order("descriptors"), before);
    }
}

TEST_F(Site, FollowsTheAddress)
{
    const Appliance attic(attic_settings()), barn(barn_settings());
    constexpr char kAsks[] = "[info ] zorv_protocol.zorv_usr1_handler(): Get DHCP IP";
    constexpr char kMine[] = "[info ] zorv_protocol.zorv_usr1_handler(): my_ip is ";
    barn.order("run echo 0.0.0.0 >/run/ipready.br0");
    start(attic, 100);
    start(barn, 200);
    EXPECT_EQ(barn.order("groups"), "0");

    logged();
    barn.order("run echo 192.0.2.12 >/run/ipready.br0"); // the first one: there is nothing to leave
    barn.change_address();
    EXPECT_THAT(logged(), ElementsAre(kAsks, kMine + std::string("192.0.2.12"),
                                      HasSubstr("unable to drop membership, ")));
    EXPECT_EQ(barn.order("groups"), "1");

    barn.change_address(); // no other one
    barn.order("run rm /run/ipready.br0");
    barn.change_address();
    EXPECT_THAT(logged(), ElementsAre(kAsks, kAsks));
    EXPECT_EQ(barn.order("groups"), "1");

    barn.order("run ip address del 192.0.2.12/24 dev br0; ip address add 192.0.2.99/24 dev br0; "
               "ip route add default dev br0; echo 192.0.2.99 >/run/ipready.br0");
    barn.change_address();
    EXPECT_THAT(logged(), ElementsAre(kAsks, kMine + std::string("192.0.2.99")));
    EXPECT_EQ(barn.order("groups"), "1");
    const Wire wire;
    barn.order("send 6 1 from elsewhere");
    EXPECT_EQ(part(wire.next(), 26, 4), from_hex("c0000263"));
    attic.report();
    attic.order("send 6 1 still here?");
    EXPECT_EQ(barn.report(), "B 6 1 100 02a0f1000011 still here?");

    barn.order("run echo 192.0.2.77 >/run/ipready.br0"); // nobody's, and not tried twice
    barn.change_address();
    barn.change_address();
    EXPECT_THAT(
        logged(),
        ElementsAre(kAsks, kMine + std::string("192.0.2.77"),
                    joining("unable to set mcast local ip, Cannot assign requested address"),
                    "[error] zorv_protocol.zorv_usr1_handler(): set multicast socket "
                    "fail, Cannot assign requested address",
                    kAsks));
    EXPECT_EQ(barn.order("groups"), "0");
}

TEST_F(Site, StopsAndStartsWithoutLeavingAnything)
{
    const Appliance attic(attic_settings()), barn(barn_settings());
    start(attic, 100);
    const std::string before = barn.order("descriptors");
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        start(barn, 200);
        attic.order("sequence " + std::to_string(round));
        attic.order("send 6 1 hello");
        EXPECT_EQ(barn.report(), "B 6 1 " + std::to_string(round) + " 02a0f1000011 hello");
        barn.order("deinit");
        EXPECT_EQ(barn.order("descriptors"), before);
        EXPECT_EQ(barn.order("groups"), "0");
    }
}

} // namespace
