// bytes.h - big-endian words in memory of any alignment, and key material that does not linger.
#ifndef ZORV_CRYPTO_BYTES_H
#define ZORV_CRYPTO_BYTES_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace zorv {

inline uint32_t big_endian(uint32_t word)
{
    return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

inline uint32_t load_be32(const void *bytes)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return big_endian(word);
}

inline void store_be32(void *bytes, uint32_t word)
{
    word = big_endian(word);
    memcpy(bytes, &word, sizeof word);
}

// A local that is cleared when it goes out of scope.
template <class T>
struct Wiped : T {
    Wiped() = default;
    Wiped(const Wiped &) = delete;
    Wiped &operator=(const Wiped &) = delete;
    ~Wiped() { explicit_bzero(static_cast<T *>(this), sizeof(T)); }
};

} // namespace zorv

#endif
