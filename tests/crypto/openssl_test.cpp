// openssl_test.cpp - random inputs, nothing aligned, give what OpenSSL gives, and not a byte
// outside changes.
#include <openssl/evp.h>

#include <memory>

#include <gtest/gtest.h>

#include <zorv/aes.h>
#include <zorv/sha256.h>

#include "crypto/aes_forms.h"
#include "crypto/samples.h"

namespace {

constexpr size_t kOutside = 5; // bytes behind the data

// The bytes with those from `offset` on encrypted, but for the last few.
Bytes encrypted(const EVP_CIPHER *cipher, const uint8_t *key, const uint8_t *iv, Bytes bytes,
                size_t offset)
{
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    int length = static_cast<int>(bytes.size() - offset - kOutside);
    EVP_EncryptInit_ex(context.get(), cipher, nullptr, key, iv);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    EVP_EncryptUpdate(context.get(), &bytes[offset], &length, &bytes[offset], length);
    return bytes;
}

} // namespace

TEST(OpenSsl, AgreesOnAes)
{
    const std::pair<int, const EVP_CIPHER *> kCiphers[] = {
        {128, EVP_aes_128_ecb()}, {192, EVP_aes_192_ecb()}, {256, EVP_aes_256_ecb()}};
    Random random;
    for (size_t i = 0; i < 600; ++i) {
        const auto &[bits, ecb] = kCiphers[i % 3];
        const size_t offset = 1 + i % 15, length = 16 * (1 + i % 64);
        const Bytes random_key = random.bytes(50), block = random.bytes(16 + offset + kOutside);
        const Bytes text = random.bytes(offset + length + kOutside);
        const uint8_t *const key = &random_key[1], *const iv = &random_key[33];
        rijndael_ctx ctx;
        ASSERT_EQ(rijndael_set_key(&ctx, key, bits), 0);
        for (const auto *const form : aes_forms()) {
            SCOPED_TRACE(testing::Message() << bits << " bits, " << length << " bytes");
            Bytes data = block;
            form->encrypt(ctx.ek, ctx.Nr, &data[offset], &data[offset]);
            ASSERT_EQ(data, encrypted(ecb, key, nullptr, block, offset));
            form->decrypt(ctx.dk, ctx.Nr, &data[offset], &data[offset]);
            ASSERT_EQ(data, block);
            data = text;
            form->cbc_encrypt(key, iv, &data[offset], length);
            ASSERT_EQ(data, encrypted(EVP_aes_128_cbc(), key, iv, text, offset));
            form->cbc_decrypt(key, iv, &data[offset], length);
            ASSERT_EQ(data, text);
        }
    }
}

TEST(OpenSsl, AgreesOnDigests)
{
    Random random;
    for (unsigned length = 0; length <= 300; ++length) {
        const Bytes message = random.bytes(length);
        uint8_t ours[32], theirs[32];
        sha256(message.data(), length, ours);
        ASSERT_EQ(EVP_Digest(message.data(), length, theirs, nullptr, EVP_sha256(), nullptr), 1);
        ASSERT_EQ(to_hex(ours), to_hex(theirs)) << length << " bytes";
    }
}
