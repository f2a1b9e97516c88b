// peer.h - datagrams as bytes, and another unit of the site that sends and hears them.
//
// The site is the bridge br0 of the device. What the peer sends there comes back to those who have
// joined the group on br0; what they send it reads at far0, the other end of the bridge's cable. It
// has their key and never hears itself.
#ifndef ZORV_TESTS_PROTOCOL_PEER_H
#define ZORV_TESTS_PROTOCOL_PEER_H

#include <linux/if_packet.h>
#include <net/ethernet.h>

#include "crypto/samples.h"
#include "support/device.h"

inline constexpr char kKey[] = "000102030405060708090a0b0c0d0e0f";

// A unit of the site, by the last byte of its address.
inline zorv_protocol_ctrl_t make_ctrl(uint8_t unit, uint16_t own_sequence)
{
    zorv_protocol_ctrl_t ctrl{};
    memcpy(ctrl.key, from_hex(kKey).data(), sizeof ctrl.key);
    memcpy(ctrl.device, "\x02\xa0\xf1\0\0", sizeof ctrl.device);
    ctrl.device[5] = unit;
    ctrl.own_sequence = own_sequence;
    return ctrl;
}

// What gen_payload() made.
inline Bytes generate(std::string_view message, uint16_t method, uint16_t type, int encrypt,
                      const zorv_protocol_ctrl_t &ctrl)
{
    auto *const datagram = static_cast<uint8_t *>(gen_payload(
        message.data(), static_cast<int>(message.size()), method, type, encrypt, &ctrl));
    Bytes copy(datagram, datagram + 40 + (datagram[6] << 8 | datagram[7]));
    free(datagram);
    return copy;
}

// "METHOD TYPE SEQUENCE DEVICE TEXT" of a message behind its header.
inline std::string shown(const void *message)
{
    zorv_protocol_header header;
    const auto *const text = static_cast<const char *>(message);
    memcpy(&header, text - sizeof header, sizeof header);
    return std::to_string(header.method) + " " + std::to_string(header.type) + " " +
           std::to_string(header.sequence) + " " + to_hex(header.device, 6) + " " +
           std::string(text, header.length);
}

inline int g_peer_sends, g_peer_hears; // sockets; they live as long as the test

// The files of a transport that has no address yet.
inline void write_site()
{
    Device::file("/proc/zorvhal/system.info", "serialno=02A0F1000007 and more\n");
    Device::file("/var/run/zorv_protocol.info",
                 std::string("pluvo.key=") + kKey + "\npluvo.mcip=239.255.90.90\n");
}

// Makes the site, with the files of a transport.
inline void start_peer()
{
    write_site();
    Device::make_bridge();
    Device::must_run("ip route add default dev br0");
    Device::file("/var/run/ipready.br0", "192.0.2.1\n");
    g_peer_sends = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    g_peer_hears = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IP));
    sockaddr_ll cable = {AF_PACKET, htons(ETH_P_IP), 0, 0, 0, 0, {}};
    cable.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
    check(bind(g_peer_hears, reinterpret_cast<const sockaddr *>(&cable), sizeof cable), "far0");
}

inline void send_to_site(const Bytes &datagram, const char *address = "239.255.90.90")
{
    const sockaddr_in site = {AF_INET, htons(48000), {inet_addr(address)}, {}};
    const auto *const to = reinterpret_cast<const sockaddr *>(&site);
    check(sendto(g_peer_sends, datagram.data(), datagram.size(), 0, to, sizeof site), "send");
}

// A message of the peer, of type 9.
inline Bytes peer_message(std::string_view text, uint16_t method, uint16_t sequence)
{
    return generate(text, method, 9, 1, make_ctrl(0x11, sequence));
}

// Waits for the next frame that the transport sends.
inline Bytes next_frame()
{
    Bytes frame;
    do {
        frame.resize(2048);
        frame.resize(static_cast<size_t>(recv(g_peer_hears, frame.data(), frame.size(), 0)));
    } while (to_hex(&frame[23], 1) + to_hex(&frame[34], 2) != "11bb80"); // UDP, its port
    return frame;
}

// The message in it, as shown() has it.
inline std::string next_message()
{
    Bytes frame = next_frame();
    const auto ctrl = make_ctrl(0x11, 0);
    // Behind the headers of Ethernet, IP and UDP.
    EXPECT_EQ(dec_payload(static_cast<int>(frame.size()) - 42, &frame[42], &ctrl), 0U);
    return shown(&frame[82]);
}

#endif
