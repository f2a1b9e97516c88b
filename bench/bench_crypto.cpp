// SHA-256, AES-128-CBC and Base64 of datagrams, state files and crash logs, against OpenSSL (its
// envelope and its low-level functions), nettle, Mbed TLS and LibTomCrypt.
#include "ratio.h"

#include <memory>
#include <vector>

#include <mbedtls/aes.h>
#include <mbedtls/base64.h>
#include <mbedtls/sha256.h>
#include <zorv/aes.h>
#include <zorv/base64.h>
#include <zorv/sha256.h>

#include "crypto_peer.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Encoders write four characters for three bytes, padding, and a NUL.
size_t text_size(size_t length)
{
    return (length + 2) / 3 * 4 + 1;
}

void mbedtls_cbc(int mode, const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length)
{
    mbedtls_aes_context context;
    mbedtls_aes_init(&context);
    if (mode == MBEDTLS_AES_ENCRYPT)
        mbedtls_aes_setkey_enc(&context, key, 128);
    else
        mbedtls_aes_setkey_dec(&context, key, 128);
    uint8_t chain[16];
    std::copy_n(iv, sizeof chain, chain);
    mbedtls_aes_crypt_cbc(&context, mode, length, chain, data, data);
    mbedtls_aes_free(&context);
}

void bench_sha256(const CryptoPeer &peer, benchmark::State &state, size_t length)
{
    const Bytes message(length, 'm');
    uint8_t digest[32];
    for ([[maybe_unused]] const auto _ : state) {
        peer.sha256(message.data(), length, digest);
        benchmark::DoNotOptimize(digest);
    }
}

void bench_cbc(decltype(CryptoPeer::cbc_encrypt) work, benchmark::State &state, size_t length)
{
    Bytes data(length, 'd');
    const Bytes key(16, 'k'), iv(16, 'i');
    for ([[maybe_unused]] const auto _ : state) {
        work(key.data(), iv.data(), data.data(), length);
        benchmark::DoNotOptimize(data.data());
    }
}

void bench_base64_encode(const CryptoPeer &peer, benchmark::State &state, size_t length)
{
    const Bytes bytes(length, 'b');
    std::vector<char> text(text_size(length));
    for ([[maybe_unused]] const auto _ : state) {
        peer.base64_encode(text.data(), bytes.data(), length);
        benchmark::DoNotOptimize(text.data());
    }
}

void bench_base64_decode(const CryptoPeer &peer, benchmark::State &state, size_t length)
{
    Bytes bytes(length + 4);
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<uint8_t>(i * 167);
    std::vector<char> text(text_size(length));
    kZorv.base64_encode(text.data(), bytes.data(), length);
    for ([[maybe_unused]] const auto _ : state) {
        peer.base64_decode(bytes.data(), text.data(), text.size() - 1);
        benchmark::DoNotOptimize(bytes.data());
    }
}

} // namespace

constexpr CryptoPeer kZorv = {
    "zorv",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        sha256(message, static_cast<unsigned>(length), digest);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        aes_cbc_encrypt_128(key, iv, data, length);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        aes_cbc_decrypt_128(key, iv, data, length);
    },
    [](char *text, const uint8_t *bytes, size_t length) {
        base64rfc_encode(text, bytes, static_cast<int>(length));
    },
    [](uint8_t *bytes, const char *text, size_t) { base64_decode(bytes, text); },
};

constexpr CryptoPeer kMbedTls = {
    "mbedtls",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        mbedtls_sha256_ret(message, length, digest, 0);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        mbedtls_cbc(MBEDTLS_AES_ENCRYPT, key, iv, data, length);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        mbedtls_cbc(MBEDTLS_AES_DECRYPT, key, iv, data, length);
    },
    [](char *text, const uint8_t *bytes, size_t length) {
        size_t written;
        mbedtls_base64_encode(reinterpret_cast<uint8_t *>(text), text_size(length), &written, bytes,
                              length);
    },
    [](uint8_t *bytes, const char *text, size_t length) {
        size_t written;
        mbedtls_base64_decode(bytes, length / 4 * 3, &written,
                              reinterpret_cast<const uint8_t *>(text), length);
    },
};

void register_benches()
{
    for (const CryptoPeer *peer :
         {&kZorv, &kOpenSslEvp, &kOpenSsl, &kNettle, &kMbedTls, &kTomCrypt}) {
        const auto add = [peer](const char *family, std::initializer_list<long> sizes, auto work) {
            bench::add(family, sizes, peer->name, [work](benchmark::State &state, long size) {
                work(state, static_cast<size_t>(size));
            });
        };
        add("sha256", {64, 1024, 65536},
            [peer](auto &state, size_t size) { bench_sha256(*peer, state, size); });
        add("cbc-encrypt", {32, 64, 512, 1024, 65536},
            [peer](auto &state, size_t size) { bench_cbc(peer->cbc_encrypt, state, size); });
        add("cbc-decrypt", {32, 64, 512, 1024, 65536},
            [peer](auto &state, size_t size) { bench_cbc(peer->cbc_decrypt, state, size); });
        if (!peer->base64_encode)
            continue;
        add("base64-encode", {48, 3 << 10, 3 << 20},
            [peer](auto &state, size_t size) { bench_base64_encode(*peer, state, size); });
        add("base64-decode", {48, 3 << 10, 3 << 20},
            [peer](auto &state, size_t size) { bench_base64_decode(*peer, state, size); });
    }
}
