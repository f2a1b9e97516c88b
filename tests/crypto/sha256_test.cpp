#include <zorv/sha256.h>

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "crypto/samples.h"
#include "crypto/sha256_impl.h"

namespace {

const char kEmpty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string digest_of(const Bytes &message)
{
    uint8_t digest[32];
    sha256(message.empty() ? nullptr : message.data(), static_cast<unsigned>(message.size()),
           digest);
    return to_hex(digest);
}

} // namespace

TEST(Sha256, DigestsMatchThePublishedOnes)
{
    const std::pair<std::string, const char *> kVectors[] = {
        {"", kEmpty},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto &[text, digest] : kVectors)
        EXPECT_EQ(digest_of(Bytes(text.begin(), text.end())), digest) << text.size();
}

TEST(Sha256, PiecesGiveTheDigestOfTheWhole)
{
    Random random;
    sha256_ctx ctx;
    uint8_t digest[32];
    for (size_t size = 0; size <= 1000; ++size) {
        const Bytes message = random.bytes(size);
        sha256_init(&ctx);
        for (size_t at = 0, length; at < size; at += length) {
            length = std::min(random.below(151), size - at);
            sha256_update(&ctx, length == 0 ? nullptr : &message[at],
                          static_cast<unsigned>(length));
            EXPECT_EQ(ctx.tot_len + ctx.len, at + length);
            EXPECT_EQ(ctx.tot_len % 64, 0U);
        }
        sha256_final(&ctx, digest);
        ASSERT_EQ(to_hex(digest), digest_of(message)) << size;
    }
    // The padding of a message of 2^29 bytes says 0 bits: the upper half of the count stays zero.
    sha256_init(&ctx);
    ctx.tot_len = 0x20000000;
    sha256_final(&ctx, digest);
    EXPECT_EQ(to_hex(digest), kEmpty);
}

TEST(Sha256, BothFormsOfTheCompressionAgree)
{
    if (!zorv::sha256_hardware())
        return; // the other tests ran the portable form, the only one
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
