#include <zorv/base64.h>

#include <algorithm>
#include <array>
#include <climits>

#include "crypto/bytes.h"

using namespace zorv;

namespace {

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlSafe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr uint8_t kForeign = 64; // the value of a byte outside both alphabets

constexpr std::array<uint8_t, 256> make_values()
{
    std::array<uint8_t, 256> values{};
    values.fill(kForeign);
    for (uint8_t i = 0; i < 64; ++i) {
        values[static_cast<uint8_t>(kStandard[i])] = i;
        values[static_cast<uint8_t>(kUrlSafe[i])] = i;
    }
    return values;
}

constexpr std::array<uint8_t, 256> kValues = make_values();

uint8_t value_of(char character)
{
    return kValues[static_cast<uint8_t>(character)];
}

// 16 characters at a time, in vectors that the compiler maps to those of any processor. Comparisons
// are signed, which every processor has; bytes from 0x80 on compare as negative.
constexpr bool kHasVectors = std::endian::native == std::endian::little;
constexpr size_t kCharacters = 16;
constexpr size_t kBytes = 12; // what they stand for
using Vector [[gnu::vector_size(16), gnu::may_alias]] = uint8_t;
using SignedVector [[gnu::vector_size(16)]] = int8_t;
using Words [[gnu::vector_size(16)]] = uint32_t;
using Halves [[gnu::vector_size(16)]] = uint64_t;

// Adds a number where a comparison, -1 or 0 in each lane, holds.
void add_where(Vector &vector, SignedVector comparison, int number)
{
    vector += std::bit_cast<Vector>(comparison) & static_cast<uint8_t>(number);
}

Vector to_characters(Vector sextets, const char *alphabet)
{
    const auto compared = std::bit_cast<SignedVector>(sextets);
    const int offset62 = alphabet[62] - 62, offset63 = alphabet[63] - 63;
    Vector characters = sextets + 'A';
    add_where(characters, compared > 25, ('a' - 26) - 'A');
    add_where(characters, compared > 51, ('0' - 52) - ('a' - 26));
    add_where(characters, compared > 61, offset62 - ('0' - 52));
    add_where(characters, compared > 62, offset63 - offset62);
    return characters;
}

// Characters of the alphabets only.
Vector to_sextets(Vector characters)
{
    const auto compared = std::bit_cast<SignedVector>(characters);
    constexpr int kDigit = 52 - '0', kUpper = 0 - 'A', kLower = 26 - 'a';
    const auto is_special = std::bit_cast<Vector>(compared < '0'); // "+", "-" and "/"
    Vector sextets = characters + static_cast<uint8_t>(kDigit);
    sextets = (sextets & ~is_special) | (is_special & 62);
    add_where(sextets, compared == '/', 1);
    add_where(sextets, compared > '9', kUpper - kDigit);
    add_where(sextets, compared == '_', (63 - '_') - kUpper);
    add_where(sextets, compared > '_', kLower - kUpper);
    return sextets;
}

bool all_in_alphabets(Vector c)
{
    const Vector letter = (c | 0x20) - 'a', digit = c - '/'; // the slash stands before the digits
    const SignedVector good = (letter < 26) | (digit < 11) | (c == '+') | (c == '-') | (c == '_');
    const auto bad = std::bit_cast<Halves>(~good);
    return (bad[0] | bad[1]) == 0;
}

void encode_vector(char *dst, const unsigned char *src, const char *alphabet)
{
    // Three bytes at the top of each word; the last is read from before, to stay within 12 bytes.
    const Words words = {load_be32(src), load_be32(src + 3), load_be32(src + 6),
                         load_be32(src + 8) << 8};
    const Words sextets = (words >> 26) | ((words >> 12) & 0x3f00) | ((words << 2) & 0x3f0000) |
                          ((words << 16) & 0x3f000000);
    const Vector characters = to_characters(std::bit_cast<Vector>(sextets), alphabet);
    memcpy(dst, &characters, sizeof characters);
}

// Writes a thirteenth byte, which the caller writes over.
void decode_vector(unsigned char *dst, const char *src)
{
    Vector characters;
    memcpy(&characters, src, sizeof characters);
    const auto sextets = std::bit_cast<Words>(to_sextets(characters));
    const Words words = (sextets << 26) | ((sextets << 12) & 0x03f00000) |
                        ((sextets >> 2) & 0x000fc000) | ((sextets >> 16) & 0x3f00);
    for (size_t i = 0; i < 4; ++i)
        store_be32(dst + 3 * i, words[i]);
}

// Encodes one to three bytes; returns where the text goes on.
char *encode_group(char *dst, const unsigned char *src, size_t count, const char *alphabet)
{
    unsigned bits = 0;
    for (size_t i = 0; i < count; ++i)
        bits |= static_cast<unsigned>(src[i]) << (16 - 8 * i);
    for (size_t i = 0; i < count + 1; ++i)
        *dst++ = alphabet[bits >> (18 - 6 * i) & 63];
    return dst;
}

// Returns the end of the text, where no NUL is yet.
char *encode(char *dst, const unsigned char *src, size_t length, const char *alphabet)
{
    for (; kHasVectors && length >= kBytes; length -= kBytes) {
        encode_vector(dst, src, alphabet);
        dst += kCharacters;
        src += kBytes;
    }
    while (length > 0) {
        const size_t count = std::min<size_t>(length, 3);
        dst = encode_group(dst, src, count, alphabet);
        src += count;
        length -= count;
    }
    return dst;
}

// How many characters stand before the first foreign one. Nothing says where the text ends but
// that character, so vectors are read at their own alignment: such a read may run past the end of
// the text, but never into another page, nor out of a memory tag's granule. Byte by byte decoding
// takes twice the time, and falls behind OpenSSL's ("base64-decode" of bench_crypto).
[[gnu::no_sanitize_address]] size_t count_characters(const char *src)
{
    const char *at = src;
    while (reinterpret_cast<uintptr_t>(at) % sizeof(Vector) != 0) {
        if (value_of(*at) == kForeign)
            return static_cast<size_t>(at - src);
        ++at;
    }
    while (kHasVectors && all_in_alphabets(*reinterpret_cast<const Vector *>(at)))
        at += sizeof(Vector);
    while (value_of(*at) != kForeign)
        ++at;
    return static_cast<size_t>(at - src);
}

// Decodes two to four characters, one byte fewer; a single one gives none.
unsigned char *decode_group(unsigned char *dst, const char *src, size_t count)
{
    unsigned bits = 0;
    for (size_t i = 0; i < count; ++i)
        bits |= static_cast<unsigned>(value_of(src[i])) << (18 - 6 * i);
    for (size_t i = 0; i + 1 < count; ++i)
        *dst++ = static_cast<unsigned char>(bits >> (16 - 8 * i));
    return dst;
}

// The buffer size for groups of some bytes and a NUL, as far as an int goes.
int buffer_size(size_t groups, size_t bytes)
{
    return groups <= (INT_MAX - 1) / bytes ? static_cast<int>(groups * bytes + 1) : -1;
}

} // namespace

int base64_encode_len(int len)
{
    return buffer_size((static_cast<size_t>(std::max(len, 0)) + 2) / 3, 4);
}

int base64url_encode_len(int len)
{
    return base64_encode_len(len);
}

void base64rfc_encode(char *dst, const unsigned char *src, int len)
{
    const auto length = static_cast<size_t>(std::max(len, 0));
    dst = encode(dst, src, length, kStandard);
    for (size_t i = length % 3; i == 1 || i == 2; ++i)
        *dst++ = '=';
    *dst = '\0';
}

void base64url_encode(char *dst, const unsigned char *src, int len)
{
    dst = encode(dst, src, static_cast<size_t>(std::max(len, 0)), kUrlSafe);
    *dst = '\0';
}

int base64_decode_len(const char *src)
{
    return buffer_size((count_characters(src) + 3) / 4, 3);
}

int base64url_decode_len(const char *src)
{
    return base64_decode_len(src);
}

void base64_decode(unsigned char *dst, const char *src)
{
    size_t count = count_characters(src);
    for (; kHasVectors && count >= kCharacters; count -= kCharacters) {
        decode_vector(dst, src);
        dst += kBytes;
        src += kCharacters;
    }
    while (count > 0) {
        const size_t taken = std::min<size_t>(count, 4);
        dst = decode_group(dst, src, taken);
        src += taken;
        count -= taken;
    }
    *dst = '\0';
}

void base64url_decode(unsigned char *dst, const char *src)
{
    base64_decode(dst, src);
}
