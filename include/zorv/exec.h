/*
 * exec.h - running programs: command objects, the system script, captured output.
 *
 * Programs are run with a prepared argument vector, never through a shell, but for the two capture
 * functions, whose argument is a shell's command line. Nothing is kept between calls, and any
 * thread may call any function.
 *
 * A child starts in a time that does not depend on the caller's memory, which it shares until its
 * program runs; handlers that the host gave to pthread_atfork() are not run for it. It inherits
 * every descriptor that is not close-on-exec, the signal mask, the signals that are ignored (a
 * daemon that ignores SIGPIPE has scripts that do) and the environment. Only the shell of a capture
 * gets SIGPIPE at its default, and not blocked.
 *
 * The host may handle SIGCHLD, ignore it or reap children as it likes. No call waits longer than
 * its own child is there; a status that another has reaped is not known, and so not logged.
 *
 * Messages have the module "libzorv_exec". Those of the capture functions are errors and warnings;
 * all others, those that begin with "[ERROR]" included, are debug messages.
 */
#ifndef ZORV_EXEC_H
#define ZORV_EXEC_H

#include <stddef.h>
#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * A program and its arguments, to keep, hand around and compare. Slots 1 to argc - 1 of argv and
 * argv itself belong to the object; slot 0 points at its path. A slot is NULL where memory ran out
 * for that argument alone.
 */
typedef struct exec_command {
    char path[4096]; /* always terminated */
    int32_t argc;    /* used slots of argv, the path's included */
    char **argv;
} exec_command;

/*
 * Makes a command object of a path and argument texts; NULL ends them.
 *
 *   path  its first 4095 characters are taken
 *   ...   const char *, each cut to 4096 characters
 *
 * Returns an owned object (exec_destroy), or NULL when path is NULL or empty or memory runs out.
 * Slot argc of its argv is NULL, so that argv can be passed to execv() or forkexec() as it stands.
 * An argument for which memory runs out leaves its slot NULL without a message.
 */
exec_command *exec_create(const char *path, ...) __attribute__((sentinel));

/* Releases a command object; NULL is ignored. */
void exec_destroy(exec_command *command);

/*
 * Duplicates a command object, for keeping and comparing.
 *
 * Returns an owned object (exec_destroy), or NULL when source is NULL, its argc below 1, or memory
 * runs out. On purpose the argv of a copy has argc slots and no NULL behind them: whoever runs a
 * copy builds a terminated vector first.
 */
exec_command *exec_copy(const exec_command *source);

/*
 * Tells whether two commands are the same, and if not, where they differ first. The result classes
 * commands and does not order them.
 *
 *   -1  a or b is NULL
 *    0  the same object, or equal in path, argc and all arguments
 *   -2  argc differs (-ENOENT); tested before the paths
 *   -3  the paths differ (-ESRCH)
 *   k   from 1: the first slot of argv that differs; a NULL slot equals only another one
 */
int exec_cmp(const exec_command *a, const exec_command *b);

/*
 * Runs argv[0] with argv and waits until it ends.
 *
 *   argv  ended by NULL; argv[0] is the path of the program, which is not looked for in PATH. NULL
 *         or an empty vector does nothing
 *
 * A program that cannot be started looks like one that succeeded: a child made by fork() leaves
 * with exit(0), which flushes its copies of the caller's stdio buffers and runs the caller's
 * handlers of fork and exit. A child that a signal ended is logged as "[ERROR] exit abnormally.
 * code: %d" with bits 8 to 15 of its wait status, 0 as a rule. A failing fork is logged as "[ERROR]
 * fork failed" and, at any verbosity, printed on standard error as "Fork Failed!!\n" with the
 * reason.
 *
 * Waits as wait() does: another child of the process that ends first is reaped in place of the
 * program, and this call returns then, within 64 milliseconds. Callers with children of their own
 * allow for that. When somebody else has reaped the program the call returns as well.
 */
void forkexec(char *const argv[]);

/*
 * Runs the system script: /etc/syswrapper.sh or, where that cannot be opened for reading,
 * /usr/etc/syswrapper.sh.
 *
 *   wait     non-zero: returns when the script has ended; zero: the script is detached, becomes a
 *            child of init and outlives the call
 *   command  the script's first argument, a word of its vocabulary; NULL does nothing
 *   ...      const char *, the arguments behind it, up to 48; NULL ends them
 *
 * Without a script "[ERROR] unable to locate syswrapper.sh, '%s' skipped!" is logged and nothing
 * runs. With 48 or more further arguments "[ERROR] too many arguments for syswrapper, '%s'
 * skipped!" is logged, and the script runs all the same with the first 48. Each run is logged, with
 * the child's pid in the line, as "[EXEC] %s %s" with script and command, but for the command
 * "reload", which is periodic.
 *
 * The end of the script, a failing fork and the wait for children are as in forkexec(), with one
 * difference: the child of a script that cannot be started leaves with _exit(0) and flushes
 * nothing. If the script cannot be detached because a second fork fails, that is reported alike and
 * the call waits for the script.
 *
 * Once there is a script, errno is 0 when it was started, else why it was not.
 */
void syswrapper_impl(int wait, const char *command, ...) __attribute__((sentinel));

/*
 * Runs a shell command line and stores what it prints on standard output.
 *
 *   buffer  [out] the output and a NUL; left alone when the command cannot be started
 *   size    bytes at buffer: output that fills them is cut to size - 1; 0 stores nothing
 *
 * Returns the length of the stored text, NULs of the output counted, or -1 when the command cannot
 * be started (or is NULL). The status of the command never changes the result: one other than 0 is
 * logged as the warning "[%s] -> [%d]" with the command and the raw wait status, 256 for an exit
 * code of 1. A command that prints more than fits is told by SIGPIPE and waited for. A read that
 * fails ends the output and is logged as the error "Failed to read from stream, command='%s'"; a
 * signal is no failure.
 */
int popen_get_output(const char *command, char *buffer, size_t size);

/*
 * Runs a shell command line and returns what it prints on standard output.
 *
 *   max_size  most bytes to allocate, the NUL included; output that reaches it is cut to
 *             max_size - 1 characters; 0 is taken as 1
 *
 * Returns an owned text (free), also when the command failed or reading stopped early; NULL when
 * the command cannot be started (or is NULL) or memory runs out at the start. A status other than 0
 * is logged as the warning "'%s' returned rc=%d" with the command and the raw wait status.
 *
 * The buffer begins with 1024 bytes and doubles whenever fewer than 1024 are free.
 */
char *popen_alloc_output(const char *command, size_t max_size);

ZORV_END

#endif
