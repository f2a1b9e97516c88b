#define OPENSSL_SUPPRESS_DEPRECATED // the low-level functions are what older programs call
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>

#include "crypto_peer.h"

namespace {

// Contexts and algorithms are got once, as OpenSSL's manual advises.
void evp_cbc(int encrypt, const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length)
{
    static EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    static EVP_CIPHER *const cipher = EVP_CIPHER_fetch(nullptr, "AES-128-CBC", nullptr);
    int written = 0;
    EVP_CipherInit_ex2(context, cipher, key, iv, encrypt, nullptr);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_CipherUpdate(context, data, &written, data, static_cast<int>(length));
}

void low_level_cbc(int mode, const AES_KEY &schedule, const uint8_t *iv, uint8_t *data,
                   size_t length)
{
    uint8_t chain[16];
    std::copy_n(iv, sizeof chain, chain);
    AES_cbc_encrypt(data, data, length, &schedule, chain, mode);
}

void encode(char *text, const uint8_t *bytes, size_t length)
{
    EVP_EncodeBlock(reinterpret_cast<uint8_t *>(text), bytes, static_cast<int>(length));
}

void decode(uint8_t *bytes, const char *text, size_t length)
{
    EVP_DecodeBlock(bytes, reinterpret_cast<const uint8_t *>(text), static_cast<int>(length));
}

} // namespace

constexpr CryptoPeer kOpenSslEvp = {
    "openssl-evp",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        static EVP_MD_CTX *const context = EVP_MD_CTX_new();
        static EVP_MD *const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        EVP_DigestInit_ex2(context, algorithm, nullptr);
        EVP_DigestUpdate(context, message, length);
        EVP_DigestFinal_ex(context, digest, nullptr);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        evp_cbc(1, key, iv, data, length);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        evp_cbc(0, key, iv, data, length);
    },
    encode,
    decode,
};

constexpr CryptoPeer kOpenSsl = {
    "openssl-low",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        SHA256_CTX context;
        SHA256_Init(&context);
        SHA256_Update(&context, message, length);
        SHA256_Final(digest, &context);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        AES_KEY schedule;
        AES_set_encrypt_key(key, 128, &schedule);
        low_level_cbc(AES_ENCRYPT, schedule, iv, data, length);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        AES_KEY schedule;
        AES_set_decrypt_key(key, 128, &schedule);
        low_level_cbc(AES_DECRYPT, schedule, iv, data, length);
    },
    nullptr,
    nullptr,
};
