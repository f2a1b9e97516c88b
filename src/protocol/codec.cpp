#include <zorv/protocol.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <zlib.h>

#include <zorv/aes.h>

#include "core/log_gate.h"

// A datagram's header.
static_assert(sizeof(zorv_protocol_header) == 40);
static_assert(offsetof(zorv_protocol_header, length) == 6);
static_assert(offsetof(zorv_protocol_header, iv) == 12);
static_assert(offsetof(zorv_protocol_header, device) == 28);
static_assert(offsetof(zorv_protocol_header, sequence) == 34);
static_assert(offsetof(zorv_protocol_header, crc32) == 36);

// Callers read fields in place.
static_assert(sizeof(zorv_protocol_ctrl_t) == 64);
static_assert(offsetof(zorv_protocol_ctrl_t, fd) == 20);
static_assert(offsetof(zorv_protocol_ctrl_t, device) == 24);
static_assert(offsetof(zorv_protocol_ctrl_t, key) == 30);
static_assert(offsetof(zorv_protocol_ctrl_t, last_sequence) == 46);
static_assert(offsetof(zorv_protocol_ctrl_t, own_sequence) == 48);

namespace {

constexpr char kModule[] = "libzorv";
constexpr uint32_t kMagic = 0x22334455;
constexpr uint8_t kVersion = 2;
constexpr uint8_t kPlain = 1;
constexpr uint8_t kEncrypted = 2;
constexpr uint16_t kSequenceMask = 0xFFF;
constexpr unsigned kSequenceShift = 4;
constexpr uint16_t kRepeatable = 3; // the method that may repeat a sequence
constexpr size_t kBlock = 16;
constexpr size_t kHeader = sizeof(zorv_protocol_header);
constexpr int kLongest = INT_MAX - kHeader - kBlock; // so that a datagram's length is an int

enum Status : uint32_t { kAccepted = 0, kRejected = 1, kDuplicate = 2 };

size_t padding_of(size_t len)
{
    return len == 0 ? 0 : kBlock - len % kBlock;
}

zorv_protocol_header make_header(uint16_t length, uint16_t method, uint16_t type, bool encrypted,
                                 const zorv_protocol_ctrl_t &ctrl)
{
    zorv_protocol_header header{};
    header.magic = htonl(kMagic);
    header.version = kVersion;
    header.flags = encrypted ? kEncrypted : kPlain;
    header.length = htons(length);
    header.method = htons(method);
    header.type = htons(type);
    memcpy(header.device, ctrl.device, sizeof header.device);
    header.sequence =
        htons(static_cast<uint16_t>((ctrl.own_sequence & kSequenceMask) << kSequenceShift));
    return header;
}

uint32_t check_sum(const uint8_t *payload, size_t length)
{
    return static_cast<uint32_t>(crc32(0, payload, static_cast<uInt>(length)));
}

// Pads, checks and encrypts the payload, a message of len bytes and the room for its padding.
void seal(zorv_protocol_header &header, uint8_t *payload, size_t len, size_t padded,
          const zorv_protocol_ctrl_t &ctrl)
{
    memset(payload + len, static_cast<int>(padded - len), padded - len);
    header.crc32 = htonl(check_sum(payload, padded));
    aes_cbc_generate_iv(header.iv, sizeof header.iv);
    aes_cbc_encrypt_128(ctrl.key, header.iv, payload, padded);
}

void to_host_order(zorv_protocol_header &header)
{
    header.length = ntohs(header.length);
    header.method = ntohs(header.method);
    header.type = ntohs(header.type);
    header.sequence = (ntohs(header.sequence) >> kSequenceShift) & kSequenceMask;
    header.crc32 = ntohl(header.crc32);
    header.magic = ntohl(header.magic);
}

bool is_acceptable(const zorv_protocol_header &header)
{
    return header.magic == kMagic && (header.flags & kEncrypted) && header.length != 0 &&
           header.version > 1;
}

// Takes the padding off the length; false when it is malformed.
bool strip_padding(const uint8_t *payload, uint16_t &length)
{
    const uint8_t pad = payload[length - 1];
    if (length < pad)
        return false;
    // On purpose a pad of 0 passes and strips nothing; kept for peers built against it.
    for (int i = 1; i <= pad; ++i) {
        if (payload[length - i] != pad)
            return false;
    }
    length = static_cast<uint16_t>(length - pad);
    return true;
}

} // namespace

void *gen_payload(const void *data, int len, uint16_t method, uint16_t type, int encrypt,
                  const zorv_protocol_ctrl_t *ctrl)
{
    const bool sealed = encrypt == 1;
    const bool sizable = len >= 0 && len <= kLongest;
    const size_t length = sizable ? static_cast<size_t>(len) : 0;
    const size_t padded = length + (sealed ? padding_of(length) : 0);
    auto *const datagram = static_cast<uint8_t *>(sizable ? calloc(1, kHeader + padded) : nullptr);
    if (!datagram) {
        log_error("hdr malloc fail");
        return nullptr;
    }

    // On purpose the header says "encrypted" for any value but 0, and only 1 encrypts.
    zorv_protocol_header header =
        make_header(static_cast<uint16_t>(padded), method, type, encrypt != 0, *ctrl);
    uint8_t *const payload = datagram + kHeader;
    if (length > 0)
        memcpy(payload, data, length);
    if (sealed)
        seal(header, payload, length, padded, *ctrl);
    memcpy(datagram, &header, sizeof header);
    return datagram;
}

uint32_t dec_payload(int received_len, void *datagram, const zorv_protocol_ctrl_t *ctrl)
{
    const size_t received = received_len < 0 ? 0 : static_cast<size_t>(received_len);
    zorv_protocol_header header{};
    if (received >= kHeader)
        memcpy(&header, datagram, sizeof header);
    if (received < kHeader || received - kHeader != ntohs(header.length)) {
        log_error("packet length check fail");
        return kRejected;
    }
    to_host_order(header);
    memcpy(datagram, &header, sizeof header);

    if (header.sequence == ctrl->last_sequence && header.method != kRepeatable)
        return kDuplicate;
    if (!is_acceptable(header))
        return kRejected;

    uint8_t *const payload = static_cast<uint8_t *>(datagram) + kHeader;
    const bool decrypted = aes_cbc_decrypt_128(ctrl->key, header.iv, payload, header.length) == 0;
    const uint32_t sum = check_sum(payload, header.length);
    // A payload of no whole blocks was not encrypted: its sum, right or not, proves no key.
    if (!decrypted || sum != header.crc32) {
        log_error("hdr=%d, crc32=%d", static_cast<int>(header.crc32), static_cast<int>(sum));
        return kRejected;
    }
    if (!strip_padding(payload, header.length))
        return kRejected;
    memcpy(datagram, &header, sizeof header);
    return kAccepted;
}
