#include <zorv/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>

#include <alloca.h>
#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "core/json_text.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "core/pipe_signal.h"

using namespace zorv;

int32_t libzorv_log_level = 4;
int32_t libzorv_log_use_syslog = 1;
const char *libzorv_log_level_names[8] = {"emerg", "alert", "crit ", "error",
                                          "warn ", "notic", "info ", "debug"};

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is libc's
extern "C" const char *__progname; // the C library's short program name

namespace {

constexpr char kSyslogFile[] = "/var/log/messages"; // there while a syslog daemon runs
constexpr char kKernelLog[] = "/dev/kmsg";
constexpr char kPrefix[] = "%s[%d]: [%s] %s.%s(): ";
constexpr size_t kLine = 1024;   // a syslog message; longer lines are rare and take a longer way
constexpr size_t kRecord = 976;  // the kernel log refuses more: 1024 less 48 of its own
constexpr int kJsonColumn = 960; // no syslog line of a JSON dump is longer
constexpr int kHexRow = 16;      // bytes on a line of a hexadecimal dump

// What a line says besides its message.
struct Origin {
    int level;
    const char *module;
    const char *function;
    pid_t pid = getpid();
};

bool syslog_is_running()
{
    struct stat info;
    return stat(kSyslogFile, &info) == 0;
}

// The prefix of a line, by hand: vsnprintf() takes longer for it than for most messages.
class Prefix {
public:
    explicit Prefix(char (&line)[kLine]) : end_(line), last_(std::end(line)) {}

    [[gnu::noinline]] Prefix &add(const char *text)
    {
        const size_t length = strlen(text ? text : (text = "(null)")); // as printf() has it
        if (end_ && length < static_cast<size_t>(last_ - end_))
            end_ = static_cast<char *>(mempcpy(end_, text, length));
        else
            end_ = nullptr;
        return *this;
    }

    Prefix &add(pid_t pid)
    {
        char text[sizeof "2147483647"] = "";
        char *first = text + sizeof text - 1;
        for (; first == text + sizeof text - 1 || pid > 0; pid /= 10)
            *--first = static_cast<char>('0' + pid % 10);
        return add(first);
    }

    // Null when the line is too short for it.
    char *end() const { return end_; }

private:
    char *end_;
    const char *last_;
};

// Formats a whole line with its newline; 0 when it does not fit.
ZORV_PRINTF(3, 0)
size_t print_line(char (&line)[kLine], const Origin &origin, const char *format, va_list arguments)
{
    Prefix prefix(line);
    prefix.add(__progname).add("[").add(origin.pid).add("]: [");
    prefix.add(libzorv_log_level_names[origin.level]).add("] ");
    prefix.add(origin.module).add(".").add(origin.function).add("(): ");
    char *const text = prefix.end();
    if (!text)
        return 0;
    const auto room = static_cast<size_t>(std::end(line) - text);
    va_list copy;
    va_copy(copy, arguments);
    const int message = vsnprintf(text, room, format, copy);
    va_end(copy);
    if (message < 0 || static_cast<size_t>(message) + 1 >= room)
        return 0;
    text[message] = '\n';
    return static_cast<size_t>(text + message + 1 - line);
}

// A line of any length: prefix, message, newline.
ZORV_PRINTF(3, 0)
void write_long_line(FILE *stream, const Origin &origin, const char *format, va_list arguments)
{
    fprintf(stream, kPrefix, __progname, origin.pid, libzorv_log_level_names[origin.level],
            origin.module, origin.function);
    vfprintf(stream, format, arguments);
    fputc('\n', stream);
}

// The kernel log makes one record of each write, so a line is one write, if it is not too long.
void write_records(const Fd &device, const char *line, size_t length)
{
    for (; length > kRecord; line += kRecord, length -= kRecord)
        [[maybe_unused]] const ssize_t written = write(device.get(), line, kRecord);
    [[maybe_unused]] const ssize_t written = write(device.get(), line, length);
}

ZORV_PRINTF(3, 0)
void write_kernel_line(const Fd &device, const Origin &origin, const char *format,
                       va_list arguments)
{
    char line[kLine];
    if (const size_t length = print_line(line, origin, format, arguments))
        return write_records(device, line, length);
    char *text = nullptr;
    size_t length = 0;
    File stream(open_memstream(&text, &length));
    if (!stream)
        return;
    write_long_line(stream.get(), origin, format, arguments);
    stream.reset(); // text and length are there from now on
    if (const Text owner{text})
        write_records(device, text, length);
}

// Whether a write may raise SIGPIPE, once the reader has gone: a pipe or a socket has no position.
// To ask for it takes half the time of fstat(). The message may show errno.
bool has_reader(FILE *stream)
{
    const int saved = errno;
    const bool has_position = lseek(fileno(stream), 0, SEEK_CUR) >= 0;
    errno = saved;
    return !has_position;
}

ZORV_PRINTF(2, 0)
void write_error_line(const Origin &origin, const char *format, va_list arguments)
{
    std::optional<PipeSignalHeld> no_pipe_signal;
    if (has_reader(stderr))
        no_pipe_signal.emplace();
    char line[kLine];
    if (const size_t length = print_line(line, origin, format, arguments))
        fwrite(line, 1, length, stderr);
    else
        write_long_line(stderr, origin, format, arguments);
}

ZORV_PRINTF(2, 0)
void write_syslog_line(const Origin &origin, const char *format, va_list arguments)
{
    char message[kLine];
    if (vsnprintf(message, sizeof message, format, arguments) < 0)
        message[0] = '\0';
    syslog(origin.level, "%s[%d]: %s.%s(): %s\n", __progname, origin.pid, origin.module,
           origin.function, message);
}

ZORV_PRINTF(2, 0)
void write_line(const Origin &origin, const char *format, va_list arguments)
{
    if (libzorv_log_use_syslog) {
        if (syslog_is_running())
            return write_syslog_line(origin, format, arguments);
        if (const Fd device{open(kKernelLog, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)})
            return write_kernel_line(device, origin, format, arguments);
    }
    write_error_line(origin, format, arguments);
}

// How many characters of JSON text a line holds; at least 1, however long the program's name.
size_t json_width(const Origin &origin)
{
    const int prefix = snprintf(nullptr, 0, "%s: %s[%d]: %s.%s(): JSON - %4s: ", __progname,
                                __progname, origin.pid, origin.module, origin.function, "");
    return static_cast<size_t>(std::clamp(kJsonColumn - prefix, 1, kJsonColumn));
}

void log_json_text(const Origin &origin, const char *text)
{
    const size_t width = json_width(origin);
    const auto piece = static_cast<char *>(alloca(width + 1));
    int number = 0;
    bool begins_line = true;
    while (*text != '\0') {
        const size_t length = strnlen(text, width);
        const auto newline = static_cast<const char *>(memchr(text, '\n', length));
        const size_t used = newline ? static_cast<size_t>(newline - text) : length;
        memcpy(piece, text, used);
        piece[used] = '\0';
        if (begins_line)
            libzorv_log(origin.level, origin.module, origin.function, "JSON - %4d: %s", ++number,
                        piece);
        else
            libzorv_log(origin.level, origin.module, origin.function, "JSON - %4s: %s", "", piece);
        text += used;
        begins_line = *text == '\n'; // also behind a piece that the newline follows exactly
        if (begins_line)
            ++text;
    }
}

} // namespace

void zorv::log_for(pid_t pid, int level, const char *module, const char *function,
                   const char *format, ...)
{
    const int saved = errno;
    va_list arguments;
    va_start(arguments, format);
    write_line({level, module, function, pid}, format, arguments);
    va_end(arguments);
    errno = saved;
}

void libzorv_log(int level, const char *module, const char *function, const char *format, ...)
{
    const int saved = errno;
    va_list arguments;
    va_start(arguments, format);
    write_line({std::clamp(level, LOG_EMERG, LOG_DEBUG), module, function}, format, arguments);
    va_end(arguments);
    errno = saved;
}

void libzorv_log_json(int level, const char *module, const char *function, const json_t *json,
                      const char *title)
{
    const Text text = dump_json(json, JSON_INDENT(4));
    if (title)
        libzorv_log(level, module, function, "JSON - %4s: %s", "", title);
    if (!text)
        libzorv_log(level, module, function, "JSON - %4s: %s", "", "null data");
    else
        log_json_text({level, module, function}, text.get());
}

void libzorv_log_hex(int level, const char *module, const char *function, const unsigned char *data,
                     int length, const char *title)
{
    libzorv_log(level, module, function, "%s - HEX(%p) len %d", title ? title : "",
                static_cast<const void *>(data), length);
    for (int offset = 0; offset < length; offset += std::min(kHexRow, length - offset)) {
        char row[sizeof "00000000:" + 3UL * kHexRow];
        int used = snprintf(row, sizeof row, "%08x:", static_cast<unsigned>(offset));
        for (int i = offset; i < length && i - offset < kHexRow; ++i)
            used += snprintf(row + used, sizeof row - static_cast<size_t>(used), " %02x", data[i]);
        libzorv_log(level, module, function, "%s", row);
    }
}
