// peer.h - another unit of the site, for a device that runs the transport.
//
// The site is the bridge br0 of the device, which make_bridge() makes. What the peer sends there
// comes back to those who have joined the group on br0; what they send it reads at far0, the other
// end of the bridge's cable. It has their key and never hears itself.
#ifndef ZORV_TESTS_PROTOCOL_PEER_H
#define ZORV_TESTS_PROTOCOL_PEER_H

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/datagram.h"
#include "support/device.h"
#include "support/enter.h"

class Peer {
public:
    // Puts the files of the transport in place, too.
    Peer()
    {
        Device::make_bridge();
        Device::must_run("ip route add default dev br0");
        Device::file("/proc/zorvhal/system.info", "serialno=02A0F1000007 and more\n");
        Device::file("/var/run/zorv_protocol.info",
                     std::string("pluvo.key=") + kKey + "\npluvo.mcip=239.255.90.90\n");
        Device::file("/var/run/ipready.br0", "192.0.2.1\n");
        const ip_mreqn bridge = {{}, {}, static_cast<int>(if_nametoindex("br0"))};
        set(sender_, IPPROTO_IP, IP_MULTICAST_IF, bridge);
        set(wire_, SOL_SOCKET, SO_RCVTIMEO, timeval{10, 0}); // beyond it something is broken
        sockaddr_ll cable = {AF_PACKET, htons(ETH_P_IP), 0, 0, 0, 0, {}};
        cable.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
        check(bind(wire_, reinterpret_cast<const sockaddr *>(&cable), sizeof cable), "far0");
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer()
    {
        close(sender_);
        close(wire_);
    }

    void send(const Bytes &datagram) const
    {
        const sockaddr_in group = {AF_INET, htons(48000), {inet_addr("239.255.90.90")}, {}};
        check(sendto(sender_, datagram.data(), datagram.size(), 0,
                     reinterpret_cast<const sockaddr *>(&group), sizeof group),
              "send");
    }

    // A message of the peer, of type 9.
    static Bytes message(std::string_view text, uint16_t method, uint16_t sequence)
    {
        return generate(text, method, 9, 1, make_ctrl(0x11, sequence));
    }

    // Waits for the next frame that the transport sends.
    Bytes frame() const
    {
        Bytes frame;
        do {
            frame.resize(2048);
            const long length = check(recv(wire_, frame.data(), frame.size(), 0), "the wire");
            frame.resize(static_cast<size_t>(length));
        } while (to_hex(&frame[23], 1) + to_hex(&frame[34], 2) != "11bb80"); // UDP, its port
        return frame;
    }

    // The message in it, as shown() has it.
    std::string hear() const
    {
        Bytes heard = frame();
        heard.erase(heard.begin(), heard.begin() + 42); // the headers of Ethernet, IP and UDP
        const zorv_protocol_ctrl_t ctrl = make_ctrl(0x11, 0);
        EXPECT_EQ(dec_payload(static_cast<int>(heard.size()), heard.data(), &ctrl), 0U);
        return shown(&heard[40]);
    }

    // "METHOD TYPE SEQUENCE DEVICE TEXT" of a message behind its header.
    static std::string shown(const void *message)
    {
        zorv_protocol_header header;
        const auto *const text = static_cast<const char *>(message);
        memcpy(&header, text - sizeof header, sizeof header);
        return std::to_string(header.method) + " " + std::to_string(header.type) + " " +
               std::to_string(header.sequence) + " " + to_hex(header.device, 6) + " " +
               std::string(text, header.length);
    }

private:
    template <class T>
    static void set(int fd, int level, int name, const T &value)
    {
        check(setsockopt(fd, level, name, &value, sizeof value), "setsockopt");
    }

    const int sender_ =
        static_cast<int>(check(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "UDP"));
    const int wire_ = static_cast<int>(
        check(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IP)), "AF_PACKET"));
};

#endif
