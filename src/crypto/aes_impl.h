// aes_impl.h - the forms that AES comes in: tables for any processor, instructions where it has
// them. All take the same round keys and give the same results.
#ifndef ZORV_CRYPTO_AES_IMPL_H
#define ZORV_CRYPTO_AES_IMPL_H

#include <cstddef>
#include <cstdint>

namespace zorv {

constexpr size_t kAesBlock = 16;

struct AesForm {
    // One block; the round keys are big-endian words as in rijndael_ctx; in and out may be one.
    void (*encrypt)(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    void (*decrypt)(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out);
    // Whole blocks in place under a 128-bit key.
    void (*cbc_encrypt)(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
    void (*cbc_decrypt)(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length);
};

const AesForm &aes_portable();
const AesForm &aes_instructions(); // x86 and 64-bit Arm only; ask aes_hardware() first

// The form in instructions; null where the processor has none.
const AesForm *aes_hardware();

// Key set-up of rijndaelKeySetupEnc() and rijndaelKeySetupDec(), by tables on every processor.
int expand_encryption_keys(uint32_t *keys, const uint8_t *key, int bits);
int expand_decryption_keys(uint32_t *keys, const uint8_t *key, int bits);

} // namespace zorv

#endif
