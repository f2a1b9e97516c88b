// Against published vectors, and each form of an algorithm against the portable one.

#include <array>

#include "crypto/aes_impl.h"
#include "crypto/samples.h"
#include "crypto/sha256_impl.h"

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

template <class Form>
constexpr auto kForm = std::make_tuple(Form::encrypt, Form::decrypt, Form::cbc_encrypt,
                                       Form::cbc_decrypt);

// The forms of AES that this machine can run.
static auto forms()
{
    std::vector forms = {kForm<zorv::AesPortable>};
    if (zorv::has_aes_instructions())
        forms.push_back(kForm<zorv::AesInstructions>);
    return forms;
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
        for (const auto &[encrypt, decrypt, cbc_encrypt, cbc_decrypt] : forms()) {
            for (int i = 1; i < 1000; ++i)
                encrypt(ctx.ek, ctx.Nr, block.data(), block.data());
            EXPECT_EQ(to_hex(block), often) << bits;
            for (int i = 1; i < 1000; ++i)
                decrypt(ctx.dk, ctx.Nr, block.data(), block.data());
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
    EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), data.data(), 32), 0);
    EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), nullptr, 0), 0);
    EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), 0), -1);
    for (const size_t length : {1U, 15U, 17U}) {
        EXPECT_EQ(aes_cbc_encrypt_128(key.data(), iv.data(), data.data(), length), -1);
        EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), length), -1);
    }
    EXPECT_EQ(to_hex(data), kCbc);
    EXPECT_EQ(aes_cbc_decrypt_128(key.data(), iv.data(), data.data(), 32), 0);
    EXPECT_EQ(to_hex(data), kPlain);
    // Any length, nothing aligned, and not a byte outside changes.
    for (size_t length = 16; length <= size_t{70} * 16; length += 16) {
        const size_t offset = 1 + length / 16 % 15;
        const Bytes text = random_bytes(offset + length + 5);
        Bytes expected = text;
        zorv::AesPortable::cbc_encrypt(key.data(), iv.data(), &expected[offset], length);
        for (const auto &[encrypt, decrypt, cbc_encrypt, cbc_decrypt] : forms()) {
            Bytes made = text;
            cbc_encrypt(key.data(), iv.data(), &made[offset], length);
            ASSERT_EQ(to_hex(made), to_hex(expected));
            cbc_decrypt(key.data(), iv.data(), &made[offset], length);
            ASSERT_EQ(to_hex(made), to_hex(text));
        }
    }
    Bytes random(17);
    EXPECT_EQ(aes_cbc_generate_iv(random.data(), 16), 16U);
    EXPECT_TRUE(random[16] == 0 && random != Bytes(17));
}

// A buffer of exactly the documented size, so that the sanitizers see a byte too many.
static std::string encoded(decltype(base64rfc_encode) *encode, std::span<const uint8_t> bytes)
{
    const int length = static_cast<int>(bytes.size());
    std::vector<char> text(static_cast<size_t>(base64_encode_len(length)), '#');
    encode(text.data(), bytes.data(), length);
    return text.data();
}

// The text has so many characters before the first foreign one.
static std::string decoded(const char *text, size_t characters)
{
    Bytes bytes(static_cast<size_t>(base64_decode_len(text)), '#');
    EXPECT_EQ(bytes.size(), (characters + 3) / 4 * 3 + 1);
    base64_decode(bytes.data(), text);
    EXPECT_EQ(bytes[characters * 3 / 4], 0);
    return to_hex(std::span(bytes).first(characters * 3 / 4));
}

TEST(Base64, TextsAndLengthsAreThePublishedOnesAndRandomBytesComeBack)
{
    constexpr const char *kTexts[][3] = {
        {"66", "Zg==", "Zg"}, // RFC 4648 10
        {"666f", "Zm8=", "Zm8"},
        {"00108310518720928b30d38f41149351559761969b71d79f8218a39259a7a29aabb2dbafc31cb3d35db7e39e"
         "bbf3dfbf", // all in their order
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/",
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"},
    };
    for (const auto &[hex, standard, url_safe] : kTexts) {
        EXPECT_EQ(encoded(base64rfc_encode, from_hex(hex)), standard);
        EXPECT_EQ(encoded(base64url_encode, from_hex(hex)), url_safe);
        EXPECT_EQ(decoded(standard, strlen(url_safe)), hex);
    }
    EXPECT_EQ(decoded("Zm9vY", 5), "666f6f"); // a single character gives nothing
    unsigned char bytes[4];
    base64url_decode(bytes, "Zm8=");
    EXPECT_EQ(to_hex(bytes, 3), "666f00");
    EXPECT_EQ(base64url_decode_len("Zm8="), 4);
    const int kLengths[][2] = {{0, 1},        {1, 5},          {3, 5},
                               {4, 9},        {-1, 1},         {1610612733, 2147483645},
                               {INT_MAX, -1}, {1610612734, -1}};
    for (const auto &[length, size] : kLengths) {
        EXPECT_EQ(base64_encode_len(length), size) << length;
        EXPECT_EQ(base64url_encode_len(length), size) << length;
    }
    char before[] = "before";
    base64rfc_encode(before, nullptr, -3);
    EXPECT_STREQ(before, "");
    // Any foreign byte behind the text, and any bytes behind that.
    for (size_t i = 0; i < 20000; ++i) {
        const Bytes random = random_bytes(i % 101);
        std::string text = encoded(i % 2 ? base64url_encode : base64rfc_encode, random);
        const size_t length = (random.size() * 4 + 2) / 3;
        ASSERT_EQ(text.size(), i % 2 ? length : (random.size() + 2) / 3 * 4);
        text.resize(length);
        const auto foreign = static_cast<char>(i / 101);
        text += isalnum(foreign) || strchr("+/-_", foreign) ? '\n' : foreign;
        text += text.substr(0, i / 2 % 50);
        ASSERT_EQ(decoded(text.c_str(), length), to_hex(random)) << text;
    }
}

static Bytes digest_of(const Bytes &message)
{
    Bytes digest(32);
    sha256(message.data(), static_cast<unsigned>(message.size()), digest.data());
    return digest;
}

TEST(Sha256, DigestsMatchThePublishedOnesAndThoseOfPieces)
{
    EXPECT_EQ(to_hex(digest_of(Bytes(1000000, 'a'))),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    Bytes digests;
    for (size_t length = 0; length <= 300; ++length)
        std::ranges::copy(digest_of(Bytes(length, 'a')), std::back_inserter(digests));
    EXPECT_EQ(to_hex(digest_of(digests)), // as OpenSSL has it
              "e8e4a8cfe049153f6f930f2156161a5b19bb9b3dc4b698c20e4d44a29d7f9526");
    sha256_ctx ctx;
    Bytes digest(32);
    for (size_t size = 0; size <= 1000; ++size) {
        const Bytes message = random_bytes(size);
        sha256_init(&ctx);
        for (size_t at = 0, length; at < size; at += length) {
            length = std::min<size_t>(random_bytes(1)[0] % 151, size - at);
            sha256_update(&ctx, length == 0 ? nullptr : &message[at],
                          static_cast<unsigned>(length));
            EXPECT_EQ(ctx.tot_len + ctx.len, at + length);
            EXPECT_EQ(ctx.tot_len % 64, 0U);
        }
        sha256_final(&ctx, digest.data());
        ASSERT_EQ(digest, digest_of(message)) << size;
    }
    // The padding of a message of 2^29 bytes says 0 bits: the upper half of the count stays zero.
    sha256_init(&ctx);
    ctx.tot_len = 0x20000000;
    sha256_final(&ctx, digest.data());
    EXPECT_EQ(digest, digest_of({}));

    for (size_t count = 0; zorv::sha256_hardware() && count <= 9; ++count) {
        const Bytes blocks = random_bytes(64 * count + 1);
        std::array<uint32_t, 8> portable = {1, 2, 3, 4, 5, 6, 7, 8}, hardware = portable;
        zorv::sha256_compress_portable(portable.data(), blocks.data() + 1, count);
        zorv::sha256_hardware()(hardware.data(), blocks.data() + 1, count);
        EXPECT_EQ(portable, hardware) << count << " blocks";
    }
}
