/*
 * sha256.h - SHA-256 (FIPS 180-4), in one call or piece by piece.
 *
 * Where the processor has SHA-256 instructions (Armv8 cryptography extension, SHA-NI), they do the
 * work, with the same contexts and the same results.
 *
 * On purpose: lengths are 32-bit throughout, the bit count in the padding included. A message of
 * 2^29 bytes (512 MiB) or more gets a digest of its own, not that of the standard; stored digests
 * of such files compare equal only with those made here.
 *
 * Nothing is kept between calls and nothing fails. Any thread may call any function, each context
 * in one at a time.
 */
#ifndef ZORV_SHA256_H
#define ZORV_SHA256_H

#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

typedef struct sha256_ctx {
    uint32_t tot_len;   /* bytes compressed so far, whole blocks of 64, modulo 2^32 */
    uint32_t len;       /* bytes that wait in block, 0 to 63 */
    uint8_t block[128]; /* the partial block, and room for a second one at the end */
    uint32_t h[8];      /* chaining state */
} sha256_ctx;

/* Begins a message: counters zero, the initial hash value loaded. */
void sha256_init(sha256_ctx *ctx);

/* Absorbs len bytes; msg may be NULL when len is 0. */
void sha256_update(sha256_ctx *ctx, const uint8_t *msg, unsigned int len);

/*
 * Ends the message and writes its digest. The context is used up: sha256_init() begins the next
 * message.
 */
void sha256_final(sha256_ctx *ctx, uint8_t digest[32]);

/* Writes the digest of len bytes; msg may be NULL when len is 0. */
void sha256(const uint8_t *msg, unsigned int len, uint8_t digest[32]);

ZORV_END

#endif
