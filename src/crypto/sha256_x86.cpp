// sha256_x86.cpp - SHA-NI, compiled with -msha -msse4.1; entered only by way of sha256_hardware().
#include "crypto/sha256_impl.h"

#include <bit>

#include <immintrin.h>

namespace zorv {

namespace {

__m128i load(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}
void store(void *bytes, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(bytes), value);
}

__m128i add(__m128i a, __m128i b)
{
    using Words [[gnu::vector_size(16)]] = uint32_t;
    return std::bit_cast<__m128i>(std::bit_cast<Words>(a) + std::bit_cast<Words>(b));
}

// The chaining state in the order of the instructions, from the highest word down.
struct State {
    __m128i abef, cdgh;
};

State load_state(const uint32_t *h)
{
    const __m128i cdab = _mm_shuffle_epi32(load(h), 0xb1);
    const __m128i efgh = _mm_shuffle_epi32(load(h + 4), 0x1b);
    return {_mm_alignr_epi8(cdab, efgh, 8), _mm_blend_epi16(efgh, cdab, 0xf0)};
}

void store_state(uint32_t *h, const State &state)
{
    const __m128i feba = _mm_shuffle_epi32(state.abef, 0x1b);
    const __m128i dchg = _mm_shuffle_epi32(state.cdgh, 0xb1);
    store(h, _mm_blend_epi16(feba, dchg, 0xf0));
    store(h + 4, _mm_alignr_epi8(dchg, feba, 8));
}

// The next four words of the schedule from the 16 before them.
__m128i next_words(__m128i w0, __m128i w4, __m128i w8, __m128i w12)
{
    const __m128i sum = add(_mm_sha256msg1_epu32(w0, w4), _mm_alignr_epi8(w12, w8, 4));
    return _mm_sha256msg2_epu32(sum, w12);
}

State compress(State state, const uint8_t *block)
{
    const __m128i swap = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    __m128i words[4];
    for (int i = 0; i < 4; ++i)
        words[i] = _mm_shuffle_epi8(load(block + ptrdiff_t{16} * i), swap);
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) {
        __m128i &w = words[i % 4];
        if (i >= 4)
            w = next_words(w, words[(i + 1) % 4], words[(i + 2) % 4], words[(i + 3) % 4]);
        const __m128i keyed = add(w, load(kSha256Rounds + ptrdiff_t{4} * i));
        state.cdgh = _mm_sha256rnds2_epu32(state.cdgh, state.abef, keyed);
        state.abef = _mm_sha256rnds2_epu32(state.abef, state.cdgh, _mm_shuffle_epi32(keyed, 0x0e));
    }
    return state;
}

} // namespace

void sha256_compress_instructions(uint32_t *h, const uint8_t *blocks, size_t count)
{
    State state = load_state(h);
    for (; count != 0; --count, blocks += kSha256Block) {
        const State mixed = compress(state, blocks);
        state.abef = add(state.abef, mixed.abef);
        state.cdgh = add(state.cdgh, mixed.cdgh);
    }
    store_state(h, state);
}

} // namespace zorv
