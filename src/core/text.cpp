#include <zorv/text.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/text_tools.h"

using namespace zorv;

namespace {

// Converts what scanf() takes for "%2x" at `digits`, white space in front of it already skipped.
bool parse_pair(const char *digits, unsigned char &byte)
{
    const char pair[] = {digits[0], digits[0] == '\0' ? '\0' : digits[1], '\0'};
    char *end = nullptr;
    byte = static_cast<unsigned char>(strtoul(pair, &end, 16));
    return end != pair;
}

size_t print_hex(const unsigned char *bytes, size_t count, char *out, size_t size,
                 const char *digits)
{
    if (!bytes || !out || size == 0 || (size - 1) / 2 < count)
        return 0;
    memset(out, 0, size);
    for (size_t i = 0; i < count; ++i) {
        out[2 * i] = digits[bytes[i] >> 4];
        out[2 * i + 1] = digits[bytes[i] & 0xf];
    }
    return count;
}

} // namespace

void trim_trailing(char *text, int length)
{
    while (length > 0 && is_white(text[length - 1]))
        text[--length] = '\0';
}

void strncpy_trim(char *destination, size_t size, const char *source)
{
    if (!destination || size == 0)
        return;
    destination[0] = '\0';
    if (!source)
        return;
    while (is_white(*source))
        ++source;
    copy_text(destination, size, source);
}

size_t hex2uchar(const char *hex, unsigned char *out, size_t size)
{
    if (!hex || !out)
        return 0;
    memset(out, 0, size);
    if (hex[0] == '\0')
        return 0;
    const char *digits = hex; // where the next number begins; stays behind white space
    for (size_t i = 0; i < size; ++i, hex += 2) {
        digits = std::max(digits, hex);
        while (is_white(*digits))
            ++digits;
        if (!parse_pair(digits, out[i]) || hex[1] == '\0')
            break;
    }
    return size;
}

size_t uchar2hex(const unsigned char *bytes, size_t count, char *out, size_t size)
{
    return print_hex(bytes, count, out, size, "0123456789ABCDEF");
}

size_t uchar2lowerhex(const unsigned char *bytes, size_t count, char *out, size_t size)
{
    return print_hex(bytes, count, out, size, "0123456789abcdef");
}

int strtomac(const char *text, unsigned char mac[6])
{
    unsigned fields[6];
    if (sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &fields[0], &fields[1], &fields[2],
               &fields[3], &fields[4], &fields[5]) != 6)
        return -1;
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<unsigned char>(fields[i]);
    return 0;
}
