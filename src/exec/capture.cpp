#include <zorv/exec.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "exec/child.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_exec";
constexpr size_t kRoom = 1024; // bytes of the first buffer, and the least kept free

// A shell on a command line, and what it prints.
struct Shell {
    Fd output;
    pid_t pid = -1;
    enum { running, ended, failed } state = running; // of its output
};

// Empty, with errno, when there is no shell.
Shell start(const char *command)
{
    int ends[2];
    if (!command) {
        errno = EINVAL;
        return {};
    }
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    Fd output(ends[0]);
    const Fd input(ends[1]);
    const char *const argv[] = {"sh", "-c", command, nullptr};
    const Child child = start_child({"/bin/sh", argv, input.get()});
    if (child.pid >= 0 && child.exec_error == 0)
        return {std::move(output), child.pid};
    if (child.pid >= 0)
        reap_child(child.pid);
    errno = child.pid < 0 ? child.fork_error : child.exec_error;
    return {};
}

// Reads until the room is full or the output ends, through signals.
size_t read_output(Shell &shell, char *bytes, size_t room)
{
    size_t used = 0;
    while (used < room && shell.state == Shell::running) {
        const ssize_t count = read(shell.output.get(), bytes + used, room - used);
        if (count > 0)
            used += static_cast<size_t>(count);
        else if (count == 0)
            shell.state = Shell::ended;
        else if (errno != EINTR)
            shell.state = Shell::failed;
    }
    return used;
}

// The wait status of the shell, or -1. Nobody reads its output any more.
int stop(Shell shell)
{
    shell.output.reset();
    return reap_child(shell.pid);
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
    Shell shell = start(command);
    if (!shell.output) {
        log_error("get_output: popen[%s] -> NULL", command ? command : "");
        return -1;
    }

    const size_t room = std::min<size_t>(size, INT_MAX); // the result is an int
    const size_t used = read_output(shell, buffer, room);
    if (shell.state == Shell::failed)
        log_error("Failed to read from stream, command='%s'", command);

    const int status = stop(std::move(shell));
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
    size_t size = std::min(limit, kRoom);
    Text text(static_cast<char *>(malloc(size)));
    if (!text) {
        log_error("Failed to allocate buffer");
        return nullptr;
    }
    Shell shell = start(command);
    if (!shell.output) {
        log_error("open failed on '%s': %s", command ? command : "", strerror(errno));
        return nullptr;
    }

    size_t used = 0;
    while (shell.state == Shell::running) {
        if (size < limit && used + kRoom > size && !grow(text, size, limit)) {
            log_error("Failed to reallocate buffer, output truncated");
            break;
        }
        if (used == size)
            break;
        used += read_output(shell, text.get() + used, size - used);
        if (shell.state == Shell::failed)
            log_error("Failed to read from stream, command='%s'", command);
    }

    const int status = stop(std::move(shell));
    if (status == -1)
        log_error("pclose failed on '%s': %s", command, strerror(errno));
    else if (status != 0)
        log_warning("'%s' returned rc=%d", command, status);

    text.get()[std::min(used, size - 1)] = '\0';
    return text.release();
}
