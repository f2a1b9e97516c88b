#include <zorv/aes.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "crypto/aes_impl.h"
#include "crypto/samples.h"

namespace {

// The keys of FIPS-197 A.1 to A.3, the first block of the text under them (SP 800-38A F.1), and
// that block encrypted 1000 times in all, as OpenSSL does it.
const std::tuple<int, int, const char *, const char *, const char *> kVectors[] = {
    {128, 10, "2b7e151628aed2a6abf7158809cf4f3c", "3ad77bb40d7a3660a89ecaf32466ef97",
     "5031397e3de28e1f60cfac8787d769e2"},
    {192, 12, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
     "bd334f1d6e45f25ff712a214571fa5cc", "7527f108a10a5630e4f18987877a35ad"},
    {256, 14, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "f3eed1bdb5d2a03c064b5a7e3db181f8", "4806983af930852ea33f40b7a5d627d0"},
};
const std::string kPlain = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51";
// SP 800-38A F.2.1, under the first of the keys.
const std::string kCbc = "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2";

// The forms of AES that this machine can run.
std::vector<const zorv::AesForm *> forms()
{
    if (zorv::aes_hardware())
        return {&zorv::aes_portable(), zorv::aes_hardware()};
    return {&zorv::aes_portable()};
}

TEST(Aes, BlocksMatchThePublishedVectorsInPlace)
{
    for (const auto &[bits, rounds, key, cipher, often] : kVectors) {
        rijndael_ctx ctx = {1, 0, {}, {}}, encryption = {};
        ASSERT_EQ(rijndael_set_key(&ctx, from_hex(key).data(), bits), 0);
        ASSERT_EQ(rijndael_set_key_enc_only(&encryption, from_hex(key).data(), bits), 0);
        EXPECT_EQ((std::vector{ctx.Nr, ctx.enc_only, encryption.Nr, encryption.enc_only}),
                  (std::vector{rounds, 0, rounds, 1}));
        EXPECT_EQ(ctx.ek[0], std::stoul(std::string(key, 8), nullptr, 16)); // big-endian
        EXPECT_EQ(std::count(encryption.dk, std::end(encryption.dk), 0U), 60);
        Bytes block = from_hex(kPlain.substr(0, 32));
        rijndael_encrypt(&encryption, block.data(), block.data());
        rijndael_decrypt(&ctx, block.data(), block.data());
        EXPECT_EQ(to_hex(block), kPlain.substr(0, 32));
        rijndaelEncrypt(ctx.ek, ctx.Nr, block.data(), block.data());
        for (const auto *const form : forms()) {
            for (int i = 1; i < 1000; ++i)
                form->encrypt(ctx.ek, ctx.Nr, block.data(), block.data());
            EXPECT_EQ(to_hex(block), often) << bits;
            for (int i = 1; i < 1000; ++i)
                form->decrypt(ctx.dk, ctx.Nr, block.data(), block.data());
            EXPECT_EQ(to_hex(block), cipher);
        }
    }
    rijndael_ctx ctx = {};
    for (const int bits : {-128, 0, 16, 129, 512}) { // a bad size writes nothing
        EXPECT_EQ(rijndael_set_key(&ctx, Bytes(64, 1).data(), bits), -1) << bits;
        EXPECT_EQ(rijndael_set_key_enc_only(&ctx, Bytes(64, 1).data(), bits), -1) << bits;
        EXPECT_EQ(rijndaelKeySetupDec(ctx.dk, Bytes(64, 1).data(), bits), 0) << bits;
    }
    EXPECT_EQ(std::count(ctx.ek, std::end(ctx.dk), 0U) + ctx.Nr, 120);
}

TEST(Aes, CbcMatchesThePublishedVectorAndTakesWholeBlocksOnly)
{
    const Bytes key = from_hex(std::get<2>(kVectors[0])),
                iv = from_hex("000102030405060708090a0b0c0d0e0f");
    Bytes data = from_hex(kPlain);
    EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), data.data(), data.size()), 0);
    EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), nullptr, 0), 0);
    EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), 0), -1);
    for (const size_t length : {1U, 15U, 17U}) {
        EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), data.data(), length), -1);
        EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), length), -1);
    }
    EXPECT_EQ(to_hex(data), kCbc);
    EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), data.size()), 0);
    EXPECT_EQ(to_hex(data), kPlain);
    // Any length, nothing aligned, and not a byte outside changes.
    for (size_t length = 16; length <= size_t{70} * 16; length += 16) {
        const size_t offset = 1 + length / 16 % 15;
        const Bytes text = random_bytes(offset + length + 5);
        Bytes expected = text;
        zorv::aes_portable().cbc_encrypt(key.data(), iv.data(), &expected[offset], length);
        for (const auto *const form : forms()) {
            Bytes made = text;
            form->cbc_encrypt(key.data(), iv.data(), &made[offset], length);
            ASSERT_EQ(to_hex(made), to_hex(expected));
            form->cbc_decrypt(key.data(), iv.data(), &made[offset], length);
            ASSERT_EQ(to_hex(made), to_hex(text));
        }
    }
    Bytes random(24);
    EXPECT_EQ(aes_cbc_generate_iv(random.data(), 16), 16U);
    EXPECT_EQ(std::count(random.begin() + 16, random.end(), 0), 8);
    EXPECT_NE(random, Bytes(24));
}

} // namespace
