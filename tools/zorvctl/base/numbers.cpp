#include "base/numbers.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace ctl {

bool parse_integer(std::string_view text, int64_t least, uint64_t most, uint64_t &bits)
{
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    const int base = text.starts_with("0x") ? 16 : 10;
    if (base == 16)
        text.remove_prefix(2);
    uint64_t magnitude;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude, base);
    if (error != std::errc() || stop != end)
        return false;
    if (magnitude > (negative ? 0 - static_cast<uint64_t>(least) : most))
        return false;
    bits = negative ? 0 - magnitude : magnitude;
    return true;
}

bool parse_number(const char *text, double &value)
{
    if (!*text || text[strspn(text, "0123456789.eE+-")]) // no blanks, no "inf", no hexadecimal
        return false;
    char *end;
    const double number = strtod(text, &end);
    if (*end)
        return false;
    value = number;
    return true;
}

} // namespace ctl
