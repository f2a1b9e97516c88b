// datagram_files.h - discovery datagrams out of packet captures and hexadecimal text.
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

struct Capture {
    std::vector<CapturedDatagram> datagrams;
    std::string fault; // why reading ended early; empty when it did not
};

bool is_pcap(std::string_view bytes);

// Finds the UDP datagrams to a port in a classic pcap file of either byte order, captured on
// Ethernet (with VLAN tags or without), on "any" or as bare IP. Fragments are passed over.
Capture read_pcap(std::string_view bytes, uint16_t port);

// Reads pairs of hexadecimal digits; white space, ":", "-" and "," may stand between pairs. Nothing
// when there is anything else, or half a pair.
std::optional<std::string> read_hex(std::string_view text);

} // namespace ctl

#endif
