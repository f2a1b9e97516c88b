// aes_armv8.cpp - the Armv8 cryptography extension, compiled with -march=armv8-a+crypto; entered
// only by way of aes_hardware().
//
// The instructions cut a round elsewhere than FIPS-197 does: vaeseq and vaesdq add the round key
// first, then substitute and shift; mixing the columns is an instruction of its own. So the last
// key of the standard's schedule is added by itself.
#include "crypto/aes_impl.h"

#include <utility>

#include <arm_neon.h>

#include "crypto/bytes.h"

namespace zorv {

namespace {

constexpr int kRounds = 10; // of a 128-bit key

struct Schedule {
    uint8x16_t keys[kRounds + 1];
};

// One of the round keys of a context: four words, big-endian in the cipher's order of bytes.
uint8x16_t load_key(const uint32_t *keys, int round)
{
    return vrev32q_u8(vreinterpretq_u8_u32(vld1q_u32(keys + ptrdiff_t{4} * round)));
}

// Moves a round key's bytes up, towards the later words.
template <int Bytes>
uint8x16_t shift_up(uint8x16_t key)
{
    return vextq_u8(vdupq_n_u8(0), key, 16 - Bytes);
}

// The round key that follows one of a 128-bit key. With the same word in all columns ShiftRows
// changes nothing, so a round without mixing is SubWord.
uint8x16_t next_key(uint8x16_t key, uint32_t round_constant)
{
    constexpr uint32_t kLastWordTurned = 0x0c0f0e0d; // by a byte
    const uint8x16_t rotated = vqtbl1q_u8(key, vreinterpretq_u8_u32(vdupq_n_u32(kLastWordTurned)));
    const uint8x16_t word = veorq_u8(vaeseq_u8(rotated, vdupq_n_u8(0)),
                                     vreinterpretq_u8_u32(vdupq_n_u32(round_constant)));
    key = veorq_u8(key, shift_up<4>(key));
    key = veorq_u8(key, shift_up<8>(key));
    return veorq_u8(key, word);
}

void expand(Schedule &schedule, const uint8_t *key)
{
    uint8x16_t round_key = schedule.keys[0] = vld1q_u8(key);
    uint32_t round_constant = 1;
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
        schedule.keys[i] = vaesimcq_u8(forward.keys[kRounds - i]);
    schedule.keys[kRounds] = forward.keys[0];
}

// Decrypts runs of blocks, one for each Index, side by side, as many runs as there are: one block
// alone leaves the unit idle most of the time. Returns where the rest begins; chain becomes the
// last ciphertext. Compilers would keep blocks that a loop goes over in memory.
template <size_t... Index>
uint8_t *decrypt_runs(const Schedule &schedule, uint8x16_t &chain, uint8_t *data,
                      const uint8_t *end, std::index_sequence<Index...>)
{
    constexpr size_t kRun = sizeof...(Index) * kAesBlock;
    for (; static_cast<size_t>(end - data) >= kRun; data += kRun) {
        uint8x16_t blocks[] = {vld1q_u8(data + Index * kAesBlock)...};
        for (int i = 0; i < kRounds - 1; ++i)
            ((blocks[Index] = vaesimcq_u8(vaesdq_u8(blocks[Index], schedule.keys[i]))), ...);
        const auto finish = [&](uint8_t *place, uint8x16_t block) {
            const uint8x16_t mask = veorq_u8(chain, schedule.keys[kRounds]);
            chain = vld1q_u8(place);
            vst1q_u8(place, veorq_u8(vaesdq_u8(block, schedule.keys[kRounds - 1]), mask));
        };
        (finish(data + Index * kAesBlock, blocks[Index]), ...);
    }
    return data;
}

} // namespace

void AesInstructions::encrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    uint8x16_t block = vld1q_u8(in);
    for (int i = 0; i < rounds - 1; ++i)
        block = vaesmcq_u8(vaeseq_u8(block, load_key(keys, i)));
    block = vaeseq_u8(block, load_key(keys, rounds - 1));
    vst1q_u8(out, veorq_u8(block, load_key(keys, rounds)));
}

void AesInstructions::decrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    uint8x16_t block = vld1q_u8(in);
    for (int i = 0; i < rounds - 1; ++i)
        block = vaesimcq_u8(vaesdq_u8(block, load_key(keys, i)));
    block = vaesdq_u8(block, load_key(keys, rounds - 1));
    vst1q_u8(out, veorq_u8(block, load_key(keys, rounds)));
}

void AesInstructions::cbc_encrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data,
                                  size_t length)
{
    Wiped<Schedule> schedule;
    expand(schedule, key);
    uint8x16_t chain = vld1q_u8(iv);
    for (const uint8_t *const end = data + length; data != end; data += kAesBlock) {
        chain = veorq_u8(chain, vld1q_u8(data));
        for (int i = 0; i < kRounds - 1; ++i)
            chain = vaesmcq_u8(vaeseq_u8(chain, schedule.keys[i]));
        chain = vaeseq_u8(chain, schedule.keys[kRounds - 1]);
        chain = veorq_u8(chain, schedule.keys[kRounds]);
        vst1q_u8(data, chain);
    }
}

void AesInstructions::cbc_decrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data,
                                  size_t length)
{
    Wiped<Schedule> schedule;
    expand_inverse(schedule, key);
    const uint8_t *const end = data + length;
    uint8x16_t chain = vld1q_u8(iv);
    data = decrypt_runs(schedule, chain, data, end, std::make_index_sequence<8>());
    data = decrypt_runs(schedule, chain, data, end, std::make_index_sequence<4>());
    decrypt_runs(schedule, chain, data, end, std::make_index_sequence<1>());
}

} // namespace zorv
