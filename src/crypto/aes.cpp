#include <zorv/aes.h>

#include <atomic>

#include <zorv/text.h>

#include "crypto/aes_impl.h"

using namespace zorv;

static_assert(sizeof(rijndael_ctx) == 488 && offsetof(rijndael_ctx, Nr) == 4 &&
              offsetof(rijndael_ctx, ek) == 8 && offsetof(rijndael_ctx, dk) == 248);

namespace {

// The form in use, chosen by the first call; threads that race for it choose the same.
enum class Form : uint8_t { not_chosen, portable, instructions };
constinit std::atomic<Form> g_form = Form::not_chosen;

// Asked before each call, which names the function: its address would be one more to relocate.
bool by_instructions()
{
    Form form = g_form.load(std::memory_order_relaxed);
    if (form == Form::not_chosen) {
        form = has_aes_instructions() ? Form::instructions : Form::portable;
        g_form.store(form, std::memory_order_relaxed);
    }
    return form == Form::instructions;
}

} // namespace

int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t key[], int keybits)
{
    return expand_encryption_keys(rk, key, keybits);
}

int rijndaelKeySetupDec(uint32_t rk[], const uint8_t key[], int keybits)
{
    return expand_decryption_keys(rk, key, keybits);
}

void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t in[16], uint8_t out[16])
{
    if (by_instructions())
        AesInstructions::encrypt(rk, Nr, in, out);
    else
        AesPortable::encrypt(rk, Nr, in, out);
}

int rijndael_set_key_enc_only(rijndael_ctx *ctx, const uint8_t *key, int bits)
{
    const int rounds = rijndaelKeySetupEnc(ctx->ek, key, bits);
    if (rounds == 0)
        return -1;
    ctx->Nr = rounds;
    ctx->enc_only = 1;
    return 0;
}

int rijndael_set_key(rijndael_ctx *ctx, const uint8_t *key, int bits)
{
    const int rounds = rijndaelKeySetupEnc(ctx->ek, key, bits);
    if (rounds == 0 || rounds != rijndaelKeySetupDec(ctx->dk, key, bits))
        return -1;
    ctx->Nr = rounds;
    ctx->enc_only = 0;
    return 0;
}

void rijndael_encrypt(const rijndael_ctx *ctx, const uint8_t *src, uint8_t *dst)
{
    rijndaelEncrypt(ctx->ek, ctx->Nr, src, dst);
}

void rijndael_decrypt(const rijndael_ctx *ctx, const uint8_t *src, uint8_t *dst)
{
    if (by_instructions())
        AesInstructions::decrypt(ctx->dk, ctx->Nr, src, dst);
    else
        AesPortable::decrypt(ctx->dk, ctx->Nr, src, dst);
}

size_t aes_cbc_generate_iv(uint8_t *iv, size_t len)
{
    return gen_rand_bytes(iv, len);
}

int aes_cbc_encrypt_128(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t len)
{
    if (len % kAesBlock != 0)
        return -1;
    if (len == 0)
        return 0;
    if (by_instructions())
        AesInstructions::cbc_encrypt(key, iv, data, len);
    else
        AesPortable::cbc_encrypt(key, iv, data, len);
    return 0;
}

int aes_cbc_decrypt_128(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t len)
{
    // On purpose: no block at all is an error here, though encryption makes such a text; kept for
    // callers built against it.
    if (len == 0 || len % kAesBlock != 0)
        return -1;
    if (by_instructions())
        AesInstructions::cbc_decrypt(key, iv, data, len);
    else
        AesPortable::cbc_decrypt(key, iv, data, len);
    return 0;
}
