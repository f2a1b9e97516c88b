// aes_x86.cpp - AES-NI, compiled with -maes -mssse3; entered only by way of aes_hardware().
#include "crypto/aes_impl.h"

#include <utility>

#include <immintrin.h>

#include "crypto/bytes.h"

namespace zorv {

namespace {

constexpr int kRounds = 10; // of a 128-bit key

struct Schedule {
    __m128i keys[kRounds + 1];
};

__m128i load(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}
void store(void *bytes, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(bytes), value);
}

// One of the round keys of a context: four big-endian words.
__m128i load_key(const uint32_t *keys, int round)
{
    return _mm_shuffle_epi8(load(keys + ptrdiff_t{4} * round),
                            _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
}

// The round key that follows one of a 128-bit key. With the same word in all columns ShiftRows
// changes nothing, so the last-round instruction is SubWord and the round constant in one; it takes
// a third of the time of the instruction meant for key set-up.
__m128i next_key(__m128i key, int round_constant)
{
    const __m128i rotated = // the last word, turned by a byte, four times
        _mm_shuffle_epi8(key, _mm_set1_epi32(0x0c0f0e0d));
    const __m128i word = _mm_aesenclast_si128(rotated, _mm_set1_epi32(round_constant));
    key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
    key = _mm_xor_si128(key, _mm_slli_si128(key, 8));
    return _mm_xor_si128(key, word);
}

void expand(Schedule &schedule, const uint8_t *key)
{
    __m128i round_key = schedule.keys[0] = load(key);
    int round_constant = 1;
    for (int i = 1; i <= kRounds; ++i) {
        round_key = schedule.keys[i] = next_key(round_key, round_constant);
        round_constant = round_constant << 1 ^ (round_constant & 0x80 ? 0x11b : 0);
    }
}

// The other direction's keys, in its order.
void expand_inverse(Schedule &schedule, const uint8_t *key)
{
    Wiped<Schedule> forward;
    expand(forward, key);
    schedule.keys[0] = forward.keys[kRounds];
    for (int i = 1; i < kRounds; ++i)
        schedule.keys[i] = _mm_aesimc_si128(forward.keys[kRounds - i]);
    schedule.keys[kRounds] = forward.keys[0];
}

// Decrypts runs of blocks, one for each Index, side by side, as many runs as there are: one block
// alone leaves the unit idle most of the time. Returns where the rest begins; chain becomes the
// last ciphertext. Compilers would keep blocks that a loop goes over in memory.
template <size_t... Index>
uint8_t *decrypt_runs(const Schedule &schedule, __m128i &chain, uint8_t *data, const uint8_t *end,
                      std::index_sequence<Index...>)
{
    constexpr size_t kRun = sizeof...(Index) * kAesBlock;
    for (; static_cast<size_t>(end - data) >= kRun; data += kRun) {
        __m128i blocks[] = {_mm_xor_si128(load(data + Index * kAesBlock), schedule.keys[0])...};
        for (int i = 1; i < kRounds; ++i)
            ((blocks[Index] = _mm_aesdec_si128(blocks[Index], schedule.keys[i])), ...);
        const auto finish = [&](uint8_t *place, __m128i block) {
            const __m128i mask = _mm_xor_si128(chain, schedule.keys[kRounds]);
            chain = load(place);
            store(place, _mm_aesdeclast_si128(block, mask));
        };
        (finish(data + Index * kAesBlock, blocks[Index]), ...);
    }
    return data;
}

} // namespace

void AesInstructions::encrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    __m128i block = _mm_xor_si128(load(in), load_key(keys, 0));
    for (int i = 1; i < rounds; ++i)
        block = _mm_aesenc_si128(block, load_key(keys, i));
    store(out, _mm_aesenclast_si128(block, load_key(keys, rounds)));
}

void AesInstructions::decrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    __m128i block = _mm_xor_si128(load(in), load_key(keys, 0));
    for (int i = 1; i < rounds; ++i)
        block = _mm_aesdec_si128(block, load_key(keys, i));
    store(out, _mm_aesdeclast_si128(block, load_key(keys, rounds)));
}

void AesInstructions::cbc_encrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data,
                                  size_t length)
{
    Wiped<Schedule> schedule;
    expand(schedule, key);
    __m128i chain = load(iv);
    for (const uint8_t *const end = data + length; data != end; data += kAesBlock) {
        chain = _mm_xor_si128(chain, _mm_xor_si128(load(data), schedule.keys[0]));
        for (int i = 1; i < kRounds; ++i)
            chain = _mm_aesenc_si128(chain, schedule.keys[i]);
        chain = _mm_aesenclast_si128(chain, schedule.keys[kRounds]);
        store(data, chain);
    }
}

void AesInstructions::cbc_decrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data,
                                  size_t length)
{
    Wiped<Schedule> schedule;
    expand_inverse(schedule, key);
    const uint8_t *const end = data + length;
    __m128i chain = load(iv);
    data = decrypt_runs(schedule, chain, data, end, std::make_index_sequence<8>());
    data = decrypt_runs(schedule, chain, data, end, std::make_index_sequence<4>());
    decrypt_runs(schedule, chain, data, end, std::make_index_sequence<1>());
}

} // namespace zorv
