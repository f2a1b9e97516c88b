// What zorvctl reads datagrams from: captured frames and hexadecimal text.
#include "datagram_files.h"

#include <cstdio>
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

// The seeds are captures of one frame or a few: it begins behind two headers, in which the link
// type stands.
void check_frame(std::string_view bytes)
{
    constexpr size_t kHeaders = 40, kLinkType = 20;
    if (bytes.size() < kHeaders)
        return;
    const int type = static_cast<uint8_t>(bytes[kLinkType]) + 256 * (bytes[kLinkType + 1] & 1);
    ctl::CapturedDatagram datagram{1, 0, {}, {}};
    bytes.remove_prefix(kHeaders);
    if (!ctl::take_datagram(bytes, type, 48000, datagram))
        return;
    require(ctl::is_known_link(type));
    require(!datagram.sender.empty());
    require(datagram.payload.size() < bytes.size());
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
    check_frame(bytes);
    check_hex(bytes);
    return 0;
}
