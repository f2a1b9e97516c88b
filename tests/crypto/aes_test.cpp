#include <zorv/aes.h>

#include <cstring>

#include <gtest/gtest.h>

#include "crypto/aes_forms.h"
#include "crypto/samples.h"

namespace {

// SP 800-38A F.2.1 and F.2.2, the first three vectors' key, IV and text.
constexpr uint8_t kKey[] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                            0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
constexpr uint8_t kIv[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const char kPlain[] = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
const char kCipher[] = "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
                       "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7";

} // namespace

TEST(Aes, BlocksMatchThePublishedVectorsInPlace)
{
    const struct {
        int bits;
        const char *key, *cipher; // FIPS-197 C.1 to C.3
    } kVectors[] = {
        {128, "000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {192, "000102030405060708090a0b0c0d0e0f1011121314151617",
         "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {256, "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
         "8ea2b7ca516745bfeafc49904b496089"},
    };
    for (const auto &vector : kVectors) {
        SCOPED_TRACE(vector.bits);
        rijndael_ctx ctx;
        ASSERT_EQ(rijndael_set_key(&ctx, from_hex(vector.key).data(), vector.bits), 0);
        Bytes block = from_hex("00112233445566778899aabbccddeeff");
        rijndael_encrypt(&ctx, block.data(), block.data());
        EXPECT_EQ(to_hex(block), vector.cipher);
        rijndael_decrypt(&ctx, block.data(), block.data());
        EXPECT_EQ(to_hex(block), "00112233445566778899aabbccddeeff");
        rijndaelEncrypt(ctx.ek, ctx.Nr, block.data(), block.data());
        EXPECT_EQ(to_hex(block), vector.cipher);
        for (const auto &[name, form] : aes_forms()) {
            SCOPED_TRACE(name);
            form->decrypt(ctx.dk, ctx.Nr, block.data(), block.data());
            EXPECT_EQ(to_hex(block), "00112233445566778899aabbccddeeff");
            form->encrypt(ctx.ek, ctx.Nr, block.data(), block.data());
            EXPECT_EQ(to_hex(block), vector.cipher);
        }
    }
}

TEST(Aes, RoundKeysAreBigEndianWords)
{
    const struct {
        int bits, rounds;
        const char *key;
        uint32_t first_new, last; // FIPS-197 A.1 to A.3
    } kSchedules[] = {
        {128, 10, "2b7e151628aed2a6abf7158809cf4f3c", 0xa0fafe17, 0xb6630ca6},
        {192, 12, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", 0xfe0c91f7, 0x01002202},
        {256, 14, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", 0x9ba35411,
         0x706c631e},
    };
    for (const auto &row : kSchedules) {
        SCOPED_TRACE(row.bits);
        rijndael_ctx ctx;
        ASSERT_EQ(rijndael_set_key(&ctx, from_hex(row.key).data(), row.bits), 0);
        EXPECT_EQ(ctx.Nr, row.rounds);
        EXPECT_EQ(ctx.enc_only, 0);
        EXPECT_EQ(ctx.ek[row.bits / 32], row.first_new);
        const int last = 4 * row.rounds;
        EXPECT_EQ(ctx.ek[last + 3], row.last);
        EXPECT_EQ(memcmp(ctx.dk, &ctx.ek[last], 16), 0);
        EXPECT_EQ(memcmp(&ctx.dk[last], ctx.ek, 16), 0);
    }
    // The equivalent inverse cipher's second round key for the first of these keys.
    uint32_t keys[44];
    ASSERT_EQ(rijndaelKeySetupDec(keys, kKey, 128), 10);
    EXPECT_EQ(keys[4], 0x0c7b5a63U);
}

TEST(Aes, ABadKeySizeWritesNothing)
{
    rijndael_ctx ctx, untouched;
    memset(&ctx, 0xa5, sizeof ctx);
    memset(&untouched, 0xa5, sizeof untouched);
    const Bytes key(32);
    for (const int bits : {-128, 0, 16, 100, 129, 512}) {
        SCOPED_TRACE(bits);
        EXPECT_EQ(rijndael_set_key(&ctx, key.data(), bits), -1);
        EXPECT_EQ(rijndael_set_key_enc_only(&ctx, key.data(), bits), -1);
        EXPECT_EQ(rijndaelKeySetupEnc(ctx.ek, key.data(), bits), 0);
        EXPECT_EQ(rijndaelKeySetupDec(ctx.dk, key.data(), bits), 0);
        EXPECT_EQ(memcmp(&ctx, &untouched, sizeof ctx), 0);
    }
}

TEST(Aes, AnEncryptionContextLeavesDecryptionKeysAlone)
{
    rijndael_ctx ctx = {};
    ASSERT_EQ(rijndael_set_key_enc_only(&ctx, kKey, 128), 0);
    EXPECT_EQ(ctx.enc_only, 1);
    EXPECT_EQ(ctx.Nr, 10);
    EXPECT_EQ(ctx.ek[43], 0xb6630ca6U);
    EXPECT_EQ(to_hex(reinterpret_cast<const uint8_t *>(ctx.dk), sizeof ctx.dk),
              std::string(480, '0'));
}

TEST(Aes, CbcMatchesThePublishedVector)
{
    Bytes data = from_hex(kPlain), iv(std::begin(kIv), std::end(kIv));
    EXPECT_EQ(aes_cbc_encrypt_128(kKey, iv.data(), data.data(), data.size()), 0);
    EXPECT_EQ(to_hex(data), kCipher);
    EXPECT_EQ(aes_cbc_decrypt_128(kKey, iv.data(), data.data(), data.size()), 0);
    EXPECT_EQ(to_hex(data), kPlain);
    EXPECT_EQ(to_hex(iv), "000102030405060708090a0b0c0d0e0f");
    for (const auto &[name, form] : aes_forms()) {
        SCOPED_TRACE(name);
        form->cbc_encrypt(kKey, kIv, data.data(), data.size());
        EXPECT_EQ(to_hex(data), kCipher);
        form->cbc_decrypt(kKey, kIv, data.data(), data.size());
        EXPECT_EQ(to_hex(data), kPlain);
    }
}

TEST(Aes, CbcTakesWholeBlocksOnly)
{
    const Bytes before(33, 0x5a);
    Bytes data = before;
    for (const size_t length : {1U, 15U, 17U, 31U, 33U}) {
        EXPECT_EQ(aes_cbc_encrypt_128(kKey, kIv, data.data(), length), -1);
        EXPECT_EQ(aes_cbc_decrypt_128(kKey, kIv, data.data(), length), -1);
    }
    EXPECT_EQ(aes_cbc_encrypt_128(kKey, kIv, data.data(), 0), 0);
    EXPECT_EQ(aes_cbc_encrypt_128(kKey, kIv, nullptr, 0), 0);
    EXPECT_EQ(aes_cbc_decrypt_128(kKey, kIv, data.data(), 0), -1);
    EXPECT_EQ(data, before);
}

// Every number of blocks up to two of the widest runs, nothing aligned: all forms give what the
// portable one gives, and not a byte outside changes.
TEST(Aes, AllFormsOfCbcAgreeAtAnyLengthAndAlignment)
{
    Random random;
    for (size_t blocks = 1; blocks <= 27; ++blocks) {
        SCOPED_TRACE(blocks);
        const size_t offset = 1 + blocks % 15, length = 16 * blocks;
        const Bytes key = random.bytes(32), before = random.bytes(offset + length + 5);
        const uint8_t *const odd_key = key.data() + 1, *const odd_iv = key.data() + 15;
        Bytes expected = before;
        zorv::aes_portable().cbc_encrypt(odd_key, odd_iv, expected.data() + offset, length);
        for (const auto &[name, form] : aes_forms()) {
            SCOPED_TRACE(name);
            Bytes data = before;
            form->cbc_encrypt(odd_key, odd_iv, data.data() + offset, length);
            EXPECT_EQ(data, expected);
            form->cbc_decrypt(odd_key, odd_iv, data.data() + offset, length);
            EXPECT_EQ(data, before);
        }
    }
}

TEST(Aes, AnIvIsRandomAndAsLongAsAsked)
{
    Bytes first(24), second(24);
    EXPECT_EQ(aes_cbc_generate_iv(first.data(), 16), 16U);
    EXPECT_EQ(aes_cbc_generate_iv(second.data(), 16), 16U);
    EXPECT_NE(first, second);
    EXPECT_EQ(to_hex(first.data() + 16, 8), "0000000000000000");
    EXPECT_EQ(aes_cbc_generate_iv(first.data(), 0), 0U);
    EXPECT_EQ(aes_cbc_generate_iv(nullptr, 16), 0U);
}
