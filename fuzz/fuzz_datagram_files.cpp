// What zorvctl reads datagrams from: packet captures and hexadecimal text.
#include "datagram_files.h"

#include <cstdio>
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

void check_capture(std::string_view bytes)
{
    const ctl::Capture capture = ctl::read_pcap(bytes, 48000);
    require(ctl::is_pcap(bytes) || (!capture.fault.empty() && capture.datagrams.empty()));
    uint64_t frame = 0;
    size_t total = 0;
    for (const auto &datagram : capture.datagrams) {
        require(datagram.frame > frame);
        require(!datagram.sender.empty());
        frame = datagram.frame;
        total += datagram.payload.size();
    }
    require(total <= bytes.size());
}

void check_hex(std::string_view text)
{
    const auto bytes = ctl::read_hex(text);
    if (!bytes)
        return;
    require(bytes->size() * 2 <= text.size());
    std::string again;
    for (const char c : *bytes) {
        char pair[4];
        snprintf(pair, sizeof pair, "%02X:", static_cast<unsigned>(static_cast<uint8_t>(c)));
        again += pair;
    }
    require(ctl::read_hex(again) == bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    check_capture(bytes);
    check_hex(bytes);
    return 0;
}
