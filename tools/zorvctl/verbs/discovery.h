// discovery.h - what the verbs of the family discovery share.
#ifndef ZORVCTL_DISCOVERY_H
#define ZORVCTL_DISCOVERY_H

#include <cstdint>
#include <string>
#include <string_view>

#include <zorv/protocol.h>

#include "base/cli.h"

namespace ctl {

constexpr uint16_t kPort = 48000;
constexpr uint16_t kLastSequence = 0xfff;
constexpr size_t kMostMessage = 463; // with header and padding it fills what a receiver takes, 512

// The transport between zorv_protocol_init() and zorv_protocol_deinit().
class Transport {
public:
    explicit Transport(bool with_socket);
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;
    ~Transport() { zorv_protocol_deinit(); }
};

std::string mac_text(const uint8_t (&mac)[6]);
std::string address_text(uint32_t address);

// A message for JSON and for people; one NUL at its end, as many senders have it, is no part of the
// text.
Value message_value(const zorv_protocol_header &header, std::string_view message);
std::string message_line(const zorv_protocol_header &header, std::string_view message);

// The bytes to be sent for a text. Refuses more than receivers take.
std::string message_of(const std::string &text, bool with_nul);

// Fresh receivers take 0 for the last sequence that they accepted; so 0 is never sent.
uint16_t random_sequence();

// One source file each.
extern const Verb kDiscoveryListen[2]; // listen, list
extern const Verb kDiscoveryCodec[2];  // encode, decode

} // namespace ctl

#endif
