#include <zorv/text.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

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

constexpr size_t kLine = 255; // characters of a line, its newline included

// A line of a file, which may hold NULs.
struct Line {
    char text[kLine];
    size_t length;
};

bool is_whole(const Line &line)
{
    return line.length < kLine || line.text[kLine - 1] == '\n';
}

bool contains(const Line &line, std::string_view pattern)
{
    return std::string_view(line.text, line.length).find(pattern) != std::string_view::npos;
}

// Reads a line, or as much of it as fits; false at the end of the file.
bool read_piece(FILE *stream, Line &line)
{
    line.length = 0;
    int c = EOF;
    while (line.length < kLine && c != '\n' && (c = getc_unlocked(stream)) != EOF)
        line.text[line.length++] = static_cast<char>(c);
    return line.length > 0;
}

void skip_line(FILE *stream)
{
    int c = 0;
    while (c != '\n' && c != EOF)
        c = getc_unlocked(stream);
}

// Writes over the first character of the line that was just read; false when the stream cannot be
// written or positioned. Between reading and writing a stream wants to be positioned anyway.
bool comment_out(FILE *stream, const Line &line)
{
    const long length = static_cast<long>(line.length);
    return fseek(stream, -length, SEEK_CUR) == 0 && fputc('#', stream) != EOF &&
           fseek(stream, length - 1, SEEK_CUR) == 0;
}

// One pass over the file for one pattern; -1 when a line was too long or the stream fails.
int comment_out_pattern(FILE *stream, const char *pattern)
{
    if (fseek(stream, 0, SEEK_SET) != 0)
        return -1;
    int rc = 0;
    Line line;
    while (read_piece(stream, line)) {
        if (!is_whole(line)) {
            skip_line(stream);
            rc = -1;
        } else if (contains(line, pattern) && !comment_out(stream, line)) {
            return -1;
        }
    }
    return feof(stream) && fflush(stream) == 0 ? rc : -1;
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

int comment_out_lines(FILE *stream, char *patterns)
{
    int rc = 0;
    char *rest = patterns;
    while (const char *const pattern = strtok_r(rest, "|", &rest)) {
        if (comment_out_pattern(stream, pattern) != 0)
            rc = -1;
    }
    return rc;
}
