#include "crypto/aes_impl.h"

#include <algorithm>
#include <array>

#include "crypto/bytes.h"

namespace zorv {

namespace {

using ByteTable = std::array<uint8_t, 256>;
using WordTables = std::array<std::array<uint32_t, 256>, 4>; // one for each byte of a column

// Multiplication in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1.
constexpr uint8_t multiply(unsigned a, unsigned b)
{
    unsigned product = 0;
    for (; b != 0; b >>= 1) {
        if (b & 1)
            product ^= a;
        a = (a << 1) ^ ((a & 0x80) ? 0x11b : 0);
    }
    return static_cast<uint8_t>(product);
}

// FIPS-197 5.1.1: the multiplicative inverse, then an affine map. p runs through the powers of 3,
// a generator of the field, and q through those of its inverse.
constexpr ByteTable make_sbox()
{
    ByteTable sbox{};
    uint8_t p = 1, q = 1;
    do {
        p = multiply(p, 0x03);
        q = multiply(q, 0xf6);
        sbox[p] = static_cast<uint8_t>(q ^ std::rotl(q, 1) ^ std::rotl(q, 2) ^ std::rotl(q, 3) ^
                                       std::rotl(q, 4) ^ 0x63);
    } while (p != 1);
    sbox[0] = 0x63;
    return sbox;
}

constexpr ByteTable invert(const ByteTable &table)
{
    ByteTable inverse{};
    for (unsigned i = 0; i < inverse.size(); ++i)
        inverse[table[i]] = static_cast<uint8_t>(i);
    return inverse;
}

// Substitution and column mixing in one step; column is the first of the mixing matrix.
constexpr WordTables make_tables(const ByteTable &box, const std::array<uint8_t, 4> &column)
{
    WordTables tables{};
    for (size_t i = 0; i < box.size(); ++i) {
        uint32_t word = 0;
        for (const uint8_t factor : column)
            word = word << 8 | multiply(box[i], factor);
        for (int k = 0; k < 4; ++k)
            tables[static_cast<size_t>(k)][i] = std::rotr(word, 8 * k);
    }
    return tables;
}

constexpr ByteTable kBox = make_sbox();
constexpr ByteTable kInverseBox = invert(kBox);
constexpr WordTables kEncryption = make_tables(kBox, {0x02, 0x01, 0x01, 0x03});
constexpr WordTables kDecryption = make_tables(kInverseBox, {0x0e, 0x09, 0x0d, 0x0b});

// Byte k of a word, 0 the most significant.
constexpr uint8_t byte_of(uint32_t word, int k)
{
    return static_cast<uint8_t>(word >> (24 - 8 * k));
}

uint32_t substitute(uint32_t word)
{
    uint32_t result = 0;
    for (int k = 0; k < 4; ++k)
        result = result << 8 | kBox[byte_of(word, k)];
    return result;
}

// InvMixColumns; the look-up in kBox undoes the inverse substitution in the tables.
uint32_t unmix_column(uint32_t word)
{
    uint32_t result = 0;
    for (int k = 0; k < 4; ++k)
        result ^= kDecryption[static_cast<size_t>(k)][kBox[byte_of(word, k)]];
    return result;
}

// Both directions: ShiftRows takes byte k of a column from the column k places further (Turn 1),
// its inverse from k places back (Turn 3).
template <unsigned Turn>
void run_rounds(const WordTables &tables, const ByteTable &last_box, const uint32_t *keys,
                int rounds, const uint8_t *in, uint8_t *out)
{
    uint32_t state[4], next[4];
    for (unsigned i = 0; i < 4; ++i)
        state[i] = load_be32(in + sizeof(uint32_t) * i) ^ *keys++;
    for (int round = 1; round < rounds; ++round) {
        for (unsigned i = 0; i < 4; ++i)
            next[i] = tables[0][byte_of(state[i], 0)] ^
                      tables[1][byte_of(state[(i + Turn) % 4], 1)] ^
                      tables[2][byte_of(state[(i + 2 * Turn) % 4], 2)] ^
                      tables[3][byte_of(state[(i + 3 * Turn) % 4], 3)] ^ *keys++;
        memcpy(state, next, sizeof state);
    }
    for (unsigned i = 0; i < 4; ++i) {
        uint32_t word = 0;
        for (unsigned k = 0; k < 4; ++k)
            word = word << 8 | last_box[byte_of(state[(i + k * Turn) % 4], static_cast<int>(k))];
        store_be32(out + sizeof word * i, word ^ *keys++);
    }
}

void add_block(uint8_t *block, const uint8_t *other)
{
    for (size_t i = 0; i < kAesBlock; ++i)
        block[i] ^= other[i];
}

struct Schedule {
    uint32_t keys[4 * (10 + 1)];
};

} // namespace

void AesPortable::encrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    run_rounds<1>(kEncryption, kBox, keys, rounds, in, out);
}

void AesPortable::decrypt(const uint32_t *keys, int rounds, const uint8_t *in, uint8_t *out)
{
    run_rounds<3>(kDecryption, kInverseBox, keys, rounds, in, out);
}

void AesPortable::cbc_encrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length)
{
    Wiped<Schedule> schedule;
    const int rounds = expand_encryption_keys(schedule.keys, key, 128);
    uint8_t chain[kAesBlock];
    memcpy(chain, iv, sizeof chain);
    for (const uint8_t *const end = data + length; data != end; data += kAesBlock) {
        add_block(chain, data);
        encrypt(schedule.keys, rounds, chain, chain);
        memcpy(data, chain, sizeof chain);
    }
}

void AesPortable::cbc_decrypt(const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length)
{
    Wiped<Schedule> schedule;
    const int rounds = expand_decryption_keys(schedule.keys, key, 128);
    uint8_t chain[kAesBlock], ciphertext[kAesBlock];
    memcpy(chain, iv, sizeof chain);
    for (const uint8_t *const end = data + length; data != end; data += kAesBlock) {
        memcpy(ciphertext, data, sizeof ciphertext);
        decrypt(schedule.keys, rounds, data, data);
        add_block(data, chain);
        memcpy(chain, ciphertext, sizeof chain);
    }
}

int expand_encryption_keys(uint32_t *keys, const uint8_t *key, int bits)
{
    if (bits != 128 && bits != 192 && bits != 256)
        return 0;
    const int key_words = bits / 32;
    const int rounds = key_words + 6;
    for (int i = 0; i < key_words; ++i)
        keys[i] = load_be32(key + ptrdiff_t{4} * i);
    uint8_t round_constant = 1;
    for (int i = key_words; i < 4 * (rounds + 1); ++i) {
        uint32_t word = keys[i - 1];
        if (i % key_words == 0) {
            word = substitute(std::rotl(word, 8)) ^ static_cast<uint32_t>(round_constant) << 24;
            round_constant = multiply(round_constant, 2);
        } else if (key_words == 8 && i % key_words == 4) {
            word = substitute(word);
        }
        keys[i] = keys[i - key_words] ^ word;
    }
    return rounds;
}

int expand_decryption_keys(uint32_t *keys, const uint8_t *key, int bits)
{
    const int rounds = expand_encryption_keys(keys, key, bits);
    for (ptrdiff_t low = 0, high = ptrdiff_t{4} * rounds; low < high; low += 4, high -= 4)
        std::swap_ranges(keys + low, keys + low + 4, keys + high);
    for (int i = 4; i < 4 * rounds; ++i)
        keys[i] = unmix_column(keys[i]);
    return rounds;
}

} // namespace zorv
