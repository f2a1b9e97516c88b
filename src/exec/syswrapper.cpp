#include <zorv/exec.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "exec/child.h"
#include "exec/syswrapper.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_exec";
constexpr int kLongestWait = 64; // milliseconds until a look for another child that has ended

// Whose line it is: the caller's, or that of a child that cannot log.
struct Speaker {
    const char *function;
    pid_t pid;
};

// On purpose: the newline stands before the reason, and no verbosity silences the text; kept for
// callers built against it.
void report_failed_fork(const Speaker &speaker, int error)
{
    errno = error;
    perror("Fork Failed!!\n");
    if (libzorv_log_level >= 8)
        log_for(speaker.pid, LOG_DEBUG, kModule, speaker.function, "[ERROR] fork failed");
}

// Whether the process still is a child of this one: nobody has reaped it.
bool is_child(pid_t pid)
{
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// A descriptor that poll() finds readable when the process has ended; empty before Linux 5.3.
Fd watch(pid_t pid)
{
#ifdef SYS_pidfd_open
    return Fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
#else
    return Fd();
#endif
}

// Waits as wait() does, but not longer than the child is there: the host may ignore SIGCHLD or reap
// all children itself, and wait() would then wait for an unrelated one. Returns the status of what
// was reaped; 0 when it was another's.
//
// On purpose: whichever child ends first is reaped, which need not be the one just started; kept
// for callers built against it.
int reap_first(pid_t child)
{
    const Fd end = watch(child);
    pollfd event = {end.get(), POLLIN, 0}; // poll() passes over -1 and only waits
    int status = 0;
    int wait = 1;
    while (waitpid(-1, &status, WNOHANG) == 0 && is_child(child)) {
        poll(&event, 1, wait);
        wait = std::min(2 * wait, kLongestWait);
    }
    return status;
}

// The code logged is that of an exit, although it was a signal that ended the child.
void wait_for_child(const char *function, pid_t child)
{
    const int status = reap_first(child);
    if (WTERMSIG(status) != 0)
        log_debug_as(function, "[ERROR] exit abnormally. code: %d", WEXITSTATUS(status));
}

} // namespace

void forkexec(char *const argv[])
{
    if (!argv || !argv[0])
        return;
    Child child = start_child({argv[0], argv});
    if (child.pid >= 0 && child.exec_error != 0) {
        reap_child(child.pid);
        child.pid = fork();
        child.fork_error = errno;
        if (child.pid == 0)
            exit(0); // On purpose: looks like a success to callers, and flushes their stdio buffers
    }
    if (child.pid < 0)
        return report_failed_fork({__func__, getpid()}, child.fork_error);
    wait_for_child(__func__, child.pid);
}

void syswrapper_impl(int wait, const char *command, ...)
{
    if (!command)
        return;
    const char *script = find_system_script();
    if (!script) {
        log_debug("[ERROR] unable to locate syswrapper.sh, '%s' skipped!", command);
        return;
    }
    log_verbose("syswrapper to use: %s", script);

    SystemVector vector(script, command);
    va_list arguments;
    va_start(arguments, command);
    for (const char *word; !vector.is_full() && (word = va_arg(arguments, const char *));)
        vector.add(word);
    va_end(arguments);
    // On purpose: a full vector runs all the same, even one that the arguments fill exactly.
    // Despite its wording the message marks a cut.
    if (vector.is_full())
        log_debug("[ERROR] too many arguments for syswrapper, '%s' skipped!", command);

    const Child child =
        start_child({.path = script, .argv = vector.words(), .detached = wait == 0});
    if (child.pid < 0) {
        report_failed_fork({__func__, getpid()}, child.fork_error);
        errno = child.fork_error;
        return;
    }
    if (strcmp(command, "reload") != 0 && libzorv_log_level >= 8) // periodic: it would fill the log
        log_for(child.pid, LOG_DEBUG, kModule, __func__, "[EXEC] %s %s", script, command);
    if (child.fork_error != 0)
        report_failed_fork({__func__, child.pid}, child.fork_error);
    wait_for_child(__func__, child.pid);
    errno = child.exec_error;
}
