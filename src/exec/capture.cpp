#include <zorv/exec.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_exec";
constexpr size_t kPiece = 1024; // the first buffer, the most read at a time, the least kept free

using Pipe = std::unique_ptr<FILE, Closer<pclose>>;

// Starts a shell on the command line; the pipe is close-on-exec.
Pipe start(const char *command)
{
    if (!command) {
        errno = EINVAL;
        return nullptr;
    }
    return Pipe(popen(command, "re")); // NOLINT(cert-env33-c): a shell is what callers ask for
}

// Doubles the buffer, up to the limit.
bool grow(Text &text, size_t &size, size_t limit)
{
    const size_t wanted = size <= limit / 2 ? 2 * size : limit;
    const auto grown = static_cast<char *>(realloc(text.get(), wanted));
    if (!grown)
        return false;
    static_cast<void>(text.release());
    text.reset(grown);
    size = wanted;
    return true;
}

} // namespace

int popen_get_output(const char *command, char *buffer, size_t size)
{
    Pipe output = start(command);
    if (!output) {
        log_error("get_output: popen[%s] -> NULL", command ? command : "");
        return -1;
    }

    const size_t room = std::min<size_t>(size, INT_MAX); // the result is an int
    size_t used = 0;
    while (used < room && !feof(output.get()) && !ferror(output.get()))
        used += fread(buffer + used, 1, room - used, output.get());

    const int status = pclose(output.release());
    if (status == -1)
        log_warning("error on pclose for[%s] errno[%s]", command, strerror(errno));
    else if (status != 0)
        log_warning("[%s] -> [%d]", command, status);

    if (room == 0)
        return 0;
    const size_t length = std::min(used, room - 1);
    buffer[length] = '\0';
    return static_cast<int>(length);
}

char *popen_alloc_output(const char *command, size_t max_size)
{
    const size_t limit = std::max<size_t>(max_size, 1);
    size_t size = std::min(limit, kPiece);
    Text text(static_cast<char *>(malloc(size)));
    if (!text) {
        log_error("Failed to allocate buffer");
        return nullptr;
    }
    Pipe output = start(command);
    if (!output) {
        log_error("open failed on '%s': %s", command ? command : "", strerror(errno));
        return nullptr;
    }

    size_t used = 0;
    while (!feof(output.get())) {
        if (size < limit && used + kPiece > size && !grow(text, size, limit)) {
            log_error("Failed to reallocate buffer, output truncated");
            break;
        }
        if (used == size)
            break;
        used += fread(text.get() + used, 1, std::min(size - used, kPiece), output.get());
        if (ferror(output.get())) {
            log_error("Failed to read from stream, command='%s'", command);
            break;
        }
    }

    const int status = pclose(output.release());
    if (status == -1)
        log_error("pclose failed on '%s': %s", command, strerror(errno));
    else if (status != 0)
        log_warning("'%s' returned rc=%d", command, status);

    text.get()[std::min(used, size - 1)] = '\0';
    return text.release();
}
