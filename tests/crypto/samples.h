// samples.h - byte strings for the tests: hexadecimal both ways, and random ones that repeat.
#ifndef ZORV_TESTS_CRYPTO_SAMPLES_H
#define ZORV_TESTS_CRYPTO_SAMPLES_H

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline Bytes from_hex(const std::string &text)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

inline std::string to_hex(const uint8_t *bytes, size_t count)
{
    std::string text;
    char pair[3];
    for (size_t i = 0; i < count; ++i) {
        snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

inline std::string to_hex(const Bytes &bytes)
{
    return to_hex(bytes.data(), bytes.size());
}

// NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): a failure is to come again
class Random {
public:
    Bytes bytes(size_t count)
    {
        Bytes result(count);
        for (uint8_t &byte : result)
            byte = static_cast<uint8_t>(engine_());
        return result;
    }

private:
    std::mt19937 engine_;
};

#endif
