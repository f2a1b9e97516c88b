// Discovery datagrams: anything received, what one side makes for the other, and sealed payloads
// that a good key and check sum bring up to the padding.
#include <zorv/aes.h>
#include <zorv/log.h>
#include <zorv/protocol.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <zlib.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kHeader = sizeof(zorv_protocol_header);

void require(bool holds)
{
    if (!holds)
        abort();
}

zorv_protocol_ctrl_t make_ctrl()
{
    zorv_protocol_ctrl_t ctrl{};
    for (uint8_t i = 0; i < 16; ++i)
        ctrl.key[i] = i;
    return ctrl;
}

zorv_protocol_header header_of(const Bytes &datagram)
{
    zorv_protocol_header header;
    memcpy(&header, datagram.data(), sizeof header);
    return header;
}

uint32_t decode(Bytes &datagram, const zorv_protocol_ctrl_t &ctrl)
{
    const zorv_protocol_ctrl_t before = ctrl;
    const uint32_t status = dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl);
    require(status <= 2 && memcmp(&before, &ctrl, sizeof ctrl) == 0);
    return status;
}

void check_anything(Bytes datagram)
{
    const Bytes before = datagram;
    const uint32_t status = decode(datagram, make_ctrl());
    const bool consistent =
        before.size() >= kHeader && before.size() - kHeader == ntohs(header_of(before).length);
    require(consistent || (status == 1 && datagram == before));
    require(status != 0 || header_of(datagram).length <= before.size() - kHeader);
}

// An empty message is the only one of a legal length that the receiver does not take.
void check_agreement(const uint8_t *message, size_t size, uint16_t sequence)
{
    zorv_protocol_ctrl_t ctrl = make_ctrl();
    ctrl.own_sequence = sequence;
    void *const made = gen_payload(message, static_cast<int>(size), 5, 7, 1, &ctrl);
    require(made);
    zorv_protocol_header header;
    memcpy(&header, made, sizeof header);
    const auto *const bytes = static_cast<const uint8_t *>(made);
    Bytes datagram(bytes, bytes + kHeader + ntohs(header.length));
    free(made);
    const bool duplicate = (sequence & 0xfff) == 0; // nothing accepted yet counts as 0
    const uint32_t status = decode(datagram, ctrl);
    require(status == (duplicate ? 2u : size == 0 ? 1u : 0u));
    require(status != 0 || (header_of(datagram).length == size &&
                            std::equal(message, message + size, datagram.data() + kHeader)));
}

// Whether the padding of a payload is one, said in another way than the library's.
bool is_padded(const Bytes &payload)
{
    const size_t pad = payload.back();
    return pad <= payload.size() &&
           std::count(payload.end() - static_cast<ptrdiff_t>(pad), payload.end(), payload.back()) ==
               static_cast<ptrdiff_t>(pad);
}

void check_padding(const Bytes &payload)
{
    const zorv_protocol_ctrl_t ctrl = make_ctrl();
    zorv_protocol_header header{};
    header.magic = htonl(0x22334455);
    header.version = header.flags = 2;
    header.length = htons(static_cast<uint16_t>(payload.size()));
    header.sequence = htons(1 << 4);
    header.crc32 =
        htonl(static_cast<uint32_t>(crc32(0, payload.data(), static_cast<uInt>(payload.size()))));
    Bytes datagram(kHeader + payload.size());
    memcpy(datagram.data(), &header, sizeof header);
    std::copy(payload.begin(), payload.end(), datagram.begin() + kHeader);
    aes_cbc_encrypt_128(ctrl.key, header.iv, datagram.data() + kHeader, payload.size());
    require(decode(datagram, ctrl) == (is_padded(payload) ? 0u : 1u));
    require(std::equal(payload.begin(), payload.end(), datagram.begin() + kHeader));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    if (size > 2048)
        return 0;
    check_anything(Bytes(data, data + size));
    check_agreement(data, size, static_cast<uint16_t>(size > 1 ? data[0] << 8 | data[1] : 1));
    if (const size_t whole = size / 16 * 16; whole > 0)
        check_padding(Bytes(data, data + whole));
    return 0;
}
