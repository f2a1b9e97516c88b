#include "datagram_files.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <arpa/inet.h>

namespace ctl {
namespace {

constexpr size_t kFileHeader = 24;
constexpr size_t kFrameHeader = 16;
constexpr uint32_t kMicroseconds = 0xa1b2c3d4;
constexpr uint32_t kNanoseconds = 0xa1b23c4d;
constexpr uint16_t kIpv4 = 0x0800;
constexpr uint16_t kVlan = 0x8100;
constexpr uint16_t kServiceVlan = 0x88a8;
constexpr uint8_t kUdp = 17;

// Where the protocol number of a link layer stands, and where what it names begins.
constexpr struct LinkLayer {
    uint16_t type;
    uint8_t protocol;
    uint8_t header;
    bool tagged; // VLAN tags may follow the protocol number
} kLinkLayers[] = {
    {1, 12, 14, true},    // Ethernet
    {113, 14, 16, false}, // the "any" device, first version
    {276, 0, 20, false},  // and second
    {101, 0, 0, false},   // bare IP
    {12, 0, 0, false},    // bare IP, as some systems number it
};

uint16_t big16(std::string_view bytes, size_t at)
{
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) << 8 |
                                 static_cast<uint8_t>(bytes[at + 1]));
}

// Numbers of the file itself, in the byte order of who wrote it.
uint32_t native32(std::string_view bytes, size_t at, bool swapped)
{
    uint32_t number;
    memcpy(&number, bytes.data() + at, sizeof number);
    return swapped ? __builtin_bswap32(number) : number;
}

struct Format {
    bool swapped;
    double fraction; // seconds per unit of a frame's fine time
};

std::optional<Format> detect(std::string_view bytes)
{
    if (bytes.size() < kFileHeader)
        return {};
    for (const bool swapped : {false, true}) {
        const uint32_t magic = native32(bytes, 0, swapped);
        if (magic == kMicroseconds)
            return Format{swapped, 1e-6};
        if (magic == kNanoseconds)
            return Format{swapped, 1e-9};
    }
    return {};
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
bool take_datagram(std::string_view packet, uint16_t port, CapturedDatagram &datagram)
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

bool is_pcap(std::string_view bytes)
{
    return detect(bytes).has_value();
}

Capture read_pcap(std::string_view bytes, uint16_t port)
{
    const auto format = detect(bytes);
    if (!format)
        return {{}, "not a pcap file"};
    const uint32_t type = native32(bytes, 20, format->swapped) & 0x0fffffff; // the rest is flags
    const auto *const layer =
        std::find_if(std::begin(kLinkLayers), std::end(kLinkLayers),
                     [type](const LinkLayer &row) { return row.type == type; });
    if (layer == std::end(kLinkLayers))
        return {{}, "link type " + std::to_string(type) + " is not supported"};

    Capture capture;
    bytes.remove_prefix(kFileHeader);
    for (uint64_t number = 1; !bytes.empty(); ++number) {
        const std::string frame_name = "frame " + std::to_string(number);
        if (bytes.size() < kFrameHeader) {
            capture.fault = frame_name + " is cut";
            break;
        }
        const double time = native32(bytes, 0, format->swapped) +
                            native32(bytes, 4, format->swapped) * format->fraction;
        const size_t length = native32(bytes, 8, format->swapped);
        bytes.remove_prefix(kFrameHeader);
        if (bytes.size() < length) {
            capture.fault = frame_name + " is cut";
            break;
        }
        CapturedDatagram datagram{number, time, {}, {}};
        if (take_datagram(ip_packet(bytes.substr(0, length), *layer), port, datagram))
            capture.datagrams.push_back(std::move(datagram));
        bytes.remove_prefix(length);
    }
    return capture;
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
