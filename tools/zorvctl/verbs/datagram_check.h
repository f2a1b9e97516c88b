// datagram_check.h - what the library says about a datagram, and why.
#ifndef ZORVCTL_DATAGRAM_CHECK_H
#define ZORVCTL_DATAGRAM_CHECK_H

#include <optional>
#include <string>
#include <string_view>

#include <zorv/protocol.h>

namespace ctl {

constexpr size_t kMostDatagram = 512; // that a receiver takes of one

struct Verdict {
    uint32_t status;    // of dec_payload()
    const char *failed; // the check that failed: "length", "duplicate", "magic", "flag", "version",
                        // "CRC" or "padding"; NULL for an accepted datagram
    std::string detail; // what was found, and what was expected
    std::optional<zorv_protocol_header> header; // in host order; the length is the message's, when
                                                // accepted. Nothing when the length check failed
    std::string message;
};

// The bytes that a header says the whole datagram has.
size_t datagram_size(const char *datagram);

// What is wrong with a datagram's length, which takes no key; empty when it is right.
std::string length_fault(std::string_view datagram);

// Has the library check a datagram, and names the check that failed.
Verdict check_datagram(std::string datagram, const zorv_protocol_ctrl_t &ctrl);

} // namespace ctl

#endif
