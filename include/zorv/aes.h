/*
 * aes.h - the AES block cipher (FIPS-197) and CBC over whole blocks.
 *
 * Two layers: single blocks under a key of 128, 192 or 256 bits, expanded once into round keys;
 * and CBC with 128-bit keys, in place, key set-up included in the call. Neither pads: the caller
 * deals in whole blocks of 16 bytes.
 *
 * Where the processor has AES instructions (Armv8 cryptography extension, AES-NI), they do the
 * work, with the same contexts and the same results; elsewhere tables do. Table look-ups leave
 * traces in the cache, so there the time taken depends on key and data.
 *
 * Nothing is kept between calls and nothing is logged: results say everything. Any thread may call
 * any function.
 */
#ifndef ZORV_AES_H
#define ZORV_AES_H

#include <stddef.h>
#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * An expanded key, filled by rijndael_set_key() or rijndael_set_key_enc_only(). It is as secret as
 * the key: clear it when it is done with.
 */
typedef struct rijndael_ctx {
    int32_t enc_only; /* 1: dk was not built, the context can only encrypt; 0: both were */
    int32_t Nr;       /* rounds: 10, 12 or 14 for keys of 128, 192 or 256 bits */
    uint32_t ek[60];  /* encryption round keys, 4 x (Nr + 1) big-endian words used */
    uint32_t dk[60];  /* the same for decryption */
} rijndael_ctx;

/*
 * Expands a key for encryption.
 *
 *   rk       [out] 4 x (rounds + 1) words, 60 at most
 *   key      keybits / 8 bytes
 *   keybits  128, 192 or 256
 *
 * Returns the number of rounds, 10, 12 or 14; 0 for any other keybits, with nothing written.
 */
int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t key[], int keybits);

/*
 * Expands a key for decryption: the encryption round keys in reverse order of rounds, all but the
 * first and the last through InvMixColumns. Arguments and result as for rijndaelKeySetupEnc().
 */
int rijndaelKeySetupDec(uint32_t rk[], const uint8_t key[], int keybits);

/*
 * Encrypts one block.
 *
 *   rk   round keys of rijndaelKeySetupEnc()
 *   Nr   the number of rounds that it returned, not 0
 *   out  [out] may be in
 */
void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t in[16], uint8_t out[16]);

/*
 * Prepares a context that can only encrypt.
 *
 *   bits  128, 192 or 256
 *
 * Returns 0; -1 for any other number of bits, with the context left alone. dk is not touched.
 */
int rijndael_set_key_enc_only(rijndael_ctx *ctx, const uint8_t *key, int bits);

/* Prepares a context for both directions; arguments and result as above. */
int rijndael_set_key(rijndael_ctx *ctx, const uint8_t *key, int bits);

/* Encrypts one block of 16 bytes; dst may be src. */
void rijndael_encrypt(const rijndael_ctx *ctx, const uint8_t *src, uint8_t *dst);

/* Decrypts one block of 16 bytes; dst may be src. The context must not be for encryption only. */
void rijndael_decrypt(const rijndael_ctx *ctx, const uint8_t *src, uint8_t *dst);

/*
 * Fills len bytes at iv through gen_rand_bytes() and returns its result: len, or 0 for a null iv
 * or a len of 0. The source is rand(), freshly seeded, which the process shares.
 */
size_t aes_cbc_generate_iv(uint8_t *iv, size_t len);

/*
 * Encrypts data in place.
 *
 *   iv   not modified
 *   len  bytes at data, a multiple of 16; 0 is an empty success
 *
 * Returns 0; -1 for any other len, with the data left alone.
 */
int aes_cbc_encrypt_128(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t len);

/*
 * Decrypts data in place; arguments as above.
 *
 * Returns 0; -1 when len is no multiple of 16 and, unlike encryption, when it is 0: a message
 * without a block was not encrypted by a peer. The data are then left alone.
 */
int aes_cbc_decrypt_128(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t len);

ZORV_END

#endif
