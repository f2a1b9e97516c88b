#include "datagram_check.h"

#include <cstring>

#include <zlib.h>

#include "base/output.h"

namespace ctl {
namespace {

constexpr uint32_t kMagic = 0x22334455;
constexpr uint8_t kEncrypted = 2;

size_t field_length(const std::string &datagram)
{
    return static_cast<size_t>(static_cast<uint8_t>(datagram[6]) << 8 |
                               static_cast<uint8_t>(datagram[7]));
}

std::string length_detail(const std::string &datagram)
{
    constexpr size_t kHeader = sizeof(zorv_protocol_header);
    if (datagram.size() < kHeader)
        return format("%zu bytes are less than a header of %zu", datagram.size(), kHeader);
    return format("%zu bytes, not the %zu of header and length field", datagram.size(),
                  kHeader + field_length(datagram));
}

// Names the first check that a rejected datagram fails, in the library's order. The payload has
// been decrypted if that was reached.
void explain(Verdict &verdict, const std::string &payload)
{
    const zorv_protocol_header &header = *verdict.header;
    const auto fail = [&verdict](const char *check, const std::string &detail) {
        verdict.failed = check;
        verdict.detail = detail;
    };
    if (header.magic != kMagic)
        return fail("magic", format("0x%08x, not 0x%08x", header.magic, kMagic));
    if (!(header.flags & kEncrypted))
        return fail("flag", format("0x%02x, not marked as encrypted", header.flags));
    if (header.length == 0)
        return fail("length", "there is no payload");
    if (header.version < 2)
        return fail("version", format("%u, not 2 or more", header.version));
    const auto *const bytes = reinterpret_cast<const Bytef *>(payload.data());
    const auto sum = static_cast<uint32_t>(crc32(0, bytes, static_cast<uInt>(payload.size())));
    if (sum != header.crc32)
        return fail("CRC", format("0x%08x, the header says 0x%08x: another key, or damage", sum,
                                  header.crc32));
    fail("padding", format("malformed, its last byte is %u", static_cast<uint8_t>(payload.back())));
}

} // namespace

Verdict check_datagram(std::string datagram, const zorv_protocol_ctrl_t &ctrl)
{
    constexpr size_t kHeader = sizeof(zorv_protocol_header);
    Verdict verdict{};
    const bool consistent =
        datagram.size() >= kHeader && datagram.size() == kHeader + field_length(datagram);
    verdict.status = dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl);
    if (!consistent) {
        verdict.failed = "length";
        verdict.detail = length_detail(datagram);
        return verdict;
    }
    memcpy(&verdict.header.emplace(), datagram.data(), kHeader);
    if (verdict.status == 2) {
        verdict.failed = "duplicate";
        verdict.detail = format("sequence %u is that of the last one", verdict.header->sequence);
    } else if (verdict.status == 1) {
        explain(verdict, datagram.substr(kHeader));
    } else {
        verdict.message = datagram.substr(kHeader, verdict.header->length);
    }
    return verdict;
}

} // namespace ctl
