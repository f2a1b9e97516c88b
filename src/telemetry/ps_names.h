// ps_names.h - the names of kinds, states and types, in the order of their numbers.
#ifndef ZORV_TELEMETRY_PS_NAMES_H
#define ZORV_TELEMETRY_PS_NAMES_H

#include <cstddef>
#include <cstdint>

namespace zorv {

constexpr char kFdKinds[][8] = {"unknown", "file", "anon", "pipe", "socket"};
constexpr char kSocketKinds[][8] = {"unknown", "unix", "tcp", "tcp6", "udp", "udp6"};
constexpr char kUnixTypes[][10] = {"UNKNOWN", "STREAM", "DGRAM", "RAW", "RDM", "SEQPACKET"};

constexpr char kInetStates[][13] = {
    "UNKNOWN", "ESTABLISHED", "SYN_SENT", "SYN_RECV", "FIN_WAIT1", "FIN_WAIT2",    "TIME_WAIT",
    "CLOSE",   "CLOSE_WAIT",  "LAST_ACK", "LISTEN",   "CLOSING",   "NEW_SYN_RECV",
};

constexpr char kUnixStates[][14] = {
    "UNKNOWN", "FREE", "UNCONNECTED", "LISTENING", "CONNECTING", "CONNECTED", "DISCONNECTING",
};

// The name of a number; every table begins with the one for those outside.
template <size_t Count, size_t Width>
constexpr const char *name_of(const char (&names)[Count][Width], uint32_t number)
{
    return names[number < Count ? number : 0];
}

} // namespace zorv

#endif
