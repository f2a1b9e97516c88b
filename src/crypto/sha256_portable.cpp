#include "crypto/sha256_impl.h"

#include "crypto/bytes.h"

namespace zorv {

namespace {

uint32_t spread(uint32_t x, int a, int b, int c)
{
    return std::rotr(x, a) ^ std::rotr(x, b) ^ std::rotr(x, c);
}

// The message schedule: the 16 words of the block, and 48 more by recurrence.
void extend(uint32_t (&words)[64], const uint8_t *block)
{
    for (size_t i = 0; i < 16; ++i)
        words[i] = load_be32(block + sizeof(uint32_t) * i);
    for (size_t i = 16; i < 64; ++i) {
        const uint32_t early = words[i - 15], late = words[i - 2];
        words[i] = words[i - 16] + (std::rotr(early, 7) ^ std::rotr(early, 18) ^ early >> 3) +
                   words[i - 7] + (std::rotr(late, 17) ^ std::rotr(late, 19) ^ late >> 10);
    }
}

// FIPS 180-4 6.2.2; the working variables stay in place and their names move round instead.
void compress(uint32_t *h, const uint8_t *block)
{
    uint32_t words[64], s[8];
    extend(words, block);
    memcpy(s, h, sizeof s);
    for (unsigned i = 0; i < 64; ++i) {
        const auto variable = [&s, i](unsigned k) -> uint32_t & { return s[(k - i) % 8]; };
        const uint32_t a = variable(0), b = variable(1), c = variable(2), e = variable(4);
        const uint32_t choice = (e & variable(5)) ^ (~e & variable(6));
        const uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
        const uint32_t t =
            variable(7) + spread(e, 6, 11, 25) + choice + kSha256Rounds[i] + words[i];
        variable(3) += t;
        variable(7) = t + spread(a, 2, 13, 22) + majority;
    }
    for (size_t i = 0; i < 8; ++i)
        h[i] += s[i];
}

} // namespace

void sha256_compress_portable(uint32_t *h, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += kSha256Block)
        compress(h, blocks);
}

} // namespace zorv
