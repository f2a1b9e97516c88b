#include "datagram_files.h"

#include <algorithm>
#include <iterator>

#include <arpa/inet.h>

namespace ctl {
namespace {

constexpr uint16_t kIpv4 = 0x0800;
constexpr uint16_t kVlan = 0x8100;
constexpr uint16_t kServiceVlan = 0x88a8;
constexpr uint8_t kUdp = 17;

// Where the protocol number of a link layer stands, and where what it names begins.
constexpr struct LinkLayer {
    int type; // libpcap's DLT_ number
    uint8_t protocol;
    uint8_t header;
    bool tagged; // VLAN tags may follow the protocol number
} kLinkLayers[] = {
    {1, 12, 14, true},    // Ethernet
    {113, 14, 16, false}, // the "any" device, first version
    {276, 0, 20, false},  // and second
    {12, 0, 0, false},    // bare IP
};

uint16_t big16(std::string_view bytes, size_t at)
{
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) << 8 |
                                 static_cast<uint8_t>(bytes[at + 1]));
}

const LinkLayer *find_layer(int type)
{
    const auto *const found =
        std::find_if(std::begin(kLinkLayers), std::end(kLinkLayers),
                     [type](const LinkLayer &layer) { return layer.type == type; });
    return found == std::end(kLinkLayers) ? nullptr : found;
}

// The IPv4 packet inside a frame; empty when there is none.
std::string_view ip_packet(std::string_view frame, const LinkLayer &layer)
{
    size_t at = layer.header;
    if (layer.header > 0) {
        if (frame.size() < at)
            return {};
        uint16_t protocol = big16(frame, layer.protocol);
        while (layer.tagged && (protocol == kVlan || protocol == kServiceVlan)) {
            at += 4;
            if (frame.size() < at)
                return {};
            protocol = big16(frame, at - 2);
        }
        if (protocol != kIpv4)
            return {};
    }
    return frame.substr(at);
}

// Fills sender and payload when the packet is an unfragmented UDP datagram to the port.
bool take_packet(std::string_view packet, uint16_t port, CapturedDatagram &datagram)
{
    constexpr size_t kIpHeader = 20, kUdpHeader = 8;
    if (packet.size() < kIpHeader || (packet[0] & 0xf0) != 0x40)
        return false;
    const size_t header = static_cast<size_t>(packet[0] & 0x0f) * 4;
    const bool fragment = (big16(packet, 6) & 0x3fff) != 0;
    if (header < kIpHeader || fragment || static_cast<uint8_t>(packet[9]) != kUdp)
        return false;
    if (packet.size() < header + kUdpHeader || big16(packet, header + 2) != port)
        return false;
    const size_t length = big16(packet, header + 4); // the frame may be padded beyond
    if (length < kUdpHeader)
        return false;
    char sender[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, packet.data() + 12, sender, sizeof sender);
    datagram.sender = sender;
    datagram.payload = packet.substr(header + kUdpHeader, length - kUdpHeader);
    return true;
}

int digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace

bool is_known_link(int link_type)
{
    return find_layer(link_type);
}

bool take_datagram(std::string_view frame, int link_type, uint16_t port, CapturedDatagram &datagram)
{
    const LinkLayer *const layer = find_layer(link_type);
    return layer && take_packet(ip_packet(frame, *layer), port, datagram);
}

std::optional<std::string> read_hex(std::string_view text)
{
    constexpr std::string_view kBetween = " \t\r\n\v\f:-,";
    std::string bytes;
    for (size_t i = 0; i < text.size();) {
        if (kBetween.find(text[i]) != std::string_view::npos) {
            ++i;
            continue;
        }
        const int high = digit(text[i]);
        const int low = i + 1 < text.size() ? digit(text[i + 1]) : -1;
        if (high < 0 || low < 0)
            return {};
        bytes += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return bytes;
}

} // namespace ctl
