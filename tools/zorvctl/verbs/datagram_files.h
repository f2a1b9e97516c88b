// datagram_files.h - discovery datagrams out of captured frames and hexadecimal text.
//
// Pure functions on bytes that anybody may have written; they open nothing.
#ifndef ZORVCTL_DATAGRAM_FILES_H
#define ZORVCTL_DATAGRAM_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

struct CapturedDatagram {
    uint64_t frame;      // its number in the capture, from 1
    double time;         // seconds since 1970
    std::string sender;  // IPv4 address
    std::string payload; // of the UDP datagram, as far as it was captured
};

// Fills sender and payload when a frame holds an unfragmented UDP datagram over IPv4 to the port.
// The link type is Ethernet (with VLAN tags or without), "any" or bare IP; false for any other.
bool take_datagram(std::string_view frame, int link_type, uint16_t port,
                   CapturedDatagram &datagram);

bool is_known_link(int link_type);

// Reads pairs of hexadecimal digits; white space, ":", "-" and "," may stand between pairs. Nothing
// when there is anything else, or half a pair.
std::optional<std::string> read_hex(std::string_view text);

} // namespace ctl

#endif
