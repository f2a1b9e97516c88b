#include <zorv/exec.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "exec/syswrapper.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_exec";

// On purpose: the newline stands before the reason, and no verbosity silences the text, which the
// device's console is to show.
void report_failed_fork(const char *function)
{
    perror("Fork Failed!!\n");
    if (libzorv_log_level >= 8)
        libzorv_log(LOG_DEBUG, kModule, function, "[ERROR] fork failed");
}

// On purpose: whichever child ends first is reaped, which need not be the one just started; callers
// with children of their own allow for it. The code logged is that of an exit, although it was a
// signal that ended the child.
void wait_for_child(const char *function)
{
    int status = 0;
    while (wait(&status) < 0 && errno == EINTR)
        ;
    if (WTERMSIG(status) != 0 && libzorv_log_level >= 8)
        libzorv_log(LOG_DEBUG, kModule, function, "[ERROR] exit abnormally. code: %d",
                    WEXITSTATUS(status));
}

// In the child: goes on in a child of its own, which init adopts. When that cannot be made, the
// caller's child goes on, and the caller waits for it.
void detach(const char *function)
{
    const pid_t child = fork();
    if (child < 0)
        report_failed_fork(function);
    else if (child > 0)
        _exit(0);
}

} // namespace

void forkexec(char *const argv[])
{
    if (!argv || !argv[0])
        return;
    const pid_t child = fork();
    if (child < 0)
        return report_failed_fork(__func__);
    if (child == 0) {
        execv(argv[0], argv);
        exit(0); // On purpose: looks like a success to callers, and flushes their stdio buffers
    }
    wait_for_child(__func__);
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
    // Despite its wording the message marks a cut, and callers count on the run.
    if (vector.is_full())
        log_debug("[ERROR] too many arguments for syswrapper, '%s' skipped!", command);

    const pid_t child = fork();
    if (child < 0)
        return report_failed_fork(__func__);
    if (child == 0) {
        if (strcmp(command, "reload") != 0) // periodic: it would fill the log
            log_debug("[EXEC] %s %s", script, command);
        if (!wait)
            detach(__func__);
        execv(script, const_cast<char *const *>(vector.words()));
        _exit(0);
    }
    wait_for_child(__func__);
}
