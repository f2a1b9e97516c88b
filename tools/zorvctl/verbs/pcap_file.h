// pcap_file.h - the datagrams of a packet capture, as libpcap reads it.
#ifndef ZORVCTL_PCAP_FILE_H
#define ZORVCTL_PCAP_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "datagram_files.h"

namespace ctl {

// Whether a file begins as pcap or pcapng does.
bool is_capture(std::string_view bytes);

// The UDP datagrams to a port. Throws when the file is damaged or of an unknown link layer, and, as
// unavailable, without libpcap: the first call loads it, if zorvctl was built with it.
std::vector<CapturedDatagram> read_capture(const std::string &path, std::string &bytes,
                                           uint16_t port);

} // namespace ctl

#endif
