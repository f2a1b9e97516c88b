#include <nettle/aes.h>
#include <nettle/base64.h>
#include <nettle/cbc.h>
#include <nettle/sha2.h>

#include <algorithm>

#include "crypto_peer.h"

constexpr CryptoPeer kNettle = {
    "nettle",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        struct sha256_ctx context;
        nettle_sha256_init(&context);
        nettle_sha256_update(&context, length, message);
        nettle_sha256_digest(&context, SHA256_DIGEST_SIZE, digest);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        struct aes128_ctx context;
        nettle_aes128_set_encrypt_key(&context, key);
        uint8_t chain[AES_BLOCK_SIZE];
        std::copy_n(iv, sizeof chain, chain);
        nettle_cbc_aes128_encrypt(&context, chain, length, data, data);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        struct aes128_ctx context;
        nettle_aes128_set_decrypt_key(&context, key);
        uint8_t chain[AES_BLOCK_SIZE];
        std::copy_n(iv, sizeof chain, chain);
        nettle_cbc_decrypt(&context, reinterpret_cast<nettle_cipher_func *>(nettle_aes128_decrypt),
                           AES_BLOCK_SIZE, chain, length, data, data);
    },
    [](char *text, const uint8_t *bytes, size_t length) {
        nettle_base64_encode_raw(text, length, bytes);
    },
    [](uint8_t *bytes, const char *text, size_t length) {
        struct base64_decode_ctx context;
        nettle_base64_decode_init(&context);
        size_t written = length;
        nettle_base64_decode_update(&context, &written, bytes, length, text);
    },
};
