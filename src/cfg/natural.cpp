#include "cfg/natural.h"

#include <cstddef>
#include <cstring>
#include <string_view>

namespace zorv {
namespace {

constexpr int kNumber = 256; // ranks above every other character

template <class T>
int order(T left, T right)
{
    return left < right ? -1 : left > right;
}

int rank(char c)
{
    return is_digit(c) ? kNumber : lower(c);
}

std::string_view leading_digits(const char *text)
{
    size_t length = 0;
    while (is_digit(text[length]))
        ++length;
    return {text, length};
}

std::string_view without_zeros(std::string_view digits)
{
    while (!digits.empty() && digits.front() == '0')
        digits.remove_prefix(1);
    return digits;
}

// By value; of one value, the run with more zeros in front is greater.
int compare_numbers(std::string_view left, std::string_view right)
{
    const std::string_view a = without_zeros(left), b = without_zeros(right);
    if (a.size() != b.size())
        return order(a.size(), b.size());
    const int digits = memcmp(a.data(), b.data(), a.size());
    return digits != 0 ? order(digits, 0) : order(left.size(), right.size());
}

} // namespace

int compare_keys(const char *left, const char *right)
{
    if (left == right)
        return 0;
    if (!left || !right)
        return left ? 1 : -1;
    for (;;) {
        while (*left == *right && *left != '\0' && !is_digit(*left))
            ++left, ++right;
        if (*left == '\0' || *right == '\0')
            return order(*left != '\0', *right != '\0');
        const std::string_view a = leading_digits(left), b = leading_digits(right);
        const bool numbers = !a.empty() && !b.empty();
        if (const int result = numbers ? compare_numbers(a, b) : order(rank(*left), rank(*right)))
            return result;
        left += numbers ? a.size() : 1;
        right += numbers ? b.size() : 1;
    }
}

} // namespace zorv
