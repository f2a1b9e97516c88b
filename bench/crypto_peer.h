// crypto_peer.h - one face for every library that bench_crypto.cpp measures. Each has a file of its
// own, because their names clash.
#ifndef ZORV_BENCH_CRYPTO_PEER_H
#define ZORV_BENCH_CRYPTO_PEER_H

#include <cstddef>
#include <cstdint>

struct CryptoPeer {
    const char *name;
    void (*sha256)(const uint8_t *message, size_t length, uint8_t *digest);
    // AES-128 in place, key set-up included.
    void (*cbc_encrypt)(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
    void (*cbc_decrypt)(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
    // Null in a face that has none. A text that is decoded ends with a NUL.
    void (*base64_encode)(char *text, const uint8_t *bytes, size_t length);
    void (*base64_decode)(uint8_t *bytes, const char *text, size_t length);
};

extern const CryptoPeer kZorv, kOpenSslEvp, kOpenSsl, kMbedTls, kNettle, kTomCrypt;

#endif
