// datagram.h - datagrams as bytes.
#ifndef ZORV_TESTS_PROTOCOL_DATAGRAM_H
#define ZORV_TESTS_PROTOCOL_DATAGRAM_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <zlib.h>
#include <zorv/aes.h>
#include <zorv/protocol.h>

#include "crypto/samples.h"

inline constexpr char kKey[] = "000102030405060708090a0b0c0d0e0f";

// "hello", method 5, type 7, sequence 0x123, made by another implementation of AES and CRC-32.
inline constexpr char kHello[] =
    "223344550202001000050007f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff02a0f100000712300b6b2f9e"
    "c5fc2cbc3f0f1ad4f003707aa67b4c7f";

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
