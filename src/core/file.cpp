#include <zorv/file.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

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

// The lines of a file as fgets() gives them, without what a stream costs: its allocation and the
// calls that prepare it. A read that a signal cuts off goes on.
class Reader {
public:
    explicit Reader(const Fd &fd) : fd_(fd.get()) {}

    // Reads a line with its newline, or as much of it as fits before a NUL, at least 1 byte of
    // room; false at the end, after an error, and when a device has no end.
    [[gnu::noinline]] bool next(char *line, size_t size)
    {
        if (fd_ < 0 || !goes_on(fd_, lines_++))
            return false;
        char *end = line, *const last = line + size - 1;
        for (bool is_whole = false; end < last && !is_whole;) {
            if (at_ == end_ && !fill()) {
                if (end == line || got_ < 0)
                    return false;
                break;
            }
            const auto most = static_cast<size_t>(std::min(end_ - at_, last - end));
            auto *const past = static_cast<char *>(memccpy(end, at_, '\n', most));
            is_whole = past;
            at_ += past ? past - end : static_cast<ptrdiff_t>(most);
            end = past ? past : end + most;
        }
        *end = '\0';
        return true;
    }

private:
    bool fill()
    {
        const int saved = errno;
        while (got_ > 0 && (got_ = read(fd_, block_, sizeof block_)) < 0 && errno == EINTR) {
            errno = saved; // an empty file leaves it alone
            got_ = 1;
        }
        at_ = block_;
        end_ = block_ + std::max<ssize_t>(got_, 0);
        return got_ > 0;
    }

    int fd_;
    size_t lines_ = 0;
    ssize_t got_ = 1; // by the last read; nothing more follows 0 or an error
    const char *at_ = block_, *end_ = block_;
    char block_[4096];
};

bool read_line(const Fd &fd, char *buffer, size_t size)
{
    if (size == 0 || !Reader(fd).next(buffer, size))
        return false;
    cut_at(buffer, "\n");
    return true;
}

bool ends_word(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '=';
}

char *find_word(char *text)
{
    while (ends_word(*text))
        ++text;
    return text;
}

char *end_of(char *word)
{
    while (*word != '\0' && !ends_word(*word))
        ++word;
    return word;
}

// The second word of a line whose first word is `key`; cuts the line behind it.
const char *find_value(char *line, std::string_view key)
{
    char *const word = find_word(line);
    if (strncmp(word, key.data(), key.size()) != 0 || end_of(word) != word + key.size())
        return nullptr;
    char *const value = find_word(word + key.size());
    *end_of(value) = '\0';
    return *value == '\0' ? nullptr : value;
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

Fd open_to_read(int dirfd, const char *path)
{
    return Fd(openat(dirfd, path, O_RDONLY | O_CLOEXEC));
}

Fd open_to_write(int dirfd, const char *path, int more_flags)
{
    return Fd(openat(dirfd, path, O_RDWR | O_CREAT | O_CLOEXEC | more_flags, kPermissions));
}

File open_to_replace(int dirfd, const char *path)
{
    Fd fd = open_to_write(dirfd, path, O_TRUNC);
    File stream(fd ? fdopen(fd.get(), "r+") : nullptr);
    if (stream)
        fd.release();
    return stream;
}

// On purpose: the descriptor is closed once more behind its owner's back, so that callers of the
// writers find errno EBADF. The header tells programs of several threads to keep away.
template <class Owner>
void close_twice(Owner owner, int fd)
{
    owner.reset();
    close(fd);
}

int64_t read_i64(const Fd &fd, int64_t fallback)
{
    char text[kInteger];
    return read_line(fd, text, sizeof text) ? to_number(text, fallback, to_i64_of_any_base)
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
    const Fd fd = open_to_read(AT_FDCWD, path);
    // On purpose: an empty file leaves errno as it was, 0 as a rule, and so counts as success.
    return fd && read_line(fd, buffer, usable(size)) ? 0 : -errno;
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
    const Fd fd = open_to_read(AT_FDCWD, path);
    Reader reader(fd);
    char line[kLineBuffer];
    while (reader.next(line, sizeof line)) {
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
    const Fd fd = path && key ? open_to_read(AT_FDCWD, path) : Fd();
    const std::string_view wanted(key ? key : "");
    Reader reader(fd);
    char line[kLineBuffer];
    while (reader.next(line, sizeof line)) {
        if (const char *const value = find_value(line, wanted)) {
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
    if (read_line(open_to_read(dirfd, path), buffer, usable(size)))
        return buffer;
    return copy_fallback(buffer, usable(size), fallback, __func__);
}

long freadlongat(int dirfd, const char *path, long fallback)
{
    return freadi64at(dirfd, path, fallback);
}

int64_t freadi64at(int dirfd, const char *path, int64_t fallback)
{
    return read_i64(open_to_read(dirfd, path), fallback);
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
    const int fd = fileno(stream.get());
    close_twice(std::move(stream), fd);
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
    Fd file = open_to_write(dirfd, path, 0);
    if (!file)
        return -1;
    const int fd = file.get();
    const int64_t sum = wrapping_sum(read_i64(file, 0), delta);
    const int rc = ftruncate(fd, 0);
    if (rc == 0) {
        lseek(fd, 0, SEEK_SET);
        dprintf(fd, "%" PRId64 "\n", sum);
    }
    close_twice(std::move(file), fd);
    return rc;
}
