// datagram_check.h - what the library says about a datagram, and why.
#ifndef ZORVCTL_DATAGRAM_CHECK_H
#define ZORVCTL_DATAGRAM_CHECK_H

#include <optional>
#include <string>

#include <zorv/protocol.h>

namespace ctl {

struct Verdict {
    uint32_t status;    // of dec_payload()
    const char *failed; // the check that failed: "length", "duplicate", "magic", "flag", "version",
                        // "CRC" or "padding"; NULL for an accepted datagram
    std::string detail; // what was found, and what was expected
    std::optional<zorv_protocol_header> header; // in host order; the length is the message's, when
                                                // accepted. Nothing when the length check failed
    std::string message;
};

// Has the library check a datagram, and names the check that failed.
Verdict check_datagram(std::string datagram, const zorv_protocol_ctrl_t &ctrl);

} // namespace ctl

#endif
