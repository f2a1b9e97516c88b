#include <zorv/sha256.h>

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

#include "crypto/samples.h"
#include "crypto/sha256_impl.h"

namespace {

Bytes digest_of(const std::string &message)
{
    Bytes digest(32);
    const auto *const bytes = reinterpret_cast<const uint8_t *>(message.data());
    sha256(message.empty() ? nullptr : bytes, static_cast<unsigned>(message.size()), digest.data());
    return digest;
}

TEST(Sha256, DigestsMatchThePublishedOnes)
{
    EXPECT_EQ(to_hex(digest_of("abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(to_hex(digest_of(std::string(1000000, 'a'))),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    // The digest of all digests of 0 to 300 letters, as OpenSSL has it.
    std::string digests;
    for (size_t length = 0; length <= 300; ++length) {
        const Bytes digest = digest_of(std::string(length, 'a'));
        digests.append(digest.begin(), digest.end());
    }
    EXPECT_EQ(to_hex(digest_of(digests)),
              "e8e4a8cfe049153f6f930f2156161a5b19bb9b3dc4b698c20e4d44a29d7f9526");
}

TEST(Sha256, PiecesGiveTheDigestOfTheWhole)
{
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
        ASSERT_EQ(digest, digest_of({message.begin(), message.end()})) << size;
    }
    // The padding of a message of 2^29 bytes says 0 bits: the upper half of the count stays zero.
    sha256_init(&ctx);
    ctx.tot_len = 0x20000000;
    sha256_final(&ctx, digest.data());
    EXPECT_EQ(digest, digest_of(""));

    for (size_t count = 0; zorv::sha256_hardware() && count <= 9; ++count) {
        const Bytes blocks = random_bytes(64 * count + 1);
        std::array<uint32_t, 8> portable = {1, 2, 3, 4, 5, 6, 7, 8}, hardware = portable;
        zorv::sha256_compress_portable(portable.data(), blocks.data() + 1, count);
        zorv::sha256_hardware()(hardware.data(), blocks.data() + 1, count);
        EXPECT_EQ(portable, hardware) << count << " blocks";
    }
}

} // namespace
