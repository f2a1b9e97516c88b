#include <zorv/sha256.h>

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "crypto/samples.h"
#include "crypto/sha256_impl.h"

namespace {

std::string digest_of(const std::string &message)
{
    uint8_t digest[32];
    sha256(reinterpret_cast<const uint8_t *>(message.data()), static_cast<unsigned>(message.size()),
           digest);
    return to_hex(digest, sizeof digest);
}

const char kEmpty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

} // namespace

TEST(Sha256, DigestsMatchThePublishedOnes)
{
    const struct {
        std::string message;
        const char *digest;
    } kVectors[] = {
        {"", kEmpty},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        {std::string(63, 'a'), "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
        {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        {std::string(65, 'a'), "635361c48bb9eab14198e76ea8ab7f1a41685d6ad62aa9146d301d4f17eb0ae0"},
        {std::string(1000000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto &vector : kVectors) {
        SCOPED_TRACE(vector.message.size());
        EXPECT_EQ(digest_of(vector.message), vector.digest);
    }
    uint8_t digest[32];
    sha256(nullptr, 0, digest);
    EXPECT_EQ(to_hex(digest, sizeof digest), kEmpty);
}

TEST(Sha256, PiecesGiveTheDigestOfTheWhole)
{
    Random random;
    const Bytes message = random.bytes(1000);
    uint8_t whole[32], pieced[32];
    sha256(message.data(), static_cast<unsigned>(message.size()), whole);
    for (const size_t piece : {1U, 7U, 63U, 64U, 65U, 127U, 128U, 129U, 999U}) {
        SCOPED_TRACE(piece);
        sha256_ctx ctx;
        sha256_init(&ctx);
        for (size_t at = 0; at < message.size(); at += piece) {
            const size_t length = std::min(piece, message.size() - at);
            sha256_update(&ctx, message.data() + at, static_cast<unsigned>(length));
            sha256_update(&ctx, nullptr, 0);
            EXPECT_EQ(ctx.tot_len, (at + length) / 64 * 64);
            EXPECT_EQ(ctx.len, (at + length) % 64);
        }
        sha256_final(&ctx, pieced);
        EXPECT_EQ(to_hex(pieced, 32), to_hex(whole, 32));
    }
}

// The padding of a message of 2^29 bytes says 0 bits: the upper half of the count stays zero.
TEST(Sha256, TheBitCountWrapsAt512MiB)
{
    sha256_ctx ctx;
    uint8_t digest[32];
    sha256_init(&ctx);
    ctx.tot_len = 0x20000000;
    sha256_final(&ctx, digest);
    EXPECT_EQ(to_hex(digest, sizeof digest), kEmpty);
}

TEST(Sha256, BothFormsOfTheCompressionAgree)
{
    if (!zorv::sha256_hardware())
        return; // the other tests ran the portable form
    Random random;
    for (size_t count = 0; count <= 9; ++count) {
        const Bytes blocks = random.bytes(64 * count + 1), start = random.bytes(32);
        uint32_t portable[8], hardware[8];
        memcpy(portable, start.data(), sizeof portable);
        memcpy(hardware, start.data(), sizeof hardware);
        zorv::sha256_compress_portable(portable, blocks.data() + 1, count);
        zorv::sha256_hardware()(hardware, blocks.data() + 1, count);
        EXPECT_EQ(memcmp(portable, hardware, sizeof portable), 0) << count << " blocks";
    }
}
