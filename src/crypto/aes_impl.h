// aes_impl.h - the forms that AES comes in: tables for any processor, instructions where it has
// them. All take the same round keys and give the same results.
#ifndef ZORV_CRYPTO_AES_IMPL_H
#define ZORV_CRYPTO_AES_IMPL_H

#include <cstddef>
#include <cstdint>

namespace zorv {

constexpr size_t kAesBlock = 16;

// Tables, for any processor. Called by name: a table of functions would be relocated in every
// process.
struct AesPortable {
    // One block; the round keys are big-endian words as in rijndael_ctx; in and out may be one.
    static void encrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    static void decrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    // Whole blocks in place under a 128-bit key.
    static void cbc_encrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
    static void cbc_decrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
};

#if defined(ZORV_CRYPTO_X86) || defined(ZORV_CRYPTO_ARMV8)
// The same in instructions; ask has_aes_instructions() first.
struct AesInstructions {
    static void encrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    static void decrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    static void cbc_encrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
    static void cbc_decrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
};
#else
using AesInstructions = AesPortable;
#endif

bool has_aes_instructions();

// Key set-up of rijndaelKeySetupEnc() and rijndaelKeySetupDec(), by tables on every processor.
int expand_encryption_keys(uint32_t *keys, const uint8_t *key, int bits);
int expand_decryption_keys(uint32_t *keys, const uint8_t *key, int bits);

} // namespace zorv

#endif
