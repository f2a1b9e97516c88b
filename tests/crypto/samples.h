// samples.h - what the tests share: bytes as hexadecimal, and random ones that repeat.
#ifndef ZORV_TESTS_CRYPTO_SAMPLES_H
#define ZORV_TESTS_CRYPTO_SAMPLES_H

#include <span>

#include "support/device.h"

using Bytes = std::vector<uint8_t>;

inline Bytes from_hex(const std::string &text)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

inline std::string to_hex(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

inline std::string to_hex(const uint8_t *bytes, size_t count)
{
    return to_hex(std::span(bytes, count));
}

inline Bytes random_bytes(size_t count)
{
    static std::mt19937 engine; // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    Bytes bytes(count);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(engine());
    return bytes;
}

#endif
