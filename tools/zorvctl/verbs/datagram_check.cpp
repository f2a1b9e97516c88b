#include "datagram_check.h"

#include <cstddef>
#include <cstring>

#include <arpa/inet.h>
#include <zlib.h>

#include "base/output.h"

namespace ctl {
namespace {

constexpr uint32_t kMagic = 0x22334455;
constexpr uint8_t kEncrypted = 2;
constexpr size_t kHeader = sizeof(zorv_protocol_header);

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

size_t datagram_size(const char *datagram)
{
    uint16_t length;
    memcpy(&length, datagram + offsetof(zorv_protocol_header, length), sizeof length);
    return kHeader + ntohs(length);
}

std::string length_fault(std::string_view datagram)
{
    if (datagram.size() < kHeader)
        return format("%zu bytes are less than a header of %zu", datagram.size(), kHeader);
    if (datagram.size() > kMostDatagram)
        return format("%zu bytes are more than the %zu that receivers take", datagram.size(),
                      kMostDatagram);
    const size_t whole = datagram_size(datagram.data());
    return datagram.size() == whole ? ""
                                    : format("%zu bytes, not the %zu of header and length field",
                                             datagram.size(), whole);
}

Verdict check_datagram(std::string datagram, const zorv_protocol_ctrl_t &ctrl)
{
    Verdict verdict{};
    verdict.detail = length_fault(datagram);
    if (!verdict.detail.empty()) {
        verdict.status = 1;
        verdict.failed = "length";
        return verdict;
    }
    verdict.status = dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl);
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
