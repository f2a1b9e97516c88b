// numbers.h - numbers as people write them, read whole or not at all.
#ifndef ZORVCTL_NUMBERS_H
#define ZORVCTL_NUMBERS_H

#include <concepts>
#include <cstdint>
#include <limits>
#include <string_view>

namespace ctl {

// Reads the whole text as a decimal number, or as a hexadecimal one behind "0x"; a leading 0 means
// nothing. False, and `bits` left alone, when it is none, or not from `least` to `most`.
bool parse_integer(std::string_view text, int64_t least, uint64_t most, uint64_t &bits);

// The same, for all that the type holds.
template <std::integral T>
bool parse_number(std::string_view text, T &value)
{
    using Limits = std::numeric_limits<T>;
    uint64_t bits;
    if (!parse_integer(text, Limits::min(), static_cast<uint64_t>(Limits::max()), bits))
        return false;
    value = static_cast<T>(bits);
    return true;
}

// Reads the whole text as a decimal number with or without a fraction and an exponent.
bool parse_number(const char *text, double &value);

} // namespace ctl

#endif
