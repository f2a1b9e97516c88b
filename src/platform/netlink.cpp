#include "platform/netlink.h"

#include <algorithm>

namespace zorv {

namespace {

constexpr uint32_t kSequence = 1; // of a last message, whatever its flags say

void drop(Bytes &rest, size_t length)
{
    rest = rest.subspan(std::min(length, rest.size()));
}

void read_attribute(const NetlinkAttribute &attribute, Route &route)
{
    if (attribute.type == RTA_DST)
        route.is_default = false;
    else if (attribute.type == RTA_OIF && attribute.value.size() >= sizeof route.oif)
        memcpy(&route.oif, attribute.value.data(), sizeof route.oif);
    else if (attribute.type == RTA_GATEWAY && attribute.value.size() >= sizeof route.gateway) {
        memcpy(&route.gateway, attribute.value.data(), sizeof route.gateway);
        route.has_gateway = true;
    }
}

bool read_route(const NetlinkMessage &message, Route &route)
{
    rtmsg fixed;
    if (message.header.nlmsg_type != RTM_NEWROUTE || message.body.size() < sizeof fixed)
        return false;
    memcpy(&fixed, message.body.data(), sizeof fixed);
    if (fixed.rtm_family != AF_INET || fixed.rtm_table != RT_TABLE_MAIN)
        return false;
    route = {.is_default = true};
    Bytes attributes = message.body;
    drop(attributes, NLMSG_ALIGN(sizeof fixed));
    NetlinkAttribute attribute;
    while (take_attribute(attributes, attribute))
        read_attribute(attribute, route);
    return true;
}

} // namespace

Fd open_route_socket(int type)
{
    return Fd(socket(AF_NETLINK, type | SOCK_CLOEXEC, NETLINK_ROUTE));
}

bool take_message(Bytes &rest, NetlinkMessage &message)
{
    if (rest.size() < sizeof message.header)
        return false;
    memcpy(&message.header, rest.data(), sizeof message.header);
    const size_t length = message.header.nlmsg_len;
    if (length < sizeof message.header || length > rest.size())
        return false;
    message.body = rest.first(length).subspan(NLMSG_HDRLEN);
    drop(rest, NLMSG_ALIGN(length));
    return true;
}

bool take_attribute(Bytes &rest, NetlinkAttribute &attribute)
{
    rtattr header;
    if (rest.size() < sizeof header)
        return false;
    memcpy(&header, rest.data(), sizeof header);
    if (header.rta_len < sizeof header || header.rta_len > rest.size())
        return false;
    attribute = {header.rta_type, rest.first(header.rta_len).subspan(sizeof header)};
    drop(rest, RTA_ALIGN(header.rta_len));
    return true;
}

Answer judge_answer(Bytes datagram, uint32_t port)
{
    NetlinkMessage message;
    do {
        if (!take_message(datagram, message) || message.header.nlmsg_type == NLMSG_ERROR)
            return Answer::is_broken;
        const bool is_last =
            message.header.nlmsg_type == NLMSG_DONE || !(message.header.nlmsg_flags & NLM_F_MULTI);
        if (is_last || (message.header.nlmsg_seq == kSequence && message.header.nlmsg_pid == port))
            return Answer::is_complete;
    } while (!datagram.empty());
    return Answer::goes_on;
}

Answer receive_answer(const Fd &socket, uint32_t port, std::span<uint8_t> room, Bytes &datagram)
{
    const ssize_t size =
        TEMP_FAILURE_RETRY(recv(socket.get(), room.data(), room.size(), MSG_TRUNC));
    if (size < 0 || static_cast<size_t>(size) > room.size())
        return Answer::is_broken;
    datagram = room.first(static_cast<size_t>(size));
    return judge_answer(datagram, port);
}

bool take_route(Bytes &rest, Route &route)
{
    NetlinkMessage message;
    while (take_message(rest, message))
        if (read_route(message, route))
            return true;
    return false;
}

} // namespace zorv
