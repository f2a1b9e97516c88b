// datagram.h - datagrams as bytes.
#ifndef ZORV_TESTS_PROTOCOL_DATAGRAM_H
#define ZORV_TESTS_PROTOCOL_DATAGRAM_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>
#include <zorv/aes.h>
#include <zorv/protocol.h>

using Bytes = std::vector<uint8_t>;

inline Bytes from_hex(std::string_view hex)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(
            static_cast<uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    return bytes;
}

inline Bytes to_bytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline Bytes decrypt(Bytes data, const Bytes &key, const Bytes &iv)
{
    aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), data.size());
    return data;
}

inline Bytes encrypt(Bytes data, const Bytes &key, const Bytes &iv)
{
    aes_cbc_encrypt_128(key.data(), iv.data(), data.data(), data.size());
    return data;
}

inline uint32_t check_sum(const Bytes &payload)
{
    return static_cast<uint32_t>(crc32(0, payload.data(), static_cast<uInt>(payload.size())));
}

inline void put(Bytes &bytes, size_t at, uint64_t number, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        bytes[at + i] = static_cast<uint8_t>(number >> 8 * (size - 1 - i));
}

inline Bytes part(const Bytes &bytes, size_t at, size_t size)
{
    const auto begin = bytes.begin() + static_cast<ptrdiff_t>(at);
    return {begin, begin + static_cast<ptrdiff_t>(size)};
}

// What gen_payload() made; empty for NULL.
inline Bytes generate(std::string_view message, uint16_t method, uint16_t type, int encrypt,
                      const zorv_protocol_ctrl_t &ctrl)
{
    void *const datagram =
        gen_payload(message.data(), static_cast<int>(message.size()), method, type, encrypt, &ctrl);
    if (!datagram)
        return {};
    const auto *const bytes = static_cast<const uint8_t *>(datagram);
    Bytes copy(bytes, bytes + 40 + (bytes[6] << 8 | bytes[7]));
    free(datagram);
    return copy;
}

#endif
