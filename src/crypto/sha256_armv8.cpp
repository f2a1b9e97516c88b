// sha256_armv8.cpp - the Armv8 cryptography extension, compiled with -march=armv8-a+crypto; entered
// only by way of sha256_hardware().
#include "crypto/sha256_impl.h"

#include <arm_neon.h>

namespace zorv {

namespace {

struct State {
    uint32x4_t abcd, efgh;
};

// The next four words of the schedule from the 16 before them.
uint32x4_t next_words(uint32x4_t w0, uint32x4_t w4, uint32x4_t w8, uint32x4_t w12)
{
    return vsha256su1q_u32(vsha256su0q_u32(w0, w4), w8, w12);
}

State compress(State state, const uint8_t *block)
{
    uint32x4_t words[4];
    for (int i = 0; i < 4; ++i)
        words[i] = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(block + ptrdiff_t{16} * i)));
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) {
        uint32x4_t &w = words[i % 4];
        if (i >= 4)
            w = next_words(w, words[(i + 1) % 4], words[(i + 2) % 4], words[(i + 3) % 4]);
        const uint32x4_t keyed = vaddq_u32(w, vld1q_u32(kSha256Rounds + ptrdiff_t{4} * i));
        const uint32x4_t abcd = state.abcd;
        state.abcd = vsha256hq_u32(abcd, state.efgh, keyed);
        state.efgh = vsha256h2q_u32(state.efgh, abcd, keyed);
    }
    return state;
}

} // namespace

void sha256_compress_instructions(uint32_t *h, const uint8_t *blocks, size_t count)
{
    State state = {vld1q_u32(h), vld1q_u32(h + 4)};
    for (; count != 0; --count, blocks += kSha256Block) {
        const State mixed = compress(state, blocks);
        state.abcd = vaddq_u32(state.abcd, mixed.abcd);
        state.efgh = vaddq_u32(state.efgh, mixed.efgh);
    }
    vst1q_u32(h, state.abcd);
    vst1q_u32(h + 4, state.efgh);
}

} // namespace zorv
