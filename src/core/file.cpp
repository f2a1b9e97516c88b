#include <zorv/file.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "core/lines.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"
#include "core/wrapping.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr char kWordEnds[] = " \t\r\n=";
constexpr mode_t kPermissions = 0600;
constexpr size_t kInteger = 16; // 15 characters of a number are seen, and a NUL
constexpr size_t kDouble = 33;

// What a reader hands out when it found nothing; `function` is the reader's name.
char *copy_fallback(char *buffer, size_t size, const char *fallback, const char *function)
{
    if (!fallback)
        log_error_as(function, "NULL pointer for default value");
    copy_text(buffer, size, fallback ? fallback : "");
    return buffer;
}

// The size of a buffer that is given as an int.
size_t usable(int size)
{
    return size > 0 ? static_cast<size_t>(size) : 0;
}

bool read_line(FILE *stream, char *buffer, int size)
{
    if (!fgets(buffer, size, stream))
        return false;
    cut_at(buffer, "\n");
    return true;
}

// The second word of a line whose first word is `key`; cuts the line into its words.
const char *find_value(char *line, const char *key)
{
    char *rest = nullptr;
    const char *const word = strtok_r(line, kWordEnds, &rest);
    return word && strcmp(word, key) == 0 ? strtok_r(nullptr, kWordEnds, &rest) : nullptr;
}

// Converts the number at the start of a text with one of the C library's converters.
template <class Number, class Convert>
Number to_number(const char *text, Number fallback, Convert convert)
{
    char *end = nullptr;
    const Number value = convert(text, &end);
    return end == text ? fallback : value;
}

long to_long(const char *text, char **end)
{
    return strtol(text, end, 10);
}
unsigned long to_ulong(const char *text, char **end)
{
    return strtoul(text, end, 10);
}
int64_t to_i64_of_any_base(const char *text, char **end)
{
    return strtoll(text, end, 0);
}

// Reads the number in a file. The text is cleared first, because freadline() succeeds on an empty
// file without touching it.
template <size_t Size, class Number, class Convert>
Number read_number(const char *path, Number fallback, Convert convert)
{
    char text[Size] = "";
    return to_number(freadline(path, text, Size, "null"), fallback, convert);
}

File open_at(int dirfd, const char *path, int flags, const char *mode)
{
    Fd fd(openat(dirfd, path, flags | O_CLOEXEC, kPermissions));
    File stream(fd ? fdopen(fd.get(), mode) : nullptr);
    if (stream)
        fd.release();
    return stream;
}

File open_to_replace(int dirfd, const char *path)
{
    return open_at(dirfd, path, O_RDWR | O_CREAT | O_TRUNC, "r+");
}

// On purpose: the descriptor is closed once more behind its stream's back, so that callers of the
// writers find errno EBADF. The header tells programs of several threads to keep away.
void close_twice(File stream)
{
    const int fd = fileno(stream.get());
    stream.reset();
    close(fd);
}

int64_t read_i64(FILE *stream, int64_t fallback)
{
    char text[kInteger];
    return stream && read_line(stream, text, sizeof text)
               ? to_number(text, fallback, to_i64_of_any_base)
               : fallback;
}

} // namespace

FILE *fopen_format(const char *mode, const char *format, ...)
{
    char path[PATH_MAX]; // the kernel takes no longer one
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(path, sizeof path, format, arguments);
    va_end(arguments);
    if (length < 0)
        return nullptr;
    if (static_cast<size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return fopen(path, mode);
}

int fsreadline(const char *path, char *buffer, int size)
{
    if (!path)
        return -EINVAL;
    const File stream(fopen(path, "re"));
    // On purpose: an empty file leaves errno as it was, 0 as a rule, and so counts as success.
    return stream && read_line(stream.get(), buffer, size) ? 0 : -errno;
}

char *freadline(const char *path, char *buffer, int size, const char *fallback)
{
    const int rc = fsreadline(path, buffer, size);
    if (rc == 0)
        return buffer;
    log_verbose("fsreadline returned error code %d", rc);
    return copy_fallback(buffer, usable(size), fallback, __func__);
}

int fsreadlinebykey(const char *path, const char *needle, char *buffer, size_t size)
{
    if (!path || !needle || !buffer || size == 0)
        return -1;
    buffer[size - 1] = '\0';
    const File stream(fopen(path, "re"));
    Lines lines(stream.get());
    while (const char *const line = lines.next()) {
        if (!strstr(line, needle))
            continue;
        copy_text(buffer, size, line);
        return 0;
    }
    return -1;
}

int fwriteline(const char *path, const char *format, ...)
{
    const File stream(fopen(path, "we"));
    if (!stream)
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int length = vfprintf(stream.get(), format, arguments);
    va_end(arguments);
    return length;
}

char *freadvalue(const char *path, const char *key, char *buffer, size_t size, const char *fallback)
{
    if (size > 0)
        buffer[size - 1] = '\0';
    const File stream(path && key ? fopen(path, "re") : nullptr);
    Lines lines(stream.get());
    while (char *const line = lines.next()) {
        if (const char *const value = find_value(line, key)) {
            copy_text(buffer, size, value);
            return buffer;
        }
    }
    return copy_fallback(buffer, size, fallback, __func__);
}

unsigned long freadulong(const char *path, unsigned long fallback)
{
    return read_number<kInteger>(path, fallback, to_ulong);
}

long freadlong(const char *path, long fallback)
{
    return read_number<kInteger>(path, fallback, to_long);
}

double freaddouble(const char *path, double fallback)
{
    return read_number<kDouble>(path, fallback, strtod);
}

int faddlong(const char *path, long delta)
{
    return fwriteline(path, "%ld\n", wrapping_sum(freadlong(path, 0), delta)) < 1 ? -1 : 0;
}

char *freadlineat(int dirfd, const char *path, char *buffer, int size, const char *fallback)
{
    const File stream = open_at(dirfd, path, O_RDONLY, "r");
    if (stream && read_line(stream.get(), buffer, size))
        return buffer;
    return copy_fallback(buffer, usable(size), fallback, __func__);
}

long freadlongat(int dirfd, const char *path, long fallback)
{
    return freadi64at(dirfd, path, fallback);
}

int64_t freadi64at(int dirfd, const char *path, int64_t fallback)
{
    return read_i64(open_at(dirfd, path, O_RDONLY, "r").get(), fallback);
}

int fwritelineat(int dirfd, const char *path, const char *format, ...)
{
    File stream = open_to_replace(dirfd, path);
    if (!stream)
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int length = vfprintf(stream.get(), format, arguments);
    va_end(arguments);
    close_twice(std::move(stream));
    return length;
}

int fwritelongat(int dirfd, const char *path, long value)
{
    return fwritelineat(dirfd, path, "%ld\n", value) == -1 ? -1 : 0;
}

int faddlongat(int dirfd, const char *path, long delta)
{
    return faddi64at(dirfd, path, delta);
}

int faddi64at(int dirfd, const char *path, int64_t delta)
{
    File stream = open_at(dirfd, path, O_RDWR | O_CREAT, "r+");
    if (!stream)
        return -1;
    const int64_t sum = wrapping_sum(read_i64(stream.get(), 0), delta);
    const int rc = ftruncate(fileno(stream.get()), 0);
    if (rc == 0) {
        rewind(stream.get());
        fprintf(stream.get(), "%" PRId64 "\n", sum);
    }
    close_twice(std::move(stream));
    return rc;
}
