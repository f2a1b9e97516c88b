// natural.h - natural key order: letters without case, digits after all else and by their number.
#ifndef ZORV_CFG_NATURAL_H
#define ZORV_CFG_NATURAL_H

namespace zorv {

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr unsigned char lower(char c)
{
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Returns -1, 0 or 1; the same pointer is equal, a null one less than any other.
int compare_keys(const char *left, const char *right);

// Equality in that order is equality but for case: equal numbers of equal length are equal digits.
inline bool equal_keys(const char *left, const char *right)
{
    for (; *left == *right || lower(*left) == lower(*right); ++left, ++right)
        if (*left == '\0')
            return true;
    return false;
}

} // namespace zorv

#endif
