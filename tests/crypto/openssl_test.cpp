// openssl_test.cpp - random inputs give what OpenSSL gives.
#include <openssl/evp.h>

#include <memory>

#include <gtest/gtest.h>

#include <zorv/aes.h>
#include <zorv/base64.h>
#include <zorv/sha256.h>

#include "crypto/aes_forms.h"
#include "crypto/samples.h"

namespace {

Bytes encrypted(const EVP_CIPHER *cipher, const Bytes &key, const Bytes &iv, const Bytes &plain)
{
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    Bytes result(plain.size() + 16);
    int length = 0;
    EVP_EncryptInit_ex(context.get(), cipher, nullptr, key.data(), iv.data());
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    EVP_EncryptUpdate(context.get(), result.data(), &length, plain.data(),
                      static_cast<int>(plain.size()));
    result.resize(static_cast<size_t>(length));
    return result;
}

} // namespace

TEST(OpenSsl, AgreesOnBlocksOfEveryKeySize)
{
    Random random;
    for (const int bits : {128, 192, 256}) {
        const EVP_CIPHER *const cipher = bits == 128   ? EVP_aes_128_ecb()
                                         : bits == 192 ? EVP_aes_192_ecb()
                                                       : EVP_aes_256_ecb();
        for (int i = 0; i < 200; ++i) {
            const Bytes key = random.bytes(static_cast<size_t>(bits) / 8);
            const Bytes plain = random.bytes(16);
            const Bytes expected = encrypted(cipher, key, {}, plain);
            rijndael_ctx ctx;
            ASSERT_EQ(rijndael_set_key(&ctx, key.data(), bits), 0);
            for (const auto &[name, form] : aes_forms()) {
                SCOPED_TRACE(testing::Message() << bits << " bits, " << name);
                Bytes block(16);
                form->encrypt(ctx.ek, ctx.Nr, plain.data(), block.data());
                ASSERT_EQ(block, expected);
                form->decrypt(ctx.dk, ctx.Nr, block.data(), block.data());
                ASSERT_EQ(block, plain);
            }
        }
    }
}

TEST(OpenSsl, AgreesOnCbc)
{
    Random random;
    for (size_t length = 16; length <= 2048; length += 16) {
        const Bytes key = random.bytes(16), iv = random.bytes(16), plain = random.bytes(length);
        const Bytes expected = encrypted(EVP_aes_128_cbc(), key, iv, plain);
        for (const auto &[name, form] : aes_forms()) {
            SCOPED_TRACE(testing::Message() << length << " bytes, " << name);
            Bytes data = plain;
            form->cbc_encrypt(key.data(), iv.data(), data.data(), length);
            ASSERT_EQ(data, expected);
            form->cbc_decrypt(key.data(), iv.data(), data.data(), length);
            ASSERT_EQ(data, plain);
        }
    }
}

TEST(OpenSsl, AgreesOnDigests)
{
    Random random;
    for (size_t length = 0; length <= 300; ++length) {
        const Bytes message = random.bytes(length);
        uint8_t ours[32], theirs[32];
        sha256(message.data(), static_cast<unsigned>(length), ours);
        ASSERT_EQ(EVP_Digest(message.data(), length, theirs, nullptr, EVP_sha256(), nullptr), 1);
        ASSERT_EQ(to_hex(ours, 32), to_hex(theirs, 32)) << length << " bytes";
    }
}

TEST(OpenSsl, AgreesOnBase64)
{
    Random random;
    for (size_t length = 0; length <= 300; ++length) {
        const Bytes bytes = random.bytes(length);
        char ours[500], theirs[500] = "";
        base64rfc_encode(ours, bytes.data(), static_cast<int>(length));
        EVP_EncodeBlock(reinterpret_cast<uint8_t *>(theirs), bytes.data(),
                        static_cast<int>(length));
        ASSERT_STREQ(ours, theirs) << length << " bytes";
    }
}
