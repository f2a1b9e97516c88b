// netlink.h - route netlink: requests put together, answers received and taken apart.
//
// Taking apart is pure: what the kernel sent, or a fuzzer, is only looked at within its bounds.
#ifndef ZORV_PLATFORM_NETLINK_H
#define ZORV_PLATFORM_NETLINK_H

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "core/own.h"

namespace zorv {

using Bytes = std::span<const uint8_t>;

// A message in the making: a fixed part and at most one attribute, of at most 8 bytes.
template <class Fixed>
class NetlinkRequest {
public:
    NetlinkRequest(uint16_t type, uint16_t flags, const Fixed &fixed)
    {
        header_.nlmsg_type = type;
        header_.nlmsg_flags = flags;
        append({reinterpret_cast<const uint8_t *>(&fixed), sizeof fixed});
    }

    template <size_t Size>
    NetlinkRequest(uint16_t type, uint16_t flags, const Fixed &fixed, uint16_t attribute_type,
                   const uint8_t (&value)[Size])
        : NetlinkRequest(type, flags, fixed)
    {
        static_assert(Size <= kValue);
        const rtattr attribute = {RTA_LENGTH(Size), attribute_type};
        append({reinterpret_cast<const uint8_t *>(&attribute), sizeof attribute});
        append({value, Size});
    }

    // Who asks; the answer carries both back.
    void sign(uint32_t sequence, uint32_t port)
    {
        header_.nlmsg_seq = sequence;
        header_.nlmsg_pid = port;
    }

    bool send_on(const Fd &socket)
    {
        header_.nlmsg_len = static_cast<uint32_t>(length_);
        memcpy(bytes_.data(), &header_, sizeof header_);
        return TEMP_FAILURE_RETRY(send(socket.get(), bytes_.data(), length_, 0)) ==
               static_cast<ssize_t>(length_);
    }

private:
    static constexpr size_t kValue = 8;

    void append(Bytes part)
    {
        memcpy(bytes_.data() + length_, part.data(), part.size());
        length_ += NLMSG_ALIGN(part.size());
    }

    nlmsghdr header_ = {};
    size_t length_ = NLMSG_HDRLEN;
    std::array<uint8_t, NLMSG_SPACE(sizeof(Fixed)) + RTA_SPACE(kValue)> bytes_ = {};
};

// Opens a socket on which send() reaches the kernel.
Fd open_route_socket(int type);

struct NetlinkMessage {
    nlmsghdr header;
    Bytes body;
};

// Takes the first message off. False when nothing is left, or what is left is cut.
bool take_message(Bytes &rest, NetlinkMessage &message);

struct NetlinkAttribute {
    uint16_t type;
    Bytes value;
};

// The same for an attribute.
bool take_attribute(Bytes &rest, NetlinkAttribute &attribute);

// What the receiver does after a datagram.
enum class Answer { goes_on, is_complete, is_broken };

// Judges one datagram of the answer to a dump that `port` asked for.
Answer judge_answer(Bytes datagram, uint32_t port);

// Receives one datagram of an answer; one that does not come, or not fit, is broken.
Answer receive_answer(const Fd &socket, uint32_t port, std::span<uint8_t> room, Bytes &datagram);

struct Route {
    bool is_default = false;
    bool has_gateway = false;
    uint32_t gateway = 0; // network order
    uint32_t oif = 0;     // index of the interface it leaves through
};

// Takes the next IPv4 route of the main table out of an answer; other messages are passed over.
bool take_route(Bytes &rest, Route &route);

} // namespace zorv

#endif
